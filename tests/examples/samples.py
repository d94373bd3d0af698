#!/usr/bin/env python3
"""Every C sample of the README, the pages and the header's sections compiles without a warning, against the framework,
and succeeds. A sample without a main of its own is the body of one.

usage: samples.py SOURCE_TREE FRAMEWORK COMPILER
"""
import pathlib
import re
import subprocess
import sys
import tempfile

SOURCE, FRAMEWORK, COMPILER = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]) / "Versions/A", sys.argv[3]
FLAGS = ["-std=c11", "-Wall", "-Wextra", "-Wpedantic", "-Werror", "-Wno-unused-variable", f"-I{FRAMEWORK}/Headers",
         f"-Wl,-rpath,{FRAMEWORK}"]
INCLUDES = "#include <TavPort.h>\n#include <stdio.h>\n\n"


def whole(sample):
    if "int main(" not in sample:
        sample = "int main(void) {\n" + sample + "return 0;\n}\n"
    return sample if "#include" in sample else INCLUDES + sample


def check(name, sample, folder):
    source, program = folder / "sample.c", folder / "sample"
    source.write_text(whole(sample), encoding="utf-8")
    for command in ([COMPILER, *FLAGS, source, FRAMEWORK / "TavPort", "-o", program], [program]):
        result = subprocess.run(command, capture_output=True, text=True, check=False)
        if result.returncode != 0:
            sys.exit(f"{name}:\n{sample}\n{result.stdout}{result.stderr}exit status {result.returncode}")


def page_samples(page):
    return re.findall(r"^```c\n(.*?)^```", page.read_text(encoding="utf-8"), re.DOTALL | re.MULTILINE)


def section_samples(header):
    """The lines that stand further in, in the comments that open the header's sections."""
    openings = re.findall(r"^/\* ---- [^\n]*\n\n?(/\*\n.*?\*/)", header.read_text(encoding="utf-8"),
                          re.DOTALL | re.MULTILINE)
    for opening in openings:
        for run in re.findall(r"(?:^ \*     .*\n)+", opening, re.MULTILINE):
            yield re.sub(r"^ \*     ", "", run, flags=re.MULTILINE)


def main():
    header = SOURCE / "include/TavPort.h"
    found = [(header, sample) for sample in section_samples(header)]
    of_header = len(found)
    for page in [SOURCE / "README.md", *sorted((SOURCE / "docs").glob("*.md"))]:
        found += [(page, sample) for sample in page_samples(page)]
    if not 0 < of_header < len(found):
        sys.exit("no sample was found in the header, or none in the pages")
    with tempfile.TemporaryDirectory(prefix="tavport-test-") as folder:
        for place, sample in found:
            check(place.relative_to(SOURCE), sample, pathlib.Path(folder))
    print(f"{len(found)} samples work, {of_header} of them the header's")


main()
