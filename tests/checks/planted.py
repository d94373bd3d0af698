#!/usr/bin/env python3
"""Proves the other checks: a mistake planted in a copy of the tree must be found, and named.

usage: planted.py TREE
"""
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

CHECKS = pathlib.Path(__file__).parent
LOGIC, SEAM, PROVIDER = "vpath/planted.cpp", "platform/planted.h", "platform/linux/planted.cpp"
SECTION = "\n/* ---- Planted ---- */\n"
COMPLETE = """
/* What is planted here. */

/**
 * Counts what is there.
 *
 * @param a, b  the ends; null is allowed.
 * @param c  the unit.
 * @return the number.
 * @owner   nothing to release.
 * @threads any number at the same time.
 * @windows none
 */
int32_t TavPlanted(const TavChar* a, const TavChar* b, uint32_t c);
"""

# check, file, text that is planted there, what the check must say (None: it must pass)
PLANTED = [
    ("includes", LOGIC, '#include "vpath/segments.h"\n#include "TavPort.h"\n#include <cstring>\n', None),
    ("includes", LOGIC, "#include <unistd.h>\n", "unistd.h"),
    ("includes", LOGIC, "#include <sys/stat.h>\n", "sys/stat.h"),
    ("includes", LOGIC, "  #  include <linux/fs.h>\n", "linux/fs.h"),
    ("includes", LOGIC, '#include "platform/linux/errors.h"\n', "platform/linux/errors.h"),
    ("includes", LOGIC, '#include "system/planted.h"\n', "system/planted.h"),
    ("includes", LOGIC, '#include "segments.h"\n', "segments.h"),
    ("includes", LOGIC, "#define NAME <x>\n#include NAME\n", "cannot be checked"),
    ("includes", LOGIC, "#ifdef __linux__\n#endif\n", "__linux__"),
    ("includes", LOGIC, "#if 1 && \\\n    defined(_WIN32)\n#endif\n", "_WIN32"),
    ("includes", LOGIC, "#define _GNU_SOURCE\n", "_GNU_SOURCE"),
    ("includes", LOGIC, "// #include <unistd.h>\n/* #include <fcntl.h> */\n", None),
    ("includes", "text/planted.h", '#include "vpath/segments.h"\n', "vpath/segments.h"),
    ("includes", "paths/planted.cpp", '#include "vpath/segments.h"\n', "vpath/segments.h"),
    ("includes", "copy/planted.cpp", '#include "system/planted.h"\n', "system/planted.h"),
    ("includes", "system/planted.cpp", '#include "copy/linked_list.h"\n', "copy/linked_list.h"),
    ("includes", SEAM, "#include <sys/types.h>\n", "sys/types.h"),
    ("includes", SEAM, '#include "vpath/segments.h"\n', "vpath/segments.h"),
    ("includes", PROVIDER, "#include <unistd.h>\n", None),
    ("includes", PROVIDER, '#include "vpath/segments.h"\n', "vpath/segments.h"),
    ("includes", PROVIDER, "#include <vpath/segments.h>\n", "vpath/segments.h"),
    ("documentation", "include/TavPort.h", COMPLETE, None),
    ("documentation", "include/TavPort.h", COMPLETE.replace(" * @param c  the unit.\n", ""), "@param describes"),
    ("documentation", "include/TavPort.h", COMPLETE.replace("c  the unit.", "c"), "says nothing"),
    ("documentation", "include/TavPort.h", COMPLETE.replace("@param c", "@param d"), "@param describes"),
    ("documentation", "include/TavPort.h", COMPLETE.replace(" * @return the number.\n", ""), "@return"),
    ("documentation", "include/TavPort.h", COMPLETE.replace(" * @owner   nothing to release.\n", ""), "@owner"),
    ("documentation", "include/TavPort.h", COMPLETE.replace("@threads any number at the same time.", "@threads"),
     "@threads"),
    ("documentation", "include/TavPort.h", COMPLETE.replace(" * @windows none\n", ""), "@windows"),
    ("documentation", "include/TavPort.h", COMPLETE.replace(" * Counts what is there.\n *\n", ""), "what it does"),
    ("documentation", "include/TavPort.h", re.sub(r"/\*\*.*?\*/", "", COMPLETE, flags=re.S), "no description"),
    ("documentation", "include/TavPort.h", COMPLETE.replace("/* What is planted here. */", ""), "does not open"),
    ("pages", "docs/planted.md", "Nothing that is checked.\n", None),
    ("pages", "packaging/changelog", "tavport (0.0.1) unstable; urgency=medium\n", "packaging/changelog: version 0.0.1"),
    ("pages", "CHANGELOG.md", "## 0.0.1\n\n## 1.0.0\n", "CHANGELOG.md: version 0.0.1"),
    ("pages", "packaging/tav.1", '.TH TAV 1 2026-11-21 "TavPort 0" "User commands"\n', "packaging/tav.1: version 0"),
    ("pages", "README.md", "find_package(TavPort 0)\n", "README.md: version 0"),
    ("wording", "docs/planted.md", "A special part of the specific kind.\n", None),
    ("wording", "docs/planted.md", "Do as the sp" "ec says.\n", "planted.md:1"),
    ("wording", "docs/planted.md", "See Pa" "rt 4.2.\n", "planted.md:1"),
    ("wording", "text/planted.cpp", "// By the specifi" "cation.\n", "planted.cpp:1"),
    ("faults", "tests/copy/planted_faults.cpp", "int all = sizeof(TavPlanted(0, 0, 1));\n", None),
    ("faults", "tests/copy/planted_faults.cpp", "// TavPlanted(0, 0, 1)\n", "TavPlanted: called by no test"),
    ("faults", "tests/copy/planted_test.cpp", "int all = sizeof(TavPlanted(0, 0, 1));\n", "TavPlanted: called by no test"),
    ("host_calls", "planted.c", "int open(const char*, int, ...);\nint Call(void) { return open(0, 0); }\n", None),
    ("host_calls", "planted.c", "int chroot(const char*);\nint Call(void) { return chroot(0); }\n", "chroot: called"),
]


def run(check, tree):
    targets = [tree]
    if check == "documentation":
        targets = [tree / "include/TavPort.h"]
    elif check == "host_calls":
        targets = [CHECKS.parent / "support/host_calls.txt", tree / "planted.o"]
        subprocess.run(["cc", "-c", tree / "planted.c", "-o", tree / "planted.o"], check=True)
    return subprocess.run([sys.executable, "-B", CHECKS / f"{check}.py", *targets], capture_output=True, text=True)


def plant(tree, name, text):
    path = tree / name
    path.parent.mkdir(parents=True, exist_ok=True)
    if name.endswith("TavPort.h"):
        head, tail = path.read_text().rsplit("\n#ifdef __cplusplus\n}", 1)
        path.write_text(head + SECTION + text + "\n#ifdef __cplusplus\n}" + tail)
    else:
        path.write_text(text)


def main():
    source = pathlib.Path(sys.argv[1])
    problems = []
    with tempfile.TemporaryDirectory() as folder:
        for number, (check, name, text, expected) in enumerate(PLANTED):
            tree = pathlib.Path(folder) / str(number)
            for part in ("include", "text", "vpath", "system", "paths", "copy", "platform"):
                if (source / part).is_dir():
                    shutil.copytree(source / part, tree / part)
            if check == "pages":
                for part in ("docs", "tests", "packaging"):
                    shutil.copytree(source / part, tree / part)
                for part in ("CMakeLists.txt", "CHANGELOG.md", "README.md"):
                    shutil.copy(source / part, tree / part)
            if check == "faults":  # a library with one function
                plant(tree, "include/TavPort.h", COMPLETE)
                plant(tree, "include/TavPort.exports", "TavPlanted\n")
            plant(tree, name, text)
            result = run(check, tree)
            found = result.returncode == 1 and expected is not None and expected in result.stdout
            if not (found or (expected is None and result.returncode == 0)):
                problems.append(f"{check}, {text!r} in {name}: expected {expected!r}, exit {result.returncode}: "
                                f"{result.stdout[:300]}{result.stderr[-300:]}")
            shutil.rmtree(tree)
    print("\n".join(problems) or f"{len(PLANTED)} plants told apart")
    sys.exit(bool(problems))


main()
