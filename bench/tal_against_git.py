#!/usr/bin/env python3
"""Compares tal with git on three folders: time, peak memory, size of the store.

    bench/tal_against_git.py TAL [--folders NAME...] [--rounds N] [--files N] [--texts N] [--commits N]
                             [--scratch FOLDER] [--chart PICTURE]

TAL is the program, from a release build. The folders are "files" (20,000 generated files), "project" (this
project with its history from git) and "texts" (2,000 large text files with 1,000 commits of small edits).
Rounds are interleaved: each runs git and tal once. The table has medians. Memory is the peak of the
program's resident pages, which the program time (Debian: time) measures. Prints a table in Markdown for
each folder, and writes a chart of all ratios with --chart. Everything takes about ten minutes.
"""

import argparse
import os
import pathlib
import random
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

import chart

HERE = pathlib.Path(__file__).resolve().parent
ENVIRONMENT = {
    "PATH": os.environ["PATH"], "HOME": "/nonexistent", "LC_ALL": "C.UTF-8", "TZ": "UTC",
    "GIT_CONFIG_NOSYSTEM": "1", "GIT_AUTHOR_NAME": "Ann", "GIT_AUTHOR_EMAIL": "ann@example.org",
    "GIT_COMMITTER_NAME": "Ann", "GIT_COMMITTER_EMAIL": "ann@example.org", "TAL_AUTHOR": "Ann",
    "TAL_EMAIL": "ann@example.org", "GIT_PAGER": "cat",
    "LD_LIBRARY_PATH": os.environ.get("LD_LIBRARY_PATH", ""),
}
WORDS = ("alpha beta gamma delta epsilon zeta eta theta iota kappa lambda mu nu xi omicron pi rho sigma tau "
         "upsilon phi chi psi omega").split()


def text_of(seed, lines):
    chance = random.Random(seed)
    return "".join(" ".join(chance.choices(WORDS, k=8)) + f" {chance.randrange(10**6)}\n" for _ in range(lines))


class Program:
    """git or tal with a folder of its own, which has the same files as the other's."""

    def __init__(self, name, command, folder, store):
        self.name, self.command, self.folder, self.store = name, command, folder, folder / store
        folder.mkdir(parents=True)

    def run(self, *arguments, data=None, fails=False):
        """Runs the program. Returns its seconds and its peak memory in KiB."""
        with tempfile.TemporaryFile() as output, tempfile.NamedTemporaryFile() as peak:
            # The program starts from one with little memory: its peak counts that of its parent.
            words = ["/usr/bin/time", "--quiet", "-o", peak.name, "-f", "%M", *self.command, *arguments]
            begin = time.perf_counter()
            done = subprocess.run(words, cwd=self.folder, env=ENVIRONMENT, stdin=data or subprocess.DEVNULL,
                                  stdout=output, stderr=subprocess.STDOUT, check=False)
            seconds = time.perf_counter() - begin
            if done.returncode != 0 and not fails:
                output.seek(0)
                shown = output.read()[-800:].decode("utf-8", "replace")
                raise SystemExit(f"{self.name} {arguments}: exit code {done.returncode}\n{shown}")
            return seconds, int(peak.read())

    def size(self):
        return sum(path.lstat().st_blocks * 512 for path in self.store.rglob("*"))

    def commit(self, message):
        """Commits the folder's files; git needs a look at them first, which counts."""
        if self.name == "tal":
            return self.run("commit", "-m", message)
        added, committed = self.run("add", "--all"), self.run("commit", "--quiet", "-m", message)
        return added[0] + committed[0], max(added[1], committed[1])


class Comparison:
    def __init__(self, tal, scratch, rounds):
        self.scratch, self.rounds = scratch, rounds
        self.tal, self.measured = tal, {}
        listed = subprocess.run([tal, "--help"], check=True, capture_output=True, text=True).stdout
        self.commands = {line.split()[0] for line in listed.split("\nSubcommands:\n")[1].splitlines() if line}
        self.count = 0

    def programs(self):
        """Returns git and tal, each in a new folder with an empty store."""
        self.count += 1
        top = self.scratch / str(self.count)
        git = Program("git", ["git", "-c", "gc.auto=0"], top / "git", ".git")
        tal = Program("tal", [self.tal], top / "tal", ".vcs")
        git.run("init", "--quiet", "--initial-branch=main")
        tal.run("init")
        return git, tal

    def note(self, row, program, figures):
        self.measured.setdefault(row, {}).setdefault(program.name, []).append(figures)

    def measure(self, row, programs, git, tal, fails=False):
        """Runs a command of each in turn. `git` and `tal` are argument lists, or get the round. A command
        that this tal doesn't have has no row."""
        if (tal(0) if callable(tal) else tal)[0] not in self.commands:
            print(f"no row \"{row}\": this tal can't do that", file=sys.stderr)
            return
        for number in range(self.rounds):
            for program, arguments in zip(programs, (git, tal)):
                words = arguments(number) if callable(arguments) else arguments
                self.note(row, program, program.run(*words, fails=fails))

    def first_commit(self, fill):
        for _ in range(self.rounds):
            programs = self.programs()
            for program in programs:
                fill(program.folder)
                os.sync()
                self.note("first commit", program, program.commit("first"))
            if programs[0].folder.parent != self.scratch / "1":
                shutil.rmtree(programs[0].folder.parent)
            else:
                kept = programs
        return kept

    def history_rows(self, programs, path):
        """Measures what reads and changes a folder that has a history with `path` in it."""
        everything = sorted(str(one.relative_to(programs[0].folder))
                            for one in programs[0].folder.rglob("*")
                            if one.is_file() and not one.is_symlink() and ".git" not in one.parts)
        random.Random(7).shuffle(everything)

        def edit(program, names, number):
            for name in names:
                with (program.folder / name).open("ab") as file:
                    file.write(b"edited %d\n" % number)

        self.measure("status", programs, ["status", "--porcelain"], ["status"])
        for number in range(self.rounds):
            for program in programs:
                edit(program, everything[number:number + 1], number)
                self.note("commit of one file", program, program.commit(f"edit {number}"))
        self.measure("log -n 1", programs, ["log", "-n", "1"], ["log", "-n", "1"])
        self.measure("log PATH", programs, ["log", "--oneline", "--", path], ["log", "HEAD", path])
        self.measure("show", programs, ["show", "HEAD"], ["show", "HEAD"])
        self.measure("diff of two versions", programs, ["diff", "HEAD~2", "HEAD"], ["diff", "HEAD~2", "HEAD"],
                     fails=True)
        self.measure("blame", programs, ["blame", path], ["blame", path])
        self.measure("branch", programs, lambda n: ["branch", f"b{n}"], lambda n: ["branch", f"b{n}"])
        few = min(100, len(everything) // (self.rounds + 1))
        base = {"git": "main", "tal": programs[1].branch}
        quiet = {"git": ["--quiet"], "tal": []}
        merge = {"git": ["merge", "--quiet", "--no-edit"], "tal": ["merge"]}
        for number in range(self.rounds):
            changed = everything[number * few:(number + 1) * few]  # no two branches change the same file
            for program in programs:
                program.run("switch", *quiet[program.name], f"b{number}")
                edit(program, changed, number)
                program.commit(f"many {number}")
                self.note("switch", program, program.run("switch", *quiet[program.name], base[program.name]))
                (program.folder / f"new{number}").write_text("new\n", encoding="ascii")
                program.commit(f"new {number}")
                self.note("merge", program, program.run(*merge[program.name], f"b{number}"))
        self.measure("verify", programs, ["fsck", "--full", "--no-progress"], ["verify"])
        for program in programs:
            self.note("size of the store", program, (None, program.size() / 1024))
            self.note("gc", program, program.run("gc"))
            self.note("size after gc", program, (None, program.size() / 1024))

    def table(self, title):
        lines = [f"### {title}", "", "| command | unit | git | tal | tal / git | git, MiB | tal, MiB |",
                 "|---|---|---:|---:|---:|---:|---:|"]
        for row, figures in self.measured.items():
            times = [[one[0] for one in figures[name]] for name in ("git", "tal")]
            memory = [statistics.median(one[1] for one in figures[name]) / 1024 for name in ("git", "tal")]
            if times[0][0] is None:
                ours, unit, shown = memory, "MiB", ["", ""]
            else:
                ours, unit = [statistics.median(one) * 1000 for one in times], "ms"
                shown = [f"{one:.0f}" for one in memory]
            digits = [f"{one:.1f}" if one < 100 else f"{one:,.0f}" for one in ours]
            lines.append(f"| {row} | {unit} | {digits[0]} | {digits[1]} | {ours[1] / max(ours[0], 1e-9):.2f} "
                         f"| {shown[0]} | {shown[1]} |")
        return "\n".join(lines) + "\n"


def fill_files(count):
    def fill(folder):
        for number in range(count):
            target = folder / f"d{number % 200:03}" / f"f{number:05}.txt"
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_text(text_of(number, 20), encoding="ascii")
    return fill


def fill_project(folder):
    top = subprocess.run(["git", "-C", str(HERE), "rev-parse", "--show-toplevel"], check=True,
                         capture_output=True, text=True).stdout.strip()
    archive = subprocess.run(["git", "-C", top, "archive", "HEAD"], check=True, capture_output=True)
    subprocess.run(["tar", "-x", "-C", str(folder)], input=archive.stdout, check=True)


def run_files(comparison, options):
    programs = comparison.first_commit(fill_files(options.files))
    programs[1].branch = "master"
    comparison.history_rows(programs, "d007/f00007.txt")


def run_project(comparison, _):
    shutil.rmtree(comparison.first_commit(fill_project)[0].folder.parent)
    git, tal = comparison.programs()
    with tempfile.TemporaryFile() as stream:
        subprocess.run(["git", "-C", str(HERE), "fast-export", "HEAD", "--use-done-feature"], check=True,
                       stdout=stream)
        names = subprocess.run(["git", "-C", str(HERE), "rev-parse", "--abbrev-ref", "HEAD"], check=True,
                               capture_output=True, text=True).stdout.strip()
        stream.seek(0)
        imported = git.run("fast-import", "--quiet", data=stream)
        if names != "main":
            git.run("branch", "-M", names, "main")
        # tal writes the files of the folder as well, so git's part of that counts too.
        written = git.run("reset", "--quiet", "--hard", "main")
        comparison.note("import with its files", git, (imported[0] + written[0], max(imported[1], written[1])))
        stream.seek(0)
        comparison.note("import with its files", tal, tal.run("import-git", data=stream))
    tal.branch = names if names != "HEAD" else "main"
    comparison.history_rows((git, tal), "README.md")


def run_texts(comparison, options):
    def fill(folder):
        for number in range(options.texts):
            target = folder / f"t{number % 20:02}" / f"{number:04}.txt"
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_text(text_of(number, 600), encoding="ascii")

    programs = comparison.first_commit(fill)
    programs[1].branch = "master"
    path = "t07/0007.txt"
    chance = random.Random(11)
    for number in range(options.commits):
        chosen = 7 if number % 20 == 0 else chance.randrange(options.texts)
        line = chance.randrange(600)
        for program in programs:
            target = program.folder / f"t{chosen % 20:02}" / f"{chosen:04}.txt"
            lines = target.read_text(encoding="ascii").split("\n")
            lines[line] = f"edit {number}"
            target.write_text("\n".join(lines), encoding="ascii")
            comparison.note("commit of one file, through the history", program, program.commit(f"edit {number}"))
    comparison.history_rows(programs, path)


RUNS = {
    "files": (run_files, "Generated files"),
    "project": (run_project, "This project"),
    "texts": (run_texts, "Large texts with a long history"),
}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("tal", type=pathlib.Path)
    parser.add_argument("--folders", nargs="+", choices=RUNS, default=list(RUNS))
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--files", type=int, default=20000)
    parser.add_argument("--texts", type=int, default=2000)
    parser.add_argument("--commits", type=int, default=1000)
    parser.add_argument("--scratch", type=pathlib.Path)
    parser.add_argument("--chart", type=pathlib.Path)
    options = parser.parse_args()
    scratch = pathlib.Path(tempfile.mkdtemp(prefix="tal-against-git-", dir=options.scratch))
    rows = []
    try:
        for name in options.folders:
            run, title = RUNS[name]
            comparison = Comparison(str(options.tal.absolute()), scratch / name, options.rounds)
            run(comparison, options)
            table = comparison.table(title)
            print(table, flush=True)
            rows += [[f"{name}: {row[0]}", *row[1:]] for row in chart.read_rows(table, chart.AGAINST_GIT)]
            shutil.rmtree(scratch / name)
    finally:
        shutil.rmtree(scratch, ignore_errors=True)
    if options.chart:
        options.chart.write_text(chart.draw(rows, chart.AGAINST_GIT), encoding="utf-8")
    return 0


if __name__ == "__main__":
    sys.exit(main())
