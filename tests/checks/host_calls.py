#!/usr/bin/env python3
"""Every function of the host that the provider calls and that can fail is in the list of those that the tests fail.

usage: host_calls.py LIST OBJECT ...
"""
import pathlib
import re
import subprocess
import sys

# What cannot fail, or fails only where memory does, which the faults at the platform's operations cover.
CANNOT_FAIL = re.compile(r"""
    _Z.* | _GLOBAL_OFFSET_TABLE_ | _Unwind_\w+ | __\w*(cxa|stack_chk|gxx|dso|tls|errno|libc|assert|asan|ubsan|tsan|cpu)\w*
    | bcmp | mem(chr|cmp|cpy|move|set) | str\w+ | __(mem|str|f?printf|snprintf|vsnprintf)\w*_chk | snprintf | to(lower|upper)
    | __gcov_\w+ | malloc | aligned_alloc | calloc | realloc | free | mmap(64)? | munmap | (frexp|mktime|gmtime_r)\w* | __(mktime|gmtime|clock_gettime|localtime)\w*
    | __\w+[dt]i[234] # arithmetic of the compiler, on hosts of 32 bits
    | clock_gettime | get(pid|tid|euid|egid) | getrlimit\w*
    | fclose | closedir | dlclose | dladdr1 | freelocale | uselocale
    | pthread_(atfork|join|tryjoin_np|mutex_\w+|setspecific|sigmask|attr_(destroy|getstacksize))
    | sig(action|addset|emptyset|fillset)
    | u_\w+ | ucnv_\w+ | unorm2_\w+ | udev_(unref|list_\w+|device_(get|unref)\w*)
    | mnt_(free|unref|fs|table_(next|set))_?\w*
    """, re.X)


def listed(path):
    text = path.read_text()
    names = set(re.findall(r"^(?!call |#)[^(\n]*?(\w+)\(", text, flags=re.M)) | set(re.findall(r"\b32=(\w+)", text))
    return names | {"syscall"}


def main():
    known = listed(pathlib.Path(sys.argv[1]))
    objects = [name for argument in sys.argv[2:] for name in argument.split(";")] # CMake's own separator
    output = subprocess.run(["readelf", "-W", "-s", *objects], check=True, capture_output=True, text=True).stdout
    defined, wanted = set(), set()
    for line in output.splitlines():
        fields = line.split()
        if len(fields) == 8 and fields[4] in ("GLOBAL", "WEAK"):
            (wanted if fields[6] == "UND" else defined).add(fields[7])
    missing = [name for name in sorted(wanted - defined - known) if not CANNOT_FAIL.fullmatch(name)]
    print("\n".join(f"{name}: called by the provider, not in the list" for name in missing)
          or f"{len(wanted & known)} functions of the host can fail and are listed")
    sys.exit(bool(missing))


main()
