#!/usr/bin/env python3
"""Measures every row of rows.toml against its peers in the same run and says how far ahead or behind it is.

usage: report.py FOLDER_OF_PROGRAMS OUTPUT_FOLDER [--only REGEX] [--repetitions N]

A row's programs interleave its own measurement and its peers' at random; the medians of the repetitions are compared.
A row that scatters by more than 15 % is measured again, at most twice and within five minutes. Leaves report.json,
report.md and report.svg. The rows of copies take some gigabytes and a million files in /var/tmp until the end.
"""
import argparse
import json
import math
import os
import pathlib
import platform
import re
import statistics
import subprocess
import sys
import tempfile
import time
import tomllib

SCATTER = 0.15
PATIENCE = 300  # seconds for a row
SETTINGS = r"(/iterations:[0-9]+)?(/repeats:[0-9]+)?(/(real|manual)_time)?"  # what follows a benchmark's name


def measure(program, names, repetitions, counter=None):
    """The times (or a counter) of each named benchmark of a program, one for each repetition."""
    pattern = "^(" + "|".join(re.sub(r"([.+*?()])", r"\\\1", name) for name in names) + ")" + SETTINGS + "$"
    command = [program, f"--benchmark_filter={pattern}", "--benchmark_format=json",
               f"--benchmark_repetitions={repetitions}", "--benchmark_min_time=0.05",
               "--benchmark_enable_random_interleaving=true"]
    output = subprocess.run(command, capture_output=True, text=True, check=True).stdout
    samples = {name: [] for name in names}
    for run in json.loads(output)["benchmarks"]:
        if run["run_type"] != "iteration":
            continue
        name = re.sub(SETTINGS + "$", "", run["run_name"])
        if run.get("error_occurred"):
            sys.exit(f"{program}: {name}: {run['error_message']}")
        unit = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[run["time_unit"]]
        # Of work that one thread does without waiting, the time that it really ran.
        taken = run["real_time" if run["name"].endswith("_time") else "cpu_time"] * unit
        samples[name].append(run[counter] if counter else taken)
    missing = [name for name, times in samples.items() if not times]
    if missing:
        sys.exit(f"{program} has no row {', '.join(missing)}")
    return samples


def scatter(times):
    """Half the distance between the quartiles, as a share of the median."""
    if len(times) < 4:
        return 0.0
    quartiles = statistics.quantiles(times, n=4)
    return (quartiles[2] - quartiles[0]) / 2 / statistics.median(times)


def settled(program, names, repetitions):
    """Measurements whose scatter is small, or the best of a few tries."""
    tries = []
    begin = time.monotonic()
    for _ in range(3):
        samples = measure(program, names, repetitions)
        tries.append((max(scatter(times) for times in samples.values()), samples))
        if tries[-1][0] <= SCATTER or time.monotonic() - begin > PATIENCE:
            break
    return min(tries, key=lambda one: one[0])


def compare(row, programs, repetitions):
    names = [row["ours"], *(peer["row"] for peer in row["peers"])]
    spread, samples = settled(programs / row["program"], names, repetitions)
    medians = {name: statistics.median(times) for name, times in samples.items()}
    ours = medians[row["ours"]]
    return [{"row": row["name"], "peer": peer["name"], "ours_ns": ours, "peer_ns": medians[peer["row"]],
             "ratio": ours / medians[peer["row"]], "target": peer["target"], "scatter": spread}
            for peer in row["peers"]]


def grow(row, programs, repetitions):
    """How the total cost grows: 1 is linear."""
    sizes = row["sizes"]
    names = [row["ours"].format(n=size) for size in sizes]
    _, samples = settled(programs / row["program"], names, repetitions)
    totals = [statistics.median(samples[name]) * (size if row.get("per_item") else 1)
              for name, size in zip(names, sizes)]
    exponent = math.log(totals[-1] / totals[0]) / math.log(sizes[-1] / sizes[0])
    return {"row": row["name"], "sizes": sizes, "ns_per_item": [total / size for total, size in zip(totals, sizes)],
            "exponent": exponent, "target": row["target"]}


def weigh(row, programs):
    """A count that a program gives beside its times, such as bytes for each object."""
    samples = measure(programs / row["program"], [row["ours"]], 1, row["counter"])
    return {"row": row["name"], "value": samples[row["ours"]][0], "unit": row["unit"], "target": row["target"]}


def short(nanoseconds):
    for limit, unit in ((1e9, "s"), (1e6, "ms"), (1e3, "µs")):
        if nanoseconds >= limit:
            return f"{nanoseconds / limit:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def verdict(value, target):
    return "" if value <= target else "behind"


def tables(report):
    lines = ["| row | peer | ours | peer's | ratio | target | |", "|---|---|---:|---:|---:|---:|---|"]
    for one in report["rows"]:
        lines.append(f"| {one['row']} | {one['peer']} | {short(one['ours_ns'])} | {short(one['peer_ns'])} "
                     f"| {one['ratio']:.2f} | {one['target']} | {verdict(one['ratio'], one['target'])} |")
    lines += ["", "| growth | cost for each item | exponent of the total | target | |", "|---|---|---:|---:|---|"]
    for one in report["growth"]:
        costs = ", ".join(f"{size:,}: {short(cost)}" for size, cost in zip(one["sizes"], one["ns_per_item"]))
        lines.append(f"| {one['row']} | {costs} | {one['exponent']:.2f} | {one['target']} "
                     f"| {verdict(one['exponent'], one['target'])} |")
    lines += ["", "| memory | value | target | |", "|---|---:|---:|---|"]
    for one in report["counts"]:
        lines.append(f"| {one['row']} | {one['value']:.4g} {one['unit']} | {one['target']} "
                     f"| {verdict(one['value'], one['target'])} |")
    return "\n".join(lines) + "\n"


def chart(rows):
    """Bars of our time as a share of the peer's on a logarithmic scale; the line is the peer, the tick the target."""
    left, width, height = 430, 460, 18
    low, high = math.log10(0.005), math.log10(5)

    def x(ratio):
        return left + width * (min(max(math.log10(ratio), low), high) - low) / (high - low)

    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{left + width + 60}" height="{height * len(rows) + 50}" '
           'font-family="sans-serif" font-size="11">',
           f'<text x="{left}" y="14">our time / the peer\'s (shorter is faster; red tick: target)</text>']
    for mark in (0.01, 0.1, 0.5, 1, 2):
        out.append(f'<line x1="{x(mark):.1f}" x2="{x(mark):.1f}" y1="32" y2="{height * len(rows) + 38}" '
                   f'stroke="{"#333" if mark == 1 else "#ddd"}"/>'
                   f'<text x="{x(mark):.1f}" y="29" text-anchor="middle" fill="#666">{mark}</text>')
    for index, one in enumerate(rows):
        y = 36 + index * height
        colour = "#4a8f5c" if one["ratio"] <= one["target"] else "#c98a2b"
        label = f"{one['row']} / {one['peer']}".replace("&", "&amp;").replace("<", "&lt;")
        out.append(f'<text x="{left - 8}" y="{y + 12}" text-anchor="end">{label}</text>'
                   f'<rect x="{left}" y="{y + 2}" width="{x(one["ratio"]) - left:.1f}" height="{height - 5}" '
                   f'fill="{colour}"/>'
                   f'<line x1="{x(one["target"]):.1f}" x2="{x(one["target"]):.1f}" y1="{y}" y2="{y + height - 2}" '
                   'stroke="#b00"/>'
                   f'<text x="{x(one["ratio"]) + 4:.1f}" y="{y + 12}">{one["ratio"]:.2f}</text>')
    return "\n".join(out) + "\n</svg>\n"


def machine():
    model = re.search(r"model name\s*: (.*)", pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8"))
    return {"processor": model.group(1) if model else platform.machine(), "processors": os.cpu_count(),
            "kernel": platform.release(), "c_library": " ".join(platform.libc_ver())}


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("programs", type=pathlib.Path)
    parser.add_argument("output", type=pathlib.Path)
    parser.add_argument("--only", default="", help="rows whose name matches this expression")
    parser.add_argument("--repetitions", type=int, default=9)
    arguments = parser.parse_args()
    # What a disk loses slows down what is measured on it next, so all of it goes at the end.
    with tempfile.TemporaryDirectory(prefix="tavport-report-", dir="/var/tmp") as folder:
        os.environ.setdefault("TAVPORT_BENCH_DISK", folder)
        run(arguments)


def run(arguments):
    rows = tomllib.loads(pathlib.Path(__file__).with_name("rows.toml").read_text(encoding="utf-8"))

    def chosen(kind):
        return [row for row in rows.get(kind, []) if re.search(arguments.only, row["name"])]

    report = {"machine": machine(), "rows": [], "growth": [], "counts": []}
    for row in chosen("row"):
        compared = compare(row, arguments.programs, row.get("repetitions", arguments.repetitions))
        for one in compared:
            print(f"{one['row']} / {one['peer']}: {one['ratio']:.2f} {verdict(one['ratio'], one['target'])}", file=sys.stderr)
        report["rows"] += compared
    for row in chosen("growth"):
        print(row["name"], file=sys.stderr)
        report["growth"].append(grow(row, arguments.programs, row.get("repetitions", 3)))
    for row in chosen("count"):
        print(row["name"], file=sys.stderr)
        report["counts"].append(weigh(row, arguments.programs))

    arguments.output.mkdir(parents=True, exist_ok=True)
    (arguments.output / "report.json").write_text(json.dumps(report, indent=1), encoding="utf-8")
    (arguments.output / "report.md").write_text(tables(report), encoding="utf-8")
    (arguments.output / "report.svg").write_text(chart(report["rows"]), encoding="utf-8")
    print(tables(report))


main()
