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


TASKS = (("log", "log of 20"),
         ("path", "log of 20 of a path that one version in 200 changes"),
         ("oldest", "log of a path that the first version alone has changed"),
         ("author", "log of an author who made no version"),
         ("all", "the same for all branches"),
         ("blame", "blame of a path that one version in 200 changes"),
         ("blame-oldest", "blame of a path that the first version alone has changed"),
         ("undo-none", "search for a version to undo, of an author who made none"),
         ("branches", "`MeasureBranches`"),
         ("versions", "`MeasureVersions`"),
         ("contents", "`MeasureContents`"),
         ("verify", "`Verify`"),
         ("clean-up", "`CleanUp`, nothing to remove"))


def history_of(program, store, folder, count):
    """Returns the folder with a history of that length, which is made if it isn't there."""
    history = folder / f"{store}-{count}"
    if not history.exists():
        making = folder / "making"
        shutil.rmtree(making, ignore_errors=True)
        run(program, "make", store, making, count)
        making.rename(history)
    return history


def run_on_copy(program, what, store, history, number):
    copy = history.parent / "copy"
    shutil.rmtree(copy, ignore_errors=True)
    shutil.copytree(history, copy)
    return run(program, what, store, copy, number)


def print_times(program, store, histories):
    """Both histories take their turn in each round, so that a busy machine slows both."""
    runs = {count: [] for count in histories}
    for _ in range(ROUNDS):
        for count, history in histories.items():
            runs[count].append(run_on_copy(program, "times", store, history, count))
    short, long = ({name: statistics.median(figures[name] for figures in runs[count])
                    for name, _ in OPERATIONS} for count in histories)
    print("| operation | " + " | ".join(f"{count:,} checkpoints" for count in histories) + " | ratio |")
    print("|---|---:|---:|---:|")
    for name, title in OPERATIONS:
        print(f"| {title} | {short[name]:,.0f} µs | {long[name]:,.0f} µs | {long[name] / short[name]:.2f} |")


def print_rules(program, store, history):
    print("\n| rule | versions that stay | preview | memory | forget | memory |")
    print("|---|---:|---:|---:|---:|---:|")
    for number, title in enumerate(RULES):
        preview, done = (run_on_copy(program, "rule", store, history, number + first) for first in (0, len(RULES)))
        print(f"| {title} | {done['kept']:,} | {preview['ms'] / 1000:,.1f} s | {preview['memory_bytes'] / 1e6:,.0f} MB "
              f"| {done['ms'] / 1000:,.1f} s | {done['memory_bytes'] / 1e6:,.0f} MB |")


def print_tasks(program, store, history):
    """Times are processor times. The heap is what the process has in use after the task, and after `Trim`."""
    print("\n| task | time | memory | heap after it | after `Trim` |")
    print("|---|---:|---:|---:|---:|")
    for name, title in TASKS:
        figures = run(program, "task", store, history, name)
        memory, held, left = (figures[key] / 1e6 for key in ("memory_bytes", "held_bytes", "left_bytes"))
        print(f"| {title} | {figures['cpu_ms']:,.1f} ms | {memory:,.0f} MB | {held:,.1f} MB | {left:,.1f} MB |",
              flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("program", type=pathlib.Path, help="talvcs_bench_workspaces")
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("--store", default="folder", help="folder, sqlite, or one of these with -durable")
    parser.add_argument("--short", type=int, default=1000)
    parser.add_argument("--long", type=int, default=100000)
    parser.add_argument("--bytes", type=int, default=50_000_000)
    parser.add_argument("--tables", default="times,rules,tasks,keep", help="which tables to print")
    options = parser.parse_args()
    options.folder.mkdir(parents=True, exist_ok=True)
    program, store, tables = options.program, options.store, options.tables.split(",")

    histories = {count: history_of(program, store, options.folder, count)
                 for count in (options.short, options.long)}
    if "times" in tables:
        print_times(program, store, histories)
    if "rules" in tables:
        print_rules(program, store, histories[options.long])
    if "tasks" in tables:
        print_tasks(program, store, histories[options.long])
    if "keep" not in tables:
        return
    kept = options.folder / "kept"
    shutil.rmtree(kept, ignore_errors=True)
    figures = run(program, "keep", store, kept, options.long, options.bytes)
    print(f"\n{options.long:,} checkpoints under {options.bytes:,} bytes: {figures['versions']:,} versions, at most "
          f"{figures['folder_bytes']:,.0f} bytes in the folder and {figures['memory_bytes']:,.0f} in memory; "
          f"the longest clean-up took {figures['forget_ms']:,.0f} ms")


if __name__ == "__main__":
    main()
