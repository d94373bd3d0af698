#!/usr/bin/env python3
"""Looks whether built libraries have what cmake/Hardening.cmake asks for: tables that are read-only once the library is
loaded, guarded stacks, and the C library's and the C++ library's checks; and whether they leave others room for theirs.

usage: hardening.py LIBRARY ...
"""
import re
import subprocess
import sys

MARKS = {
    "a part that becomes read-only": r"GNU_RELRO",
    "symbols bound at load time": r"\(FLAGS(_1)?\).*NOW",
    "guarded stacks": r"UND __stack_chk_fail\b",
    "the C library's checks": r"UND __(strcpy|memcpy|snprintf|realpath)_chk\b",
    "the C++ library's checks": r"UND _ZSt21__glibcxx_assert_fail",
}


def main():
    missing = False
    for library in sys.argv[1:]:
        told = subprocess.run(["readelf", "--wide", "--segments", "--dynamic", "--dyn-syms", library], check=True,
                              capture_output=True, text=True).stdout
        # Of the little room that the loader has for variables of threads, other libraries need some as well.
        threads = re.search(r"^ +TLS +\S+ +\S+ +\S+ +\S+ +(0x[0-9a-f]+)", told, flags=re.M)
        if threads and int(threads[1], 16) > 512:
            print(f"{library} takes {int(threads[1], 16)} bytes of each thread")
            missing = True
        for subject, mark in MARKS.items():
            if not re.search(mark, told):
                print(f"{library} lacks {subject}")
                missing = True
    print("looked at " + ", ".join(sys.argv[1:]))
    return missing


if __name__ == "__main__":
    sys.exit(main())
