#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Prints how measured benchmarks stand to their targets.

Reads the JSON results that bench/run leaves, takes the median of each benchmark's repetitions and
prints a table. A target is one object of targets.json:

  what      what is measured, in words
  subject   the benchmark's name
  against   the benchmark it is compared with; without one the value itself is held to the target
  counter   compare this user counter; without one the CPU time, of one item where items are counted
  atMost    the greatest ratio (or value, in nanoseconds or in the counter's unit) that meets it
  why       why it is missed, where it is; printed below the table, with a miss only
  optional  whether the benchmark may be absent or unable to run: it needs rights or a kernel that
            not every machine has

A benchmark whose error begins with "skipped: " cannot run on this machine; that is no error.

Exit status: 0, met or missed; 1 when a benchmark that a target names reported an error or is not
among the results.
"""

import argparse
import json
import pathlib
import re
import statistics
import sys

# How the message of a benchmark begins that cannot run on this machine.
SKIPPED = "skipped: "
NANOSECONDS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


def read_runs(folder):
    """All repetitions by benchmark name, and the names of those that reported an error. What is
    skipped is neither."""
    runs, broken, skipped = {}, set(), {}
    for path in sorted(folder.glob("*.json")):
        try:
            benchmarks = json.loads(path.read_text())["benchmarks"]
        except (ValueError, KeyError):
            print(f"report: {path.name} holds no results", file=sys.stderr)
            broken.add(path.name)
            continue
        for run in benchmarks:
            if run.get("run_type") == "aggregate":
                continue
            if run.get("error_occurred"):
                message = run.get("error_message", "")
                if message.startswith(SKIPPED):
                    skipped.setdefault(message, set()).add(run["run_name"])
                    continue
                broken.add(run["run_name"])
                print(f"report: {run['run_name']}: {message}", file=sys.stderr)
            else:
                runs.setdefault(run["run_name"], []).append(run)
    for message, names in skipped.items():
        print(f"report: {len(names)} benchmarks {message}", file=sys.stderr)
    return runs, broken


def median(runs, counter):
    if counter is not None:
        return statistics.median(run[counter] for run in runs)
    if all("items_per_second" in run for run in runs):
        return statistics.median(1e9 / run["items_per_second"] for run in runs)
    return statistics.median(run["cpu_time"] * NANOSECONDS[run["time_unit"]] for run in runs)


def text(value):
    return f"{value:,.0f}" if value >= 1000 else f"{value:.3g}"


def row_of(target, runs):
    counter = target.get("counter")
    unit = "" if counter is not None else " ns"
    measured = median(runs[target["subject"]], counter)
    against = target.get("against")
    value, other = measured, "-"
    ratio = text(measured) + unit
    limit = text(target["atMost"]) + unit
    if against is not None:
        base = median(runs[against], counter)
        value = measured / base
        other = f"{against.split('/')[0]}, {text(base)}{unit}"
        ratio, limit = f"{value:.2f}", f"{target['atMost']:.2f}"
    verdict = "met"
    if value > target["atMost"]:
        verdict = f"missed by {100 * (value / target['atMost'] - 1):.0f} %"
    return [target["what"], text(measured) + unit, other, ratio, limit, verdict]


def print_table(rows):
    head = ["what", "measured", "against", "ratio", "at most", ""]
    widths = [max(len(row[i]) for row in [head, *rows]) for i in range(len(head))]
    for row in [head, ["-" * width for width in widths], *rows]:
        print("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip())


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--targets", type=pathlib.Path, required=True)
    parser.add_argument("--filter", default=".", help="targets whose benchmarks match it")
    parser.add_argument("results", type=pathlib.Path)
    options = parser.parse_args()

    runs, broken = read_runs(options.results)
    wanted = re.compile(options.filter)
    rows, reasons = [], []
    for target in json.loads(options.targets.read_text()):
        names = [target["subject"], *([target["against"]] if "against" in target else [])]
        if not all(wanted.search(name) for name in names):
            continue
        missing = [name for name in names if name not in runs]
        if missing:
            print(f"report: not measured: {', '.join(missing)}", file=sys.stderr)
            if target.get("optional"):
                broken.difference_update(missing)
            else:
                broken.update(missing)
            continue
        rows.append(row_of(target, runs))
        if rows[-1][-1] != "met" and "why" in target:
            reasons.append(f"missed: {target['what']}: {target['why']}")

    repetitions = max((len(each) for each in runs.values()), default=0)
    print(f"Medians of {repetitions} repetitions; a time is CPU time, of one item.\n")
    print_table(rows)
    if reasons:
        print("", *reasons, sep="\n")
    missed = sum(row[-1] != "met" for row in rows)
    print(f"\n{len(rows) - missed} of {len(rows)} targets met")
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main())
