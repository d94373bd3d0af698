#!/usr/bin/env python3
"""Every exported function is called in a test in which calls to the platform and allocations fail.

usage: faults.py TREE
"""
import pathlib
import re
import sys

from header import Header, export_list

SCENARIOS = ["tests/*/*_faults.cpp", "tests/*/*_sweep.cpp", "tests/text_memory/*.cpp"]


def main():
    tree = pathlib.Path(sys.argv[1])
    functions = set(Header(tree / "include/TavPort.h").functions) & set(export_list(tree / "include/TavPort.exports"))
    text = "".join(path.read_text(encoding="utf-8") for pattern in SCENARIOS for path in tree.glob(pattern))
    code = re.sub(r"//[^\n]*", "", text)
    missing = [name for name in sorted(functions) if not re.search(rf"\b{name}\b", code)]
    print("\n".join(f"{name}: called by no test with faults" for name in missing)
          or f"{len(functions)} functions are called where calls fail")
    sys.exit(bool(missing))


main()
