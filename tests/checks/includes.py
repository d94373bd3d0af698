#!/usr/bin/env python3
"""Who may include what: the logic sees the exported header, the subsystems that it builds on, the seam and the language's
own headers, and asks no macro about the host; the provider never sees the logic.

usage: includes.py TREE
"""
import pathlib
import re
import sys

# Each subsystem beside itself; of copying, the system services use the recursive delete only.
MAY_USE = {
    "text": [],
    "vpath": ["text/"],
    "system": ["text/", "vpath/", "copy/recursive_delete"],
    "paths": ["text/"],
    "copy": ["text/", "paths/"],
}

STANDARD_HEADERS = set("""
    algorithm any array atomic barrier bit bitset cassert cctype cerrno cfenv cfloat charconv chrono cinttypes climits
    clocale cmath compare complex concepts condition_variable coroutine csetjmp csignal cstdarg cstddef cstdint cstdio
    cstdlib cstring ctime cuchar cwchar cwctype deque exception execution filesystem format forward_list fstream
    functional future initializer_list iomanip ios iosfwd iostream istream iterator latch limits list locale map memory
    memory_resource mutex new numbers numeric optional ostream queue random ranges ratio regex scoped_allocator
    semaphore set shared_mutex source_location span sstream stack stdexcept stop_token streambuf string string_view
    system_error thread tuple type_traits typeindex typeinfo unordered_map unordered_set utility valarray variant vector
    version assert.h ctype.h errno.h fenv.h float.h inttypes.h limits.h locale.h math.h setjmp.h signal.h stdarg.h
    stddef.h stdint.h stdio.h stdlib.h string.h time.h uchar.h wchar.h wctype.h
    """.split())

HOST_MACRO = re.compile(r"\b(_WIN32|_WIN64|WIN32|_MSC_VER|__APPLE__|__MACH__|__linux__|__linux|linux|__gnu_linux__|__unix__"
                        r"|__unix|unix|__ANDROID__|__(Free|Net|Open)BSD__|__GLIBC__|__GLIBCXX__|_GNU_SOURCE"
                        r"|_(POSIX|XOPEN|FILE)_\w+|__CYGWIN__)\b")


def lines(path):
    """Numbered preprocessor directives, comments taken away."""
    text = path.read_text(encoding="utf-8")
    text = re.sub(r"/\*.*?\*/", lambda match: "\n" * match.group().count("\n"), text, flags=re.S)
    text = re.sub(r"\\\n", "  ", text)
    for number, line in enumerate(text.splitlines(), 1):
        line = re.sub(r"//.*", "", line)
        if re.match(r"\s*#", line):
            yield number, line


def included(line):
    match = re.match(r'\s*#\s*include\s*(["<])([^">]+)[">]', line)
    return match.groups() if match else (None, None)


def check_logic(path, folder):
    allowed = [f"{folder}/", *MAY_USE[folder]]
    for number, line in lines(path):
        kind, name = included(line)
        if kind == "<" and name not in STANDARD_HEADERS:
            yield f"{path}:{number}: <{name}> is not a header of the language"
        elif kind == '"' and not (name == "TavPort.h" or re.fullmatch(r"platform/\w+\.h", name)
                                  or any(name.startswith(start) for start in allowed)):
            yield f'{path}:{number}: {folder} may not include "{name}"'
        elif kind is None and re.match(r"\s*#\s*include", line):
            yield f"{path}:{number}: an include that cannot be checked"
        elif re.match(r"\s*#\s*(if|ifdef|ifndef|elif|define)\b", line) and HOST_MACRO.search(line):
            yield f"{path}:{number}: asks about the host: {line.strip()}"


def check_seam(path):
    for number, line in lines(path):
        kind, name = included(line)
        if kind == "<" and name not in STANDARD_HEADERS or \
                kind == '"' and not (name == "TavPort.h" or re.fullmatch(r"platform/\w+\.h", name)):
            yield f"{path}:{number}: the seam may not include {name}"


def check_provider(path):
    for number, line in lines(path):
        kind, name = included(line)
        if kind == '"' and not (name == "TavPort.h" or name.startswith("platform/")):
            yield f'{path}:{number}: the provider may not include "{name}"'
        elif kind == "<" and name.split("/")[0] in MAY_USE:
            yield f"{path}:{number}: the provider may not include <{name}>"


def main():
    tree = pathlib.Path(sys.argv[1])
    problems, count = [], 0

    def sources(folder):
        nonlocal count
        found = sorted(path for path in (tree / folder).rglob("*") if path.suffix in (".h", ".cpp", ".inc"))
        count += len(found)
        return found

    for folder in MAY_USE:
        for path in sources(folder):
            problems += check_logic(path, folder)
    for path in sources("platform"):
        problems += check_seam(path) if path.parent.name == "platform" else check_provider(path)
    if count == 0:
        problems.append(f"{tree}: no sources found")
    print("\n".join(problems) or f"{count} files include what they may")
    sys.exit(bool(problems))


main()
