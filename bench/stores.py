#!/usr/bin/env python3
"""Prints the table of the stores: disk, saves, reads, opening, verification, clean-up, beside git.

Usage: stores.py BUILD [--history NAME...] [--commits N] [--folder FOLDER]

BUILD is the folder of talvcs_bench_stores. Histories are "edits", "bench" and "sources", the last
commits of this project. --commits shortens "edits". Each store is measured in a folder of its own
below FOLDER, one after another. Autosaves are durable: the median and the least of the times as they
pass, and the ratio to a table that gets the same objects in turn. Everything else is processor time.
"""

import argparse
import os
import pathlib
import random
import resource
import shutil
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
STORES = {
    "table": "plain table in SQLite",
    "directory-plain": "directory, plain",
    "directory": "directory",
    "sqlite-plain": "SQLite, plain",
    "sqlite": "SQLite",
    "zip": "zip",
}
SOURCE_COMMITS = 150
READS = 1000
ROW = "| {} | {} | {} | {} | {} | {} | {} | {} | {} | {} |"


def git(folder, *arguments, **options):
    return subprocess.run(["git", "-C", str(folder), *arguments], check=True, stdout=subprocess.PIPE,
                          **options).stdout


def processor_seconds():
    """Returns the processor time of all programs that have ended."""
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def disk(folder):
    """Returns the bytes in blocks of a folder with all below it, and its number of files."""
    sizes = [path.lstat().st_blocks * 512 for path in [folder, *folder.rglob("*")]]
    return sum(sizes), sum(path.is_file() for path in folder.rglob("*"))


def write_sources(target):
    """Writes the last commits of this project as bench/saves.h describes it. Links aren't files."""
    commits = git(HERE, "log", "--first-parent", f"-{SOURCE_COMMITS}", "--reverse", "--format=%H %ct")
    before = None
    with target.open("wb") as out:
        for line in commits.decode().splitlines():
            commit, seconds = line.split()
            trees = [before, commit] if before else [git(HERE, "hash-object", "-t", "tree", "/dev/null")
                                                     .decode().strip(), commit]
            changes = git(HERE, "diff-tree", "-r", "-z", "--no-renames", *trees).split(b"\0")[:-1]
            changed = []
            for about, path in zip(changes[::2], changes[1::2]):
                _, mode, _, blob, _ = about[1:].split()
                if not mode.startswith(b"100"):
                    changed.append(b"-1 " + path + b"\n")
                    continue
                data = git(HERE, "cat-file", "blob", blob.decode())
                changed.append(str(len(data)).encode() + b" " + path + b"\n" + data)
            out.write(f"commit {seconds} {len(changed)}\n".encode() + b"".join(changed))
            before = commit


def measure_git(program, history, folder):
    """Returns the figures of git after `git gc --aggressive`."""
    stream = folder / "import"
    subprocess.run([program, history, "import", stream], check=True)
    repository = folder / "repository"
    git(folder, "init", "-q", str(repository))
    with stream.open("rb") as data:
        git(repository, "fast-import", "--quiet", stdin=data)
    start = processor_seconds()
    git(repository, "gc", "--aggressive", "--quiet")
    figures = {"cleanup": processor_seconds() - start}
    os.sync()
    figures["bytes"], figures["files"] = disk(repository / ".git" / "objects")
    figures["bytes-clean"] = figures["bytes"]
    start = processor_seconds()
    git(repository, "fsck", "--full", "--no-progress")
    figures["verify"] = processor_seconds() - start
    listed = git(repository, "cat-file", "--batch-check", "--batch-all-objects").decode().split("\n")
    ids = [line.split()[0] for line in listed if line]
    chosen = random.Random(5).choices(ids, k=READS)
    start = processor_seconds()
    git(repository, "cat-file", "--batch", input="\n".join(chosen).encode())
    figures["reads"] = processor_seconds() - start
    return figures


def measure(program, history, store, folder):
    """Returns the figures that the program prints."""
    printed = subprocess.run([program, history, store, folder], check=True, stdout=subprocess.PIPE,
                             text=True).stdout
    return {name: float(value) for name, value in (pair.split("=") for pair in printed.split())}


def number(value, unit=1.0, digits=3):
    """Returns a number with so many significant digits, or nothing for none."""
    if value is None:
        return ""
    value /= unit
    return f"{value:,.0f}" if value >= 100 else f"{value:.{digits}g}"


def autosave(figures):
    """Returns the median and, in brackets, the least time in milliseconds, and the ratio of the median to that of
    the insertions of the same objects into a table in between."""
    if "autosave" not in figures:
        return ["", ""]
    ratio = figures["autosave"] / figures["insertion"] if "insertion" in figures else None
    return [f"{number(figures['autosave'], 1e-3)} ({number(figures['autosave-least'], 1e-3)})", number(ratio)]


def row(name, figures):
    return ROW.format(
        name, number(figures["bytes"], 1e6), number(figures.get("bytes-clean"), 1e6),
        f"{figures['files']:,.0f}", *autosave(figures),
        number(figures.get("reads"), 1e-6 * READS), number(figures.get("open"), 1e-3),
        number(figures.get("verify")), number(figures.get("cleanup")))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--history", nargs="*", default=["edits", "bench", "sources"])
    parser.add_argument("--store", nargs="*", default=[*STORES])
    parser.add_argument("--commits", type=int, default=10000)
    parser.add_argument("--folder", type=pathlib.Path)
    arguments = parser.parse_args()
    program = (arguments.build / "talvcs_bench_stores").resolve()
    with tempfile.TemporaryDirectory(dir=arguments.folder) as work:
        work = pathlib.Path(work)
        for name in arguments.history:
            history = {"edits": f"edits={arguments.commits}", "bench": "bench"}.get(name)
            if history is None:
                write_sources(work / "sources")
                history = f"file={work / 'sources'}"
            lines = []
            for store in ["git", *arguments.store]:
                folder = work / "measured"
                folder.mkdir()
                if store == "git":
                    lines.append(row("git, packed", measure_git(program, history, folder)))
                else:
                    figures = measure(program, history, store, folder)
                    lines.append(row(STORES[store], figures))
                print(lines[-1], file=sys.stderr, flush=True)
                shutil.rmtree(folder)
            print(f"\n{name}: {figures['commits']:,.0f} commits, {figures['objects']:,.0f} objects, "
                  f"{figures['packed'] / 1e6:,.1f} MB of packed forms\n")
            print(ROW.format("store", "MB", "MB, clean", "files", "autosave, ms", "of a table's", "read, µs",
                             "open, ms", "verify, s", "clean-up, s"))
            print(ROW.format(*["---"] + ["---:"] * 9))
            print("\n".join(lines), flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
