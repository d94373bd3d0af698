#!/usr/bin/env python3
"""The list of exports, the header and the built library name the same symbols, no more and no less.

usage: exports.py TREE LIBRARY
"""
import pathlib
import subprocess
import sys

from header import Header, export_list


def library_symbols(library):
    """The symbols that the library defines for others; readelf reads every machine's files."""
    output = subprocess.run(["readelf", "-W", "--dyn-syms", library], check=True, capture_output=True, text=True).stdout
    symbols = set()
    for line in output.splitlines():
        fields = line.split()
        if len(fields) < 8 or not fields[0].endswith(":") or fields[6] in ("UND", "ABS", "Ndx"):
            continue
        if fields[4] in ("GLOBAL", "WEAK", "UNIQUE"):
            symbols.add(fields[7].split("@")[0])
    return symbols


def differences(expected, actual, expected_name, actual_name):
    found = [f"{name}: in {expected_name}, not in {actual_name}" for name in sorted(expected - actual)]
    return found + [f"{name}: in {actual_name}, not in {expected_name}" for name in sorted(actual - expected)]


def main():
    tree, library = pathlib.Path(sys.argv[1]), sys.argv[2]
    listed = export_list(tree / "include/TavPort.exports")
    header = Header(tree / "include/TavPort.h")
    problems = [f"{name}: listed twice" for name in sorted(set(listed)) if listed.count(name) > 1]
    problems += differences(set(listed), set(header.functions) | header.data, "the list", "the header")
    problems += differences(set(listed), library_symbols(library), "the list", "the library")
    print("\n".join(problems) or f"{len(listed)} symbols agree")
    sys.exit(bool(problems))


main()
