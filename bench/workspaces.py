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
RULES = ("`KeepNewest(50,000)`", "`KeepSince`, half of them", "`KeepUnder(50 MB)`", "`ThinAutosaves`", "`TipsAndForks`")


def run(*command):
    return json.loads(subprocess.run([str(part) for part in command], check=True, capture_output=True,
                                     text=True).stdout)


def history_of(program, folder, count):
    """Returns the folder with a history of that length, which is made if it isn't there."""
    history = folder / f"checkpoints-{count}"
    if not history.exists():
        making = folder / "making"
        shutil.rmtree(making, ignore_errors=True)
        run(program, "make", making, count)
        making.rename(history)
    return history


def run_on_copy(program, what, history, number):
    copy = history.parent / "copy"
    shutil.rmtree(copy, ignore_errors=True)
    shutil.copytree(history, copy)
    return run(program, what, copy, number)


def print_times(program, histories):
    """Both histories take their turn in each round, so that a busy machine slows both."""
    runs = {count: [] for count in histories}
    for _ in range(ROUNDS):
        for count, history in histories.items():
            runs[count].append(run_on_copy(program, "times", history, count))
    short, long = ({name: statistics.median(figures[name] for figures in runs[count])
                    for name, _ in OPERATIONS} for count in histories)
    print("| operation | " + " | ".join(f"{count:,} checkpoints" for count in histories) + " | ratio |")
    print("|---|---:|---:|---:|")
    for name, title in OPERATIONS:
        print(f"| {title} | {short[name]:,.0f} µs | {long[name]:,.0f} µs | {long[name] / short[name]:.2f} |")


def print_rules(program, history):
    print("\n| rule | versions that stay | preview | memory | forget | memory |")
    print("|---|---:|---:|---:|---:|---:|")
    for number, title in enumerate(RULES):
        preview, done = (run_on_copy(program, "rule", history, number + first) for first in (0, len(RULES)))
        print(f"| {title} | {done['kept']:,} | {preview['ms'] / 1000:,.1f} s | {preview['memory_bytes'] / 1e6:,.0f} MB "
              f"| {done['ms'] / 1000:,.1f} s | {done['memory_bytes'] / 1e6:,.0f} MB |")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("program", type=pathlib.Path, help="talvcs_bench_workspaces")
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("--short", type=int, default=1000)
    parser.add_argument("--long", type=int, default=100000)
    parser.add_argument("--bytes", type=int, default=50_000_000)
    options = parser.parse_args()
    options.folder.mkdir(parents=True, exist_ok=True)

    histories = {count: history_of(options.program, options.folder, count)
                 for count in (options.short, options.long)}
    print_times(options.program, histories)
    print_rules(options.program, histories[options.long])

    kept = options.folder / "kept"
    shutil.rmtree(kept, ignore_errors=True)
    figures = run(options.program, "keep", kept, options.long, options.bytes)
    print(f"\n{options.long:,} checkpoints under {options.bytes:,} bytes: {figures['versions']:,} versions, at most "
          f"{figures['folder_bytes']:,.0f} bytes in the folder and {figures['memory_bytes']:,.0f} in memory; "
          f"the longest clean-up took {figures['forget_ms']:,.0f} ms")


if __name__ == "__main__":
    main()
