#!/usr/bin/env python3
"""Every source is formatted as .clang-format says. Exits with 77 where the formatter is not installed.

usage: format.py TREE
"""
import pathlib
import shutil
import subprocess
import sys

FOLDERS = ["include", "text", "vpath", "system", "paths", "copy", "platform", "tests", "bench", "examples", "fuzz"]


def main():
    tree = pathlib.Path(sys.argv[1])
    formatter = shutil.which("clang-format-14") or shutil.which("clang-format")
    if not formatter:
        print("clang-format is not installed")
        sys.exit(77)
    files = sorted(str(path) for folder in FOLDERS for path in (tree / folder).rglob("*")
                   if path.suffix in (".h", ".c", ".cpp"))
    result = subprocess.run([formatter, "--dry-run", "--Werror", "--style=file", *files],
                            capture_output=True, text=True)
    if result.returncode != 0:
        unformatted = sorted({line.split(":")[0] for line in result.stderr.splitlines() if ": error:" in line})
        print("\n".join(unformatted), "Run clang-format -i on them.", sep="\n")
    else:
        print(f"{len(files)} files are formatted")
    sys.exit(result.returncode != 0)


main()
