#!/usr/bin/env python3
"""Measures opening, saving and walking on demand, each run in a process of its own, and prints a table.

Stores are made in FOLDER and stay there for the next run. Cold runs drop the pages of the stores from the system's
cache before they start. With strace, a save's waits for the disk are counted too.
"""

import argparse
import json
import os
import pathlib
import shutil
import statistics
import subprocess
import tempfile
import time

KINDS = ["memory", "directory", "sqlite"]
# A history's name on the command line, its files and commits, and how the table calls it.
BENCH = ("history", 10000, 1000, "26,076 objects")
LARGE = ("history", 830000, 10000, "1,000,000 objects")
AUTOSAVES = [("autosaves", 1, 100, "100 autosaves"), ("autosaves", 1, 100000, "100,000 autosaves")]
ROUNDS = 5


class Bench:
    def __init__(self, program, folder):
        self.program = program
        self.folder = folder

    def path(self, kind, history):
        return self.folder / f"{history[0]}-{history[1]}-{history[2]}.{kind}"

    def command(self, what, kind, history, path):
        name, files, commits, _ = history
        return [str(self.program), what, kind, str(path), name, str(files), str(commits)]

    def make(self, kind, history):
        path = self.path(kind, history)
        if kind != "memory" and not path.exists():
            subprocess.run(self.command("make", kind, history, path), check=True, stdout=subprocess.DEVNULL)
        return path

    def run(self, what, kind, history, cold=False, environment=None):
        path = self.make(kind, history)
        if cold:
            drop_pages(path)
        start = time.monotonic()
        result = subprocess.run(self.command(what, kind, history, path), check=True, capture_output=True, text=True,
                                env={**os.environ, **(environment or {})})
        figures = json.loads(result.stdout)
        figures["process_ms"] = (time.monotonic() - start) * 1e3
        return figures

    def median(self, what, kind, history, cold=False):
        """The run with the median of the elapsed time; a store in memory is made anew by each run, so once."""
        rounds = 1 if kind == "memory" and history == LARGE else ROUNDS
        return middle([self.run(what, kind, history, cold) for _ in range(rounds)], "wall_ms")

    def medians_in_turns(self, kind, figure, measured):
        """For each pair of an operation and a history in `measured`, the run with the median of `figure`. They take
        turns, so that a slow minute of the machine changes all of them alike."""
        if kind != "memory":
            for _, history in measured:
                read_pages(self.make(kind, history))
        rounds = [[self.run(what, kind, history) for what, history in measured] for _ in range(3 * ROUNDS)]
        return [middle(runs, figure) for runs in zip(*rounds)]

    def waits(self, kind, history):
        """Waits for the disk of one save, counted over the saves of one run."""
        if kind == "memory" or shutil.which("strace") is None:
            return None
        with tempfile.NamedTemporaryFile(mode="r") as log:
            command = self.command("save", kind, history, self.make(kind, history))
            subprocess.run(["strace", "-f", "-e", "trace=fsync,fdatasync,sync_file_range", "-o", log.name] + command,
                           check=True, stdout=subprocess.DEVNULL)
            return sum("sync" in line for line in log) / 21


def middle(runs, figure):
    return sorted(runs, key=lambda run: run[figure])[len(runs) // 2]


def files_of(path):
    return [path] if path.is_file() else [entry for entry in path.rglob("*") if entry.is_file()]


def read_pages(path):
    """Lets the system have the pages of the files in its cache. A large store would otherwise be partly cold."""
    for file in files_of(path):
        with file.open("rb") as stream:
            while stream.read(1 << 20):
                pass


def drop_pages(path):
    """Writes back what is dirty, and asks the system to forget the pages of the files."""
    subprocess.run(["sync"], check=True)
    for file in files_of(path):
        descriptor = os.open(file, os.O_RDONLY)
        os.posix_fadvise(descriptor, 0, 0, os.POSIX_FADV_DONTNEED)
        os.close(descriptor)


def row(*cells):
    print("| " + " | ".join(str(cell) for cell in cells) + " |", flush=True)


def opening(bench, histories):
    print("Open, list the root and read one file, in a new process:\n")
    row("history", "store", "warm, ms", "pages dropped, ms", "whole process, ms", "heap, KB")
    row("---", "---", "---:", "---:", "---:", "---:")
    for history in histories:
        for kind in KINDS:
            warm = bench.median("open", kind, history)
            cold = "" if kind == "memory" else f'{bench.median("open", kind, history, cold=True)["wall_ms"]:.2f}'
            process = "" if kind == "memory" else f'{warm["process_ms"]:.1f}'
            row(history[3], kind, f'{warm["wall_ms"]:.2f}', cold, process, f'{warm["heap_bytes"] / 1e3:.0f}')


def saving(bench, histories):
    print("\nEdit one file, commit, durable save:\n")
    row("history", "store", "ms", "processor, ms", "KB written", "waits for the disk")
    row("---", "---", "---:", "---:", "---:", "---:")
    for history in histories:
        for kind in KINDS:
            saving_row(bench, history, kind, bench.median("save", kind, history))
    saves = [("save", history) for history in AUTOSAVES]
    for kind in KINDS:
        for history, save in zip(AUTOSAVES, bench.medians_in_turns(kind, "save_wall_ms", saves)):
            saving_row(bench, history, kind, save)


def saving_row(bench, history, kind, save):
    waits = bench.waits(kind, history)
    row(history[3], kind, f'{save["save_wall_ms"]:.2f}', f'{save["save_processor_ms"]:.2f}',
        f'{save["save_written_bytes"] / 1e3:.1f}', "" if waits is None else f"{waits:.1f}")


def walking(bench, history):
    print("\nThe whole history, processor time:\n")
    row("store", "open and walk, ms", "`Kit::Load` and walk, ms", "left after `Trim`, KB")
    row("---", "---:", "---:", "---:")
    for kind in KINDS:
        walk, load = bench.medians_in_turns(kind, "processor_ms", [("walk", history), ("load", history)])
        # Without the allocator's own cache, whose free blocks count as memory in use.
        trim = bench.run("walk", kind, history, environment={"GLIBC_TUNABLES": "glibc.malloc.tcache_count=0"})
        row(kind, f'{walk["processor_ms"]:.0f}', f'{load["processor_ms"]:.0f}',
            f'{trim["heap_after_trim_bytes"] / 1e3:.1f}')
    ordinary = statistics.median(bench.run("deserialize", "memory", history)["processor_ms"] for _ in range(ROUNDS))
    print(f"\n`Deserializer` from memory into an ordinary repository, and walk: {ordinary:.0f} ms.")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("program", type=pathlib.Path, help="talvcs_bench_on_demand")
    parser.add_argument("folder", type=pathlib.Path, help="where the stores are made")
    parser.add_argument("--large", action="store_true", help="also 1,000,000 objects: takes 5 GB and minutes")
    arguments = parser.parse_args()
    arguments.folder.mkdir(parents=True, exist_ok=True)
    bench = Bench(arguments.program.resolve(), arguments.folder)
    histories = [BENCH, LARGE] if arguments.large else [BENCH]
    opening(bench, histories)
    saving(bench, histories)
    walking(bench, BENCH)


if __name__ == "__main__":
    main()
