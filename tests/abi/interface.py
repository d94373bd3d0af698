#!/usr/bin/env python3
"""The binary interface is the recorded one: functions, their types, and the layout of the header's records. Exits with
77 where the tools of the comparison are not installed.

usage: interface.py TREE LIBRARY            compares with tests/abi/TavPort.abi
       interface.py TREE LIBRARY --record   records a change that is wanted
"""
import pathlib
import shutil
import subprocess
import sys
import tempfile


def record(tree, library, target):
    subprocess.run(["abidw", "--exported-interfaces-only", "--no-corpus-path", "--no-show-locs", "--no-comp-dir-path",
                    "--no-elf-needed", "--header-file", tree / "include/TavPort.h", "--drop-private-types",
                    "--out-file", target, library], check=True)


def main():
    tree, library = pathlib.Path(sys.argv[1]), sys.argv[2]
    recorded = tree / "tests/abi/TavPort.abi"
    if not shutil.which("abidw") or not shutil.which("abidiff"):
        print("abidw and abidiff are not installed")
        sys.exit(77)
    if sys.argv[3:] == ["--record"]:
        record(tree, library, recorded)
        return
    with tempfile.TemporaryDirectory() as folder:
        built = pathlib.Path(folder) / "built.abi"
        record(tree, library, built)
        result = subprocess.run(["abidiff", recorded, built], capture_output=True, text=True, check=False)
    if result.returncode != 0:
        sys.exit(f"{result.stdout}{result.stderr}The binary interface changed. If that is wanted, record it: "
                 f"{sys.argv[0]} {tree} {library} --record")


main()
