#!/usr/bin/env python3
"""Measures a workspace in a short and in a long history, and one that keeps its history under a limit.

Prints tables. Histories are made in FOLDER and stay there for the next run.
"""

import argparse
import json
import pathlib
import shutil
import statistics
import subprocess

ROUNDS = 5
OPERATIONS = (("open_us", "open"), ("save_us", "checkpoint"), ("undo_us", "undo"), ("log_us", "log of 20"))


def run(*command):
    return json.loads(subprocess.run([str(part) for part in command], check=True, capture_output=True,
                                     text=True).stdout)


def times(program, folder, count):
    """The medians of some runs, each on a copy of a history of that length."""
    history = folder / f"checkpoints-{count}"
    if not history.exists():
        making = folder / "making"
        shutil.rmtree(making, ignore_errors=True)
        run(program, "make", making, count)
        making.rename(history)
    runs = []
    for _ in range(ROUNDS):
        copy = folder / "copy"
        shutil.rmtree(copy, ignore_errors=True)
        shutil.copytree(history, copy)
        runs.append(run(program, "times", copy, count))
    return {name: statistics.median(figures[name] for figures in runs) for name, _ in OPERATIONS}


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("program", type=pathlib.Path, help="talvcs_bench_workspaces")
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("--short", type=int, default=1000)
    parser.add_argument("--long", type=int, default=100000)
    parser.add_argument("--bytes", type=int, default=50_000_000)
    options = parser.parse_args()
    options.folder.mkdir(parents=True, exist_ok=True)

    short = times(options.program, options.folder, options.short)
    long = times(options.program, options.folder, options.long)
    print(f"| operation | {options.short:,} checkpoints | {options.long:,} checkpoints | ratio |")
    print("|---|---:|---:|---:|")
    for name, title in OPERATIONS:
        print(f"| {title} | {short[name]:,.0f} µs | {long[name]:,.0f} µs | {long[name] / short[name]:.2f} |")

    kept = options.folder / "kept"
    shutil.rmtree(kept, ignore_errors=True)
    figures = run(options.program, "keep", kept, options.long, options.bytes)
    print(f"\n{options.long:,} checkpoints under {options.bytes:,} bytes: {figures['versions']:,} versions, at most "
          f"{figures['folder_bytes']:,.0f} bytes in the folder and {figures['memory_bytes']:,.0f} in memory; "
          f"the longest clean-up took {figures['forget_ms']:,.0f} ms")


if __name__ == "__main__":
    main()
