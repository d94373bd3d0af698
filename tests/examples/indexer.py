#!/usr/bin/env python3
"""The ported program, on a folder whose files are known.

usage: indexer.py [EMULATOR] INDEXER
"""
import os
import pathlib
import subprocess
import sys
import tempfile


def sum_of(content):
    value = 0xCBF29CE484222325
    for byte in content:
        value = (value ^ byte) * 0x100000001B3 % 2**64
    return value


def check(name, seen, expected):
    if seen != expected:
        sys.exit(f"{name}: {seen!r}\nexpected: {expected!r}")


def run(*words, **options):
    options = {"stdout": subprocess.PIPE, **options}
    return subprocess.run([*sys.argv[1:], *map(str, words)], stderr=subprocess.PIPE, text=True, check=False, **options)


def main():
    with tempfile.TemporaryDirectory(prefix="tavport-test-") as folder:
        top = pathlib.Path(folder).resolve() / "tree"
        contents = {f"many/{number:03}": b"%d" % number for number in range(200)}
        contents |= {"large.bin": bytes(300_000), "a/Übung.txt": b"the same", "a/b/copy.txt": b"the same", "empty": b"",
                     "12:30/at:noon": b"noon"}
        for name, content in contents.items():
            path = top / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(content)
        index = top.parent / "index"
        result = run(top, index)

        check("status", (result.returncode, result.stderr), (0, ""))
        lines = result.stdout.splitlines()
        check("count", lines[0], "205 files, 0 of them could not be read")
        check("largest", lines[1:3], ["Largest:", f"{300_000:12}  {top}/large.bin"])
        check("duplicates", lines[-3:],
              ["The same content:", f"    {top}/a/b/copy.txt", f"  = {top}/a/Übung.txt"])
        expected = sorted(f"{len(content):12} {sum_of(content):016x} {top}/{name}" for name, content in contents.items())
        check("index", sorted(index.read_text(encoding="utf-8").splitlines()), expected)

        for given in ("tree", "./tree/", "../tree"):
            place = top if given.startswith("..") else top.parent
            index.unlink()
            check(f"status for {given}", run(given, os.path.relpath(index, place), cwd=place).returncode, 0)
            check(f"index of {given}", sorted(index.read_text(encoding="utf-8").splitlines()), expected)

        check("no folder", run(top / "missing", index).returncode, 2)
        check("no arguments", run().returncode, 2)
        check("no names", (run("", index).returncode, run(top, "").returncode), (2, 2))
        check("an index that cannot be made", run(top, top / "missing/index").returncode, 1)
        check("an index that cannot be written", run(top, "/dev/full").returncode, 1)
        with open("/dev/full", "w", encoding="utf-8") as full:
            check("output that cannot be written", run(top, index, stdout=full).returncode, 1)


main()
