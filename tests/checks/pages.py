#!/usr/bin/env python3
"""The pages say what is true of the tree: tests that the guarantees name exist, the provider's page lists each operation
of the seam and no other, the porting guide knows every Windows call that the header names, and the version is the same
wherever it is written.

usage: pages.py TREE
"""
import pathlib
import re
import sys

from header import Header

TREE = pathlib.Path(sys.argv[1])


def text_of(name):
    return (TREE / name).read_text(encoding="utf-8")


def code_spans(text):
    return re.findall(r"`([^`\n]+)`", text)


def unknown_tests():
    known = set()
    for source in (TREE / "tests").rglob("*.cpp"):
        for suite, name in re.findall(r"^TEST(?:_F|_P)?\((\w+),\s*(\w+)\)", source.read_text(encoding="utf-8"), re.M):
            known.add(f"{suite}.{name}")
    named = [span for span in code_spans(text_of("docs/guarantees.md")) if re.fullmatch(r"[A-Z]\w+\.[A-Z]\w+", span)]
    return [f"docs/guarantees.md: there is no test {name}" for name in named if name not in known]


def seam_operations():
    found = set()
    for header in (TREE / "platform").glob("*.h"):
        code = re.sub(r"//.*", "", header.read_text(encoding="utf-8"))
        found |= set(re.findall(r"^(?:inline\s+)?[\w:]+[\w\s*]*?[\s*](\w+)\([^;{]*\)\s*(?:;|\{)", code, re.M))
    return {name for name in found if re.match(r"(CF|FS|IO|LS|MP|PB|Platform|New|Dispose|Mem|Convert|Incre|Decre|mach_)", name)}


def provider_page():
    listed = {span for row in re.findall(r"^\| `\w+\.h` \|.*", text_of("docs/provider.md"), re.M)
              for span in code_spans(row) if re.fullmatch(r"\w+", span)}
    operations = seam_operations()
    return ([f"docs/provider.md lacks {name}" for name in sorted(operations - listed)] +
            [f"docs/provider.md lists {name}, which is not in platform/" for name in sorted(listed - operations)])


def porting_guide():
    spans = set(re.findall(r"\w+", " ".join(code_spans(text_of("docs/porting.md")))))
    problems = []
    for name, (_, comment) in Header(str(TREE / "include/TavPort.h")).functions.items():
        call = re.search(r"@windows (\w+)", comment or "")
        if call and call.group(1) != "none" and call.group(1) not in spans:
            problems.append(f"docs/porting.md does not know {call.group(1)} ({name})")
    return problems


def versions():
    version = re.search(r"^project\(TavPort VERSION ([\d.]+)", text_of("CMakeLists.txt"), re.M).group(1)
    major = version.split(".", maxsplit=1)[0]
    problems = []
    for name, pattern, expected in (("packaging/changelog", r"\Atavport \((.*?)\)", version),
                                    ("CHANGELOG.md", r"^## (\S+)", version),
                                    ("packaging/tav.1", r'^\.TH .*"TavPort (\S+)"', major),
                                    ("README.md", r"find_package\(TavPort (\S+?)\)", major)):
        written = re.search(pattern, text_of(name), re.M)
        if not written or written.group(1) != expected:
            problems.append(f"{name}: version {written and written.group(1)}, but CMakeLists.txt has {version}")
    return problems


found = unknown_tests() + provider_page() + porting_guide() + versions()
print("\n".join(found) or "the pages are true")
sys.exit(bool(found))
