#!/usr/bin/env python3
"""Every C sample of the README and the pages compiles without a warning, against the framework, and succeeds. A sample
without a main of its own is the body of one.

usage: samples.py SOURCE_TREE FRAMEWORK COMPILER
"""
import pathlib
import re
import subprocess
import sys
import tempfile

SOURCE, FRAMEWORK, COMPILER = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]) / "Versions/A", sys.argv[3]
FLAGS = ["-std=c11", "-Wall", "-Wextra", "-Wpedantic", "-Werror", f"-I{FRAMEWORK}/Headers", f"-Wl,-rpath,{FRAMEWORK}"]


def whole(sample):
    if "int main(" in sample:
        return sample
    return "#include <TavPort.h>\n\nint main(void) {\n" + sample + "return 0;\n}\n"


def check(name, sample, folder):
    source, program = folder / "sample.c", folder / "sample"
    source.write_text(whole(sample), encoding="utf-8")
    for command in ([COMPILER, *FLAGS, source, FRAMEWORK / "TavPort", "-o", program], [program]):
        result = subprocess.run(command, capture_output=True, text=True, check=False)
        if result.returncode != 0:
            sys.exit(f"{name}:\n{sample}\n{result.stdout}{result.stderr}exit status {result.returncode}")


def main():
    count = 0
    with tempfile.TemporaryDirectory(prefix="tavport-test-") as folder:
        for page in [SOURCE / "README.md", *sorted((SOURCE / "docs").glob("*.md"))]:
            for sample in re.findall(r"^```c\n(.*?)^```", page.read_text(encoding="utf-8"), re.DOTALL | re.MULTILINE):
                check(page.relative_to(SOURCE), sample, pathlib.Path(folder))
                count += 1
    if count == 0:
        sys.exit("no sample was found")
    print(f"{count} samples work")


main()
