#!/usr/bin/env python3
"""Every function of the header is described completely, and every section opens with what it is for.

usage: documentation.py HEADER
"""
import re
import sys

from header import Header


def missing_fields(name, parameters, comment):
    if not comment:
        return [f"{name}: no description"]
    fields = {}
    for field, text in re.findall(r"@(\w+)((?:(?!\n \* @|\*/).)*)", comment, re.S):
        fields.setdefault(field, []).append(" ".join(text.replace("\n *", " ").split()))
    problems = []
    names = []
    for text in fields.get("param", []):
        match = re.match(r"((?:\w+,\s*)*(?:\w+|\.\.\.))(?:\s+(.*))?$", text)
        if not match or not match.group(2):
            problems.append(f"{name}: @param {text} says nothing")
        names += re.findall(r"\w+|\.\.\.", match.group(1)) if match else []
    if names != [p for p in parameters if p != "..." or "..." in names]:
        problems.append(f"{name}: @param describes {names}, the declaration has {parameters}")
    for field in ("return", "owner", "threads", "windows"):
        if field == "return" and re.search(rf"\bvoid\s+{name}\(", HEADER.text):
            continue
        if len(fields.get(field, [])) != 1 or not fields[field][0]:
            problems.append(f"{name}: needs one @{field} with a text")
    first = re.sub(r"^/\*\*[\s*]*", "", comment)
    if not first or first.startswith("@"):
        problems.append(f"{name}: does not say what it does")
    return problems


def unopened_sections(text):
    """Sections that declare functions without a comment on what they are for."""
    problems = []
    sections = re.split(r"^/\* ---- (.+?) -+ \*/$", text, flags=re.M)[1:]
    for title, body in zip(sections[::2], sections[1::2]):
        if "/**" in body and not re.match(r"\s*/\*(?!\*)", body):
            problems.append(f"section {title}: does not open with what it is for")
    return problems


HEADER = Header(sys.argv[1])
found = unopened_sections(HEADER.text)
for function, (function_parameters, function_comment) in HEADER.functions.items():
    found += missing_fields(function, function_parameters, function_comment)
print("\n".join(found) or f"{len(HEADER.functions)} functions are described")
sys.exit(bool(found))
