#!/usr/bin/env python3
"""Looks whether built libraries have what cmake/Hardening.cmake asks for: tables that are read-only once the library is
loaded, guarded stacks, and the C library's and the C++ library's checks.

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
        for subject, mark in MARKS.items():
            if not re.search(mark, told):
                print(f"{library} lacks {subject}")
                missing = True
    print("looked at " + ", ".join(sys.argv[1:]))
    return missing


if __name__ == "__main__":
    sys.exit(main())
