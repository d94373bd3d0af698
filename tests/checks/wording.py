#!/usr/bin/env python3
"""Sources and documents explain themselves: no text of the tree leans on a requirements document that its reader has not.

usage: wording.py TREE
"""
import pathlib
import re
import sys

# Written so that this file does not find itself.
WORDS = [r"\bthe spec" r"\b", r"\bspec" r"\.md\b", r"\bspecificati" r"ons?\b", r"\bas spec" r"ified\b",
         r"\bPart" r" \d\.\d", r"\bParts" r" \d\.\d", r"\bdesign" r"\.md\b", r"\bstyle" r"\.md\b"]
PATTERN = re.compile("|".join(WORDS), re.I)
SKIPPED = {".git", "build", ".cache", "__pycache__"}


def files(folder):
    for path in sorted(folder.iterdir()):
        if path.is_symlink() or path.name in SKIPPED:
            continue
        if path.is_dir():
            yield from files(path)
        else:
            yield path


def main():
    tree = pathlib.Path(sys.argv[1])
    problems = []
    for path in files(tree):
        text = path.read_bytes().decode("utf-8", "replace")
        for number, line in enumerate(text.splitlines(), 1):
            match = PATTERN.search(line)
            if match:
                problems.append(f"{path.relative_to(tree)}:{number}: '{match.group()}' in: {line.strip()[:120]}")
        if PATTERN.search(path.name):
            problems.append(f"{path.relative_to(tree)}: the name itself")
    print("\n".join(problems) or "the tree explains itself")
    sys.exit(bool(problems))


main()
