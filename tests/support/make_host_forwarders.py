#!/usr/bin/env python3
"""Writes the forwarding layer of the system: for every function in host_calls.txt one that the linker puts in its place
(--wrap), which asks the test whether the call is to fail and else passes it on; and the table of raw system calls.

usage: make_host_forwarders.py LIST POINTER_SIZE OUTPUT.cpp OUTPUT.rsp
"""
import pathlib
import re
import sys

HEAD = """// Made by make_host_forwarders.py from host_calls.txt.
#include "support/host_forward.h"

#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <locale.h>
#include <poll.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/vfs.h>

using host_faults::Entry;
using host_faults::Forward;
"""


def rows(path):
    for line in path.read_text().splitlines():
        if line and not line.startswith("#"):
            subject, errors, remarks = line.split(" :")
            yield subject, errors.split(), remarks.split()


def parameter_names(arguments):
    parts = [] if arguments == "void" else re.split(r",\s*(?![^(]*\))", arguments)
    return [(re.search(r"\(\*(\w+)\)", part) or re.search(r"(\w+)$", part)).group(1) for part in parts]


def entry(name, errors, remarks):
    short = next((remark[6:] for remark in remarks if remark.startswith("short=")), "0")
    way = "kCode" if "code" in remarks else "kNegative" if "negative" in remarks else "kErrno"
    others = [error for error in errors if error != "EINTR"]
    return [f"static constexpr int errorsOf_{name}[] = {{{', '.join(others + ['0'])}}};",
            f'static constexpr Entry entry_{name} = {{"{name}", errorsOf_{name}, {str("EINTR" in errors).lower()}, {short}, '
            f'{str("done" in remarks).lower()}, Entry::Way::{way}}};']


def main():
    source_list, pointer_size, source, options = sys.argv[1:]
    lines, table, symbols = [HEAD], [], ["syscall"]
    for subject, errors, remarks in rows(pathlib.Path(source_list)):
        if subject.startswith("call "):
            _, name, number = subject.split()
            guard = number.startswith("SYS_")
            wrap = lambda text: [f"#ifdef {number}", *text, "#endif"] if guard else text
            lines += wrap(entry(name, errors, remarks))
            table += wrap([f"    if (number == {number}) return &entry_{name};"])
            continue
        result, name, arguments = re.fullmatch(r"(.+?[\s*])(\w+)\((.*)\)", subject).groups()
        special = next((remark[3:] for remark in remarks if remark.startswith("32=")), name)
        symbol = special if pointer_size == "4" else name
        symbols.append(symbol)
        passed = "".join(", " + argument for argument in parameter_names(arguments))
        arguments = "" if arguments == "void" else arguments
        # The names in C++ are others, so that the declarations in the system's headers are no obstacle.
        lines += entry(name, errors, remarks) + [
            'extern "C" {',
            f'{result} Real_{name}({arguments}) __asm__("__real_{symbol}");',
            f'{result} Wrap_{name}({arguments}) __asm__("__wrap_{symbol}");',
            f"{result} Wrap_{name}({arguments}) {{ return Forward(entry_{name}, Real_{name}{passed}); }}",
            "}",
        ]
    lines += ["", "const Entry* host_faults::EntryOf(long number) {", *table, "    return nullptr;", "}", ""]
    write(source, "\n".join(lines))
    write(options, "".join(f"--wrap={symbol}\n" for symbol in symbols))


def write(name, text):
    path = pathlib.Path(name)
    if not path.exists() or path.read_text() != text:
        path.write_text(text)


main()
