#!/usr/bin/env python3
"""Runs the library's benchmarks, their floors and those of libgit2 in turn, and prints a table.

Each program runs once a round for each workload, one right after the other, so that a busy machine
disturbs all of them alike. Figures are medians over the rounds; ratios are medians of the ratios of
each round. Times are processor time of one thread.
"""

import argparse
import json
import pathlib
import re
import statistics
import subprocess
import sys
import time

# Workload, unit and the goal: how many times the floor it may take at most.
ROWS = [
    ("id of 64 bytes", "hash/64", "ns", 1.47),
    ("id of 1 MiB", "hash/1048576", "µs", 1.02),
    ("ids of blobs of 64 KiB together", "hash/many/65536", "µs", 0.78),
    ("import one by one, 10,000: a file", "import/perfile/10000", "µs", 1.96),
    ("import one by one, 100,000, shuffled: a file", "import/shuffled/100000", "µs", 1.93),
    ("import in one batch, 10,000: a file", "import/batch/10000", "µs", None),
    ("import in one batch, 100,000: a file", "import/batch/100000", "µs", 2.37),
    ("one directory, one by one, 10,000: a file", "flat/perfile/10000", "µs", 1.25),
    ("one directory, in one batch, 10,000: a file", "flat/batch/10000", "µs", None),
    ("history, one by one, 10,000 files: a commit", "history/perfile/10000/1000", "µs", 1.78),
    ("history, batches, 10,000 files: a commit", "history/batch/10000/1000", "µs", None),
    ("diff, 100 of 100,000 files", "diff/100000", "ms", 3.33),
    ("diff of 100,000 files against nothing", "diff/full/100000", "ms", None),
    ("merge, 190 of 100,000 files", "merge/100000", "ms", 2.94),
    ("common base, 100,000 commits apart", "mergebase/far/100000", "ms", 2.4),
    ("save 26,076 objects to memory", "save/stream/10000/1000", "ms", 1.43),
    ("load them", "load/stream/10000/1000", "ms", 1.6),
    ("purge 1,000 of 2,000 commits", "purge/10000/1000/1000", "ms", None),
    ("chain of 100,000 commits: a commit", "chain/100000", "µs", None),
    ("rebase of 100,000 commits: a commit", "rebase/100000", "µs", None),
]

# Workload, figure, unit and goal.
MEMORY_ROWS = [
    ("import one by one, 100,000", "import/perfile/100000", "heap_per_object", "bytes", 1000),
    ("import in one batch, 100,000", "import/batch/100000", "heap_per_object", "bytes", 1250),
    ("history one by one, 10,000 files", "history/perfile/10000/1000", "heap_per_object", "bytes",
     1300),
    ("history in batches, 10,000 files", "history/batch/10000/1000", "heap_per_object", "bytes",
     None),
    ("chain of 100,000 commits", "chain/100000", "heap_per_object", "bytes", 350),
    ("one directory, one by one, 10,000", "flat/perfile/10000", "peak_MiB", "MiB", 200),
]

# What the heap is split into, by the counters of the library's program.
HEAP_PARTS = ["content", "ids", "tables", "control", "slack"]

# What grows: title, the benchmark's name and the sizes.
GROWTH = [
    ("One directory, a file at a time", "flat/perfile", [1000, 2000, 4000, 8000, 16000]),
    ("Import, a file at a time", "import/perfile", [1000, 5000, 20000, 50000, 100000, 200000]),
    ("Import in one batch", "import/batch", [1000, 5000, 20000, 50000, 100000, 200000]),
    ("`SimplifyCommitGraph`, 1,000 branches", "scale/simplify", [12500, 25000, 50000, 100000]),
    ("`DeleteCommits`, 1,000 branches", "scale/delete", [125000, 250000, 500000, 1000000]),
    ("Purge, half of the objects", "scale/purge", [125000, 250000, 500000, 1000000]),
]

# A peer that takes longer than this runs in the first round only.
SLOW_SECONDS = 10

UNITS = {"ns": 1e9, "µs": 1e6, "ms": 1e3}


def run(program, name):
    """Returns the counters of one benchmark, or None if the program is missing or has no such one."""
    if not program.exists():
        return None
    output = subprocess.run(
        [program, f"--benchmark_filter=^{re.escape(name)}(/iterations:[0-9]+)?/manual_time$",
         "--benchmark_format=json", "--benchmark_min_time=0.2"],
        check=True, capture_output=True, text=True).stdout
    found = json.loads(output)["benchmarks"] if output else []
    return found[0] if found else None


def measure(programs, names, rounds):
    """Returns, by workload and program, the list of counters of the rounds."""
    results = {name: {kind: [] for kind in programs} for name in names}
    slow = set()
    for number in range(rounds):
        for name in names:
            print(f"round {number + 1} of {rounds}: {name}", file=sys.stderr)
            for kind, (program, prefix) in programs.items():
                if (name, kind) in slow:
                    continue
                start = time.monotonic()
                counters = run(program, prefix + name)
                if counters is not None:
                    results[name][kind].append(counters)
                if kind == "peer" and time.monotonic() - start > SLOW_SECONDS:
                    slow.add((name, kind))
    return results


def median(rounds, figure):
    return statistics.median(counters[figure] for counters in rounds) if rounds else None


def ratio(ours, others):
    if not others:
        return None
    return statistics.median(a["time_per_op"] / b["time_per_op"] for a, b in zip(ours, others))


def number(value):
    if value is None:
        return ""
    return f"{value:,.0f}" if value >= 100 else f"{value:.3g}"


def times(value):
    return "" if value is None else f"{value:.2f}"


def describe_peer(program):
    """Returns a line about the peer that was measured, or none if there is no such program."""
    if not program.exists():
        return []
    output = subprocess.run([program, "--benchmark_filter=^hash/64/", "--benchmark_format=json"],
                            check=True, capture_output=True, text=True).stdout
    return [f"The peer: {json.loads(output)['context']['peer']}.\n"]


def table_lines(header, rows):
    lines = [header, ["---"] + ["---:"] * (len(header) - 1), *rows]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines) + "\n"


def compare(folder, rounds, pattern, before):
    """Returns the tables of times and memory as text.

    `before` is the folder of an earlier build, or None; its figures get two more columns.
    """
    programs = {
        "ours": (folder / "talvcs_bench", ""),
        "floor": (folder / "talvcs_bench_floor", ""),
        "kept": (folder / "talvcs_bench_floor", "table/"),
        "peer": (folder / "talvcs_bench_libgit2", ""),
    }
    if before:
        programs["before"] = (before / "talvcs_bench", "")
    rows = [row for row in ROWS if re.search(pattern, row[1])]
    memory_rows = [row for row in MEMORY_ROWS if re.search(pattern, row[1])]
    names = dict.fromkeys([row[1] for row in rows] + [row[1] for row in memory_rows])
    results = measure(programs, names, rounds)

    table = []
    for title, name, unit, goal in rows:
        of = results[name]
        line = [title, unit]
        for kind in programs:
            value = median(of[kind], "time_per_op")
            line.append(number(None if value is None else value * UNITS[unit]))
        line += [times(ratio(of["ours"], of["floor"])), times(goal),
                 times(ratio(of["ours"], of["peer"]))]
        if before:
            line.append(times(ratio(of["ours"], of["before"])))
        table.append(line)
    former = ["before"] if before else []
    speed = table_lines(["workload", "unit", "TalVcs", "floor", "floor, kept", "libgit2", *former,
                         "TalVcs / floor", "goal", "TalVcs / libgit2",
                         *(f"TalVcs / {name}" for name in former)], table)

    table = []
    for title, name, figure, unit, goal in memory_rows:
        of = results[name]
        table.append([title, unit if figure == "peak_MiB" else unit + " an object",
                      number(median(of["ours"], figure)), number(goal),
                      number(median(of["peer"], figure))])
    memory = table_lines(["memory", "unit", "TalVcs", "goal", "libgit2"], table)
    return [*describe_peer(programs["peer"][0]), speed, memory, split_heap(memory_rows, results)]


def split_heap(rows, results):
    """Returns the table that splits the heap of an object. The rest are mostly directories."""
    table = []
    for title, name, figure, _, _ in rows:
        if figure != "heap_per_object":
            continue
        ours = results[name]["ours"]
        parts = [median(ours, f"{part}_per_object") for part in HEAP_PARTS]
        total = median(ours, figure)
        table.append([title, *map(number, parts), number(total - sum(parts)), number(total)])
    return table_lines(["heap bytes an object", "content", "ids", "tables", "control", "slack",
                        "directories and others", "all"], table)


def grow(folder, rounds, pattern):
    """Returns a table for each workload of `GROWTH` as text."""
    tables = []
    program = folder / "talvcs_bench"
    for title, name, sizes in GROWTH:
        if not re.search(pattern, name):
            continue
        names = [f"{name}/{size}" for size in sizes]
        results = measure({"ours": (program, "")}, names, rounds)
        table = []
        for size in sizes:
            ours = results[f"{name}/{size}"]["ours"]
            line = [f"{size:,}", number(median(ours, "real_time")),
                    number(median(ours, "time_per_op") * 1e6)]
            if "objects" in ours[0]:
                line += [number(median(ours, "heap_per_object")), number(median(ours, "peak_MiB"))]
            table.append(line)
        header = ["size", "ms", "µs an operation"]
        if "objects" in ours[0]:
            header += ["heap bytes an object", "peak MiB"]
        tables.append(f"{title}:\n\n{table_lines(header, table)}")
    return tables


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("folder", type=pathlib.Path, help="where the benchmark programs lie")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--filter", default="", help="regular expression for workload names")
    parser.add_argument("--before", type=pathlib.Path,
                        help="where the programs of an earlier build lie, to be compared too")
    parser.add_argument("--growth", action="store_true", help="show costs over sizes instead")
    parser.add_argument("--output", type=pathlib.Path, help="write the tables to this file too")
    options = parser.parse_args()
    if options.growth:
        tables = grow(options.folder, options.rounds, options.filter)
    else:
        tables = compare(options.folder, options.rounds, options.filter, options.before)
    tables = "\n".join(tables)
    print(tables)
    if options.output:
        options.output.write_text(tables, encoding="utf-8")


if __name__ == "__main__":
    main()
