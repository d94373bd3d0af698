#!/usr/bin/env python3
"""Compiles the uses of the header in one compiler and all dialects that it promises.

usage: header_dialect.py INCLUDE_FOLDER COMPILER [FLAG ...]
"""
import pathlib
import subprocess
import sys

FOLDER = pathlib.Path(__file__).parent
DIALECTS = [("c", "c11"), ("c", "c17"), ("c++", "c++17"), ("c++", "c++20")]
# file, flags, languages. u"" is a text for the library, and in C++ with -fshort-wchar L"" instead; in C it stays both.
USES = [
    ("header_use.c", [], ("c", "c++")),
    ("header_use_wide.c", ["-fshort-wchar"], ("c", "c++")),
    ("header_use.c", ["-fshort-wchar"], ("c",)),
]


def main():
    include, compiler = sys.argv[1], sys.argv[2:]
    failures = 0
    for name, flags, languages in USES:
        for language, standard in DIALECTS:
            if language not in languages:
                continue
            command = [*compiler, "-x", language, f"-std={standard}", *flags, "-Wall", "-Wextra", "-Wpedantic",
                       "-Werror", "-fsyntax-only", "-I", include, str(FOLDER / name)]
            result = subprocess.run(command, capture_output=True, text=True)
            if result.returncode != 0:
                failures += 1
                print(" ".join(command), result.stderr, sep="\n")
    sys.exit(bool(failures))


main()
