"""The goals of the library, and how far it is from them. As a program, runs just what they compare: see --help."""

import argparse
import functools
import glob
import json
import math
import os
import re
import shutil
import subprocess
import sys
from typing import NamedTuple, Optional, Tuple


class Goal(NamedTuple):
    """The figure of `ours` shall be at most `goal` times that of `reference`, both in one run."""

    name: str
    ours: str  # names of benchmarks
    reference: str
    goal: float
    figure: str = "time"  # what of the benchmarks is compared
    small: Optional[Tuple[str, str]] = None  # what in the names to replace, for the counting of instructions


OURS = "project_metadata"
GOALS = [
    Goal("readFromFile, destruction included", f"read/reference/{OURS}", "read/reference/libxml2_text_reader",
         1.0, small=("reference", "10000")),
    Goal("readFromFile against pugixml", f"read/reference/{OURS}", "read/reference/pugixml_plain_tree",
         0.7, small=("reference", "10000")),
    Goal("readFromFile, a document type", f"read/shared_mime_info/{OURS}", "read/shared_mime_info/libxml2_text_reader",
         1.6, small=("shared_mime_info", "shared_mime_info")),
    Goal("readFromFile, namespaces", f"read/gir_gio/{OURS}", "read/gir_gio/libxml2_text_reader",
         1.6, small=("gir_gio", "gir_gio")),
    Goal("writeToFile", f"write/reference/{OURS}", "write/reference/libxml2_text_writer",
         1.15, small=("reference", "10000")),
    Goal("memory of a tree", f"memory/reference/{OURS}", "memory/reference/libxml2_plain_tree", 0.6, figure="held"),
    Goal("operator< of paths", f"less/100/{OURS}", "less/100/texts", 1 / 8, small=("100", "100")),
    Goal("operator< of paths, allocations", f"less/100/{OURS}", "less/100/texts", 0, figure="allocations"),
    Goal("copyMetadata, 200,000 paths", f"copy/200000/{OURS}", "copy/200000/texts",
         1 / 6, small=("200000", "20000")),
    Goal("copyMetadata, 200,000 against 20,000 paths", f"copy/200000/{OURS}", f"copy/20000/{OURS}",
         13, small=("00/", "0/")),
    Goal("copyMetadata, 2,000,000 against 200,000 paths", f"copy/2000000/{OURS}", f"copy/200000/{OURS}",
         13, small=("00/", "0/")),
    Goal("put", f"put/50000/{OURS}", "put/50000/map", 3, small=("50000", "50000")),
    *(Goal(f"export, {store}", f"export_{store}/100000/{OURS}", f"export_{store}/100000/{reference}", goal,
           figure="processor", small=("100000", "10000"))
      for store, reference, goal in [("monolithic", "read_and_write", 2.5), ("fixedPath", "read_and_write", 2),
                                     ("sqlite", "select_and_write", 3)]),
    *(Goal(f"command export, {store}", f"export_{store}/100000/command", f"export_{store}/100000/{OURS}", 1.2,
           figure="processor", small=("100000", "10000")) for store in ("monolithic", "fixedPath", "sqlite")),
    *(Goal(f"command {what}, {store}", f"command_{what}_{store}/100000/{OURS}", reference.format(store), goal,
           figure="processor", small=("100000", "10000"))
      for what, reference, goal in [("find", "command_find/100000/grep", 3), ("scan", "command_scan/100000/git_status", 3),
                                    ("report", "command_find/100000/grep", 3),
                                    ("move", f"command_set_{{}}/100000/{OURS}", 1.5)]
      for store in ("monolithic", "fixedPath", "sqlite")),
    Goal("full read, sqlite", f"readAll_sqlite/100000/{OURS}", "readAll_sqlite/100000/select", 4,
         figure="processor", small=("100000", "10000")),
    Goal("full read, fixedPath", f"readAll_fixedPath/100000/{OURS}", "readAll_fixedPath/100000/text_reader", 1.5,
         figure="processor", small=("100000", "10000")),
    Goal("first write, fixedPath", f"firstWrite_fixedPath/100000/{OURS}", "firstWrite_fixedPath/100000/tar",
         2, small=("100000", "10000")),
    *(Goal(f"{what}, {store}, 1,000,000 against 1,000 nodes", f"{name}_{store}/1000000/{OURS}",
           f"{name}_{store}/1000/{OURS}", goal, small=("1000000", "100000"))
      for what, name in [("open", "open"), ("one change", "change")]
      for store, goal in [("fixedPath", 1.5), ("monolithic", 1300), ("sqlite", 1.5)]),
    *(Goal(f"{what}, {store}, 1,000,000 against 100,000 nodes", f"{name}_{store}/1000000/{OURS}",
           f"{name}_{store}/100000/{OURS}", 13, figure="processor", small=("0000/", "000/"))
      for what, name in [("full read", "readAll"), ("export", "export")]
      for store in ("fixedPath", "monolithic", "sqlite")),
    *(Goal(f"memory of 1,000,000 nodes, {store}", f"memory_{store}/1000000/{OURS}",
           f"memory_{store}/1000000/one_kilobyte", 1, figure="peak") for store in ("fixedPath", "monolithic", "sqlite")),
]
UNITS = {"time": "ms", "processor": "ms", "held": "bytes", "peak": "bytes", "allocations": "allocations"}


def read_figures(raw_file):
    """The figures of Google Benchmark's output: {name: {figure: value}}, the least of all repetitions each. And
    "iterations", of all repetitions together."""
    with open(raw_file, encoding="utf-8") as stream:
        entries = json.load(stream)["benchmarks"]
    figures = {}
    for entry in entries:
        if entry.get("error_occurred"):
            sys.exit(f"{entry['name']}: {entry['error_message']}")
        if entry["run_type"] != "iteration":
            continue
        found = figures.setdefault("/".join(entry["name"].split("/")[:3]), {})
        values = {"time": entry["real_time"], "processor": entry["processor_ms"]}
        values.update({counter: entry[counter] for counter in ("held", "peak", "allocations") if counter in entry})
        for figure, value in values.items():
            found[figure] = min(value, found.get(figure, math.inf))
        found["iterations"] = found.get("iterations", 0) + entry["iterations"]
    return figures


def run(program, folder, names, prefix=(), options=()):
    """The figures of these benchmarks, with the program run in the folder, with `options`, by the command `prefix`."""
    raw_file = os.path.join(folder, "goals.json")
    names = "|".join(map(re.escape, sorted(names)))
    subprocess.run([*prefix, program, f"--benchmark_filter=^({names})/iterations", f"--benchmark_out={raw_file}",
                    "--benchmark_out_format=json", *options], cwd=folder, stdout=sys.stderr, check=True)
    return read_figures(raw_file)


@functools.cache
def count_instructions(program, folder, name):
    """The instructions of one iteration of a benchmark, with those of the programs that it starts for it. Leaves the
    profiles in a folder of their own."""
    folder = os.path.join(folder, f"callgrind.{name.replace('/', '.')}")
    shutil.rmtree(folder, ignore_errors=True)
    os.makedirs(folder)
    figures = run(program, folder, [name],
                  ["valgrind", "--tool=callgrind", "--quiet", "--instr-atstart=no", "--collect-atstart=no"],
                  ["--benchmark_repetitions=1"])
    total = 0
    for profile in glob.glob(os.path.join(glob.escape(folder), "callgrind.out.*")):
        with open(profile, encoding="utf-8") as stream:
            total += int(re.search(r"^totals: (\d+)", stream.read(), re.MULTILINE).group(1))
    return total // figures[name]["iterations"]


def compare(ours, reference):
    return {"ours": rounded(ours), "reference": rounded(reference), "ratio": rounded(ours / reference)}


def rounded(value):
    """Counts exactly, measured values to four digits."""
    return int(value) if float(value).is_integer() else float(f"{value:.4g}")


def evaluate(goal, figures, figure=None):
    """How far the goal is reached, in terms of `figure` instead of its own if there is one."""
    figure = figure or goal.figure
    result = compare(figures[goal.ours][figure], figures[goal.reference][figure])
    return {"name": goal.name, **result, "goal": rounded(goal.goal), "unit": UNITS[figure]}


def evaluate_instructions(goal, program, folder):
    ours, reference = (count_instructions(program, folder, name.replace(*goal.small))
                       for name in (goal.ours, goal.reference))
    return compare(ours, reference)


def print_times(goals, program, folder):
    figures = run(program, folder, {name for goal in goals for name in (goal.ours, goal.reference)})
    for goal in goals:
        result = evaluate(goal, figures)
        line = f"{readable(result)}, goal {result['goal']}"
        if goal.figure == "time":
            line += f", {evaluate(goal, figures, 'processor')['ratio']:.3f} in processor time"
        print(line + ("" if result["ratio"] <= goal.goal else ": MISSED"))


def print_instructions(goals, program, folder):
    results = {}
    for goal in (goal for goal in goals if goal.small):
        results[goal.name] = evaluate_instructions(goal, program, folder)
        print(readable({"name": goal.name, "unit": "instructions", **results[goal.name]}), flush=True)
    if goals == GOALS:
        with open(os.path.join(folder, "instructions.json"), "w", encoding="utf-8") as stream:
            json.dump(results, stream, indent=1)


def readable(result):
    return "{name:46}{ours:14,} /{reference:14,} {unit:12} = {ratio:.3f}".format(**result)


def main():
    parser = argparse.ArgumentParser(description="How far the library is from its goals.")
    parser.add_argument("--instructions", action="store_true",
                        help="count instructions, on smaller inputs, instead of taking times")
    parser.add_argument("program", help="the built library_benchmark")
    parser.add_argument("folder",
                        help="where raw figures, callgrind's profiles and, for all goals, instructions.json go")
    parser.add_argument("word", nargs="*", help="only goals whose names contain one of these")
    arguments = parser.parse_args()
    program, folder = os.path.abspath(arguments.program), os.path.abspath(arguments.folder)
    os.makedirs(folder, exist_ok=True)
    goals = [goal for goal in GOALS if not arguments.word or any(word in goal.name for word in arguments.word)]
    (print_instructions if arguments.instructions else print_times)(goals, program, folder)


if __name__ == "__main__":
    main()
