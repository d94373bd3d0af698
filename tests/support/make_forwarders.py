#!/usr/bin/env python3
"""Writes the forwarding layer of the seam: for every operation declared in platform/*.h a function that the linker puts
in its place (--wrap), which counts the call, fails it where the test wants that, and else passes it on.

usage: make_forwarders.py PLATFORM_FOLDER OUTPUT.cpp OUTPUT.rsp
"""
import pathlib
import re
import sys

# Operations that cannot fail by their contract are counted and never failed: those whose result is one of these types ...
PLAIN_RESULTS = {"void", "CFIndex", "CFComparisonResult", "CFTypeID", "uint32_t", "UniChar", "double"}
# ... and these, whose result is an answer and no status.
PLAIN_OPERATIONS = {"CFBooleanGetValue", "IOObjectConformsTo", "mach_task_self", "MemError", "IncrementAtomic", "DecrementAtomic"}
# What memory is: the C library's own entry points, forwarded by faults.cpp itself.
MEMORY = ["malloc", "calloc", "realloc", "free"]


def without_comments(text):
    text = re.sub(r"/\*.*?\*/", " ", text, flags=re.S)
    text = re.sub(r"//[^\n]*", " ", text)
    return re.sub(r"^\s*#.*$", " ", text, flags=re.M)


def declarations(text):
    """Statements directly inside extern "C" blocks."""
    for start in re.finditer(r'extern\s+"C"\s*\{', text):
        depth, statement = 1, ""
        for character in text[start.end():]:
            depth += {"{": 1, "}": -1}.get(character, 0)
            if depth == 0:
                break
            if depth == 1 and character == ";":
                yield " ".join(statement.split())
                statement = ""
            elif depth == 1 and character != "}":
                statement += character


def parameters(text):
    """Splits a parameter list at its top-level commas and names each parameter."""
    if text.strip() in ("", "void"):
        return []
    parts, depth = [""], 0
    for character in text:
        depth += {"(": 1, ")": -1}.get(character, 0)
        if character == "," and depth == 0:
            parts.append("")
        else:
            parts[-1] += character
    names = []
    for part in parts:
        pointer = re.search(r"\(\s*\*\s*(\w+)\s*\)", part)
        names.append(pointer.group(1) if pointer else re.search(r"(\w+)\s*(?:\[\w*\])?$", part.strip()).group(1))
    return names


def operations(folder):
    for header in sorted(folder.glob("*.h")):
        for statement in declarations(without_comments(header.read_text())):
            if re.match(r"(using|typedef|struct|enum|constexpr|extern|static_assert)\b", statement):
                continue
            match = re.fullmatch(r"(?:\[\[\w+\]\]\s*)?([\w\s*]+?[\s*])(\w+)\((.*)\)(?: noexcept)?", statement)
            if not match:
                sys.exit(f"{header}: cannot read the declaration: {statement}")
            result, name, arguments = match.group(1).strip(), match.group(2), match.group(3)
            if "..." not in arguments: # nothing can pass on arguments whose number it does not know
                yield name, result, arguments, parameters(arguments)


def main():
    folder, source, options = (pathlib.Path(argument) for argument in sys.argv[1:])
    lines = ["// Made by make_forwarders.py from platform/*.h.", '#include "support/forward.h"', ""]
    lines += [f'#include "platform/{header.name}"' for header in sorted(folder.glob("*.h"))]
    lines += ["", 'extern "C" {']
    names = []
    for name, result, arguments, passed in operations(folder):
        names.append(name)
        fallible = result not in PLAIN_RESULTS and name not in PLAIN_OPERATIONS
        passed_on = "".join(f", {argument}" for argument in passed)
        lines += [
            f"[[gnu::weak]] {result} __real_{name}({arguments});",
            f"{result} __wrap_{name}({arguments}) {{",
            f'    static constexpr faults::Operation operation("{name}", {str(fallible).lower()});',
            f"    return faults::Forward(operation, __real_{name}{passed_on});",
            "}",
        ]
    lines += ["}", ""]
    write(source, "\n".join(lines))
    write(options, "".join(f"--wrap={name}\n" for name in names + MEMORY))


def write(path, text):
    if not path.exists() or path.read_text() != text:
        path.write_text(text)


main()
