#!/usr/bin/env python3
"""Runs the benchmark program on each level of the library, prints one table and draws a chart.

Usage: report.py BENCH PINNED_DIR TARGETS OUT_DIR [FILTER]

Times are in copies: the time of a memcpy of width x height bytes in the same process. Each figure is the shortest of some
repetitions, which are interleaved at random, since the noise of a machine only ever adds.
"""
import json
import os
import re
import subprocess
import sys

import chart

LEVELS = ("v1", "v3", "v4")
REPETITIONS = 5


def run(bench, library_dir, out_file, pattern):
    """Runs one process on one level; returns {(function, case, size, threads): shortest time in ns} and facts."""
    command = [bench, f"--benchmark_filter={pattern}", "--benchmark_min_time=0.02",
               f"--benchmark_repetitions={REPETITIONS}", "--benchmark_enable_random_interleaving=true",
               f"--benchmark_out={out_file}", "--benchmark_out_format=json"]
    env = dict(os.environ, LD_LIBRARY_PATH=library_dir)
    subprocess.run(command, env=env, check=True, stdout=subprocess.DEVNULL)
    times = {}
    with open(out_file) as f:
        data = json.load(f)
    for entry in data["benchmarks"]:
        if entry["run_type"] != "iteration":
            continue
        key = tuple(entry["name"].removesuffix("/real_time").split("|"))
        scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[entry["time_unit"]]
        times[key] = min(times.get(key, float("inf")), entry["real_time"] * scale)
    facts = {key.removeprefix("fact "): text for key, text in data["context"].items() if key.startswith("fact ")}
    return times, facts


def read_targets(path):
    targets = {}
    with open(path) as f:
        for line in f:
            if line.startswith("#") or line.startswith("function\t"):
                continue
            function, case, size, copies = line.rstrip("\n").split("\t")
            targets[function, case, size] = float(copies)
    return targets


def number(value, digits=1):
    return "-" if value is None else f"{value:.{digits}f}"


def main():
    bench, pinned, targets_file, out_dir = sys.argv[1:5]
    pattern = sys.argv[5] if len(sys.argv) > 5 else ""
    # The copy is the unit, so it is measured whatever the filter is.
    pattern = f"^copy\\||{pattern}" if pattern else "."
    os.makedirs(out_dir, exist_ok=True)
    times = {}
    for level in LEVELS:
        has_level = level == "v1" or re.search(r"\bavx512bw\b" if level == "v4" else r"\bavx2\b", open("/proc/cpuinfo").read())
        if not has_level:
            print(f"this machine has no level {level}", file=sys.stderr)
            continue
        print(f"measuring level {level} ...", file=sys.stderr)
        times[level], facts = run(bench, os.path.join(pinned, level), os.path.join(out_dir, f"{level}.json"), pattern)
    targets = read_targets(targets_file)
    best = list(times)[-1]

    header = f"{'function':44} {'case':40} {'size':10} " + " ".join(f"{level:>8}" for level in times)
    lines = [header + f" {best + '/v1':>7} {'threads':>8} {'target':>8}"]
    rows = []
    missed = 0
    for function, case, size, threads in sorted(times[best]):
        if threads != "one" or function == "copy":
            continue
        copies = {level: t[function, case, size, "one"] / t["copy", "", size, "one"] for level, t in times.items()}
        target = targets.get((function, case, size))
        all_threads = times[best].get((function, case, size, "all"))
        speedup = times[best][function, case, size, "one"] / all_threads if all_threads else None
        late = target is not None and copies[best] >= target
        missed += late
        rows.append((function, case, size, copies[best], target))
        lines.append(f"{function:44} {case[:40]:40} {size:10} " + " ".join(f"{c:8.1f}" for c in copies.values()) +
                     f" {copies['v1'] / copies[best]:7.1f} {number(speedup):>8} {number(target):>8}" +
                     ("  MISSED" if late else ""))
    with open(os.path.join(out_dir, "table.txt"), "w") as f:
        f.write("\n".join(lines) + "\n")
    print("\n".join(lines))
    if chart.draw(rows, best, os.path.join(out_dir, "chart.svg")):
        print(f"table.txt and chart.svg are in {out_dir}")
    measured = {function for function, *_ in times[best]}
    for function, fact in facts.items():
        if function in measured:
            print(f"{function}: {fact}")
    for size in ("640x480", "1920x1080"):
        print(f"one copy at {size}: {times[best]['copy', '', size, 'one'] / 1000:.1f} us")
    print(f"{missed} targets missed" if missed else "no target missed")


main()
