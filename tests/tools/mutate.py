#!/usr/bin/env python3
"""Changes single tokens of talvcs/ or kit/, one at a time, and prints which changes the tests notice.

Usage: mutate.py [--count 200] [--seed 1] [--jobs 1] [--only REGEX] [--library talvcs|kit] FOLDER

FOLDER takes a copy of the sources, builds of it and "results.json", from which a later run goes on.
A mutant that the tests let pass is a survivor, unless "equivalent_mutants.txt", beside this
script, gives the reason why nobody can distinguish it from the original. Exits with 1 if fewer
than 95 % of the others are killed.
"""

import argparse
import concurrent.futures
import contextlib
import hashlib
import json
import os
import pathlib
import queue
import random
import re
import resource
import signal
import subprocess
import sys
import threading
import time

from mutations import mutations_of

ROOT = pathlib.Path(__file__).resolve().parents[2]
EQUIVALENT = pathlib.Path(__file__).with_name("equivalent_mutants.txt")

# Programs of tests, without what is large or deep, or waits, and takes long.
DEEP = ("Depth", "Hundred", "LaterSecond", "StoredCommitMoves", "SamplesAlike")
SLOW = ":".join(f"*{word}*" for word in ("Large", "Gibi", *DEEP))
TALVCS_STAGES = {
    "talvcs_tests": ["talvcs_tests", f"--gtest_filter=-{SLOW}"],
    "talvcs_internal_tests": ["talvcs_internal_tests", f"--gtest_filter=-{SLOW}"],
    "talvcs_kit_tests": ["talvcs_kit_tests", "--gtest_filter=-DirectoryStore*:*Faults*"],
    "talvcs_model_tests": ["model/talvcs_model_tests"],
}
KIT_STAGES = {
    "talvcs_workspace_tests": ["talvcs_workspace_tests"],
    "talvcs_kit_text_tests": ["talvcs_kit_text_tests", f"--gtest_filter=-{SLOW}"],
    "talvcs_open_tests": ["talvcs_open_tests", f"--gtest_filter=-{SLOW}"],
    "talvcs_sharing_tests": ["talvcs_sharing_tests", f"--gtest_filter=-{SLOW}"],
    "talvcs_kit_tests": ["talvcs_kit_tests", f"--gtest_filter=-*Kill*:{SLOW}"],
    "talvcs_kit_internal_tests": ["talvcs_kit_internal_tests", f"--gtest_filter=-{SLOW}"],
}


class Library:
    """A library whose sources are changed: its target, its file, and the tests that meet it."""

    def __init__(self, name, target, file, stages, with_objects, last):
        self.name = name
        self.target = target
        self.file = file
        self.stages = stages
        # What is built when these let a mutant pass, and the tests that CTest runs with it.
        self.last_targets, self.last_tests = last
        # The other stages meet a changed library without being built anew.
        self.with_library = set(stages) - with_objects
        self.programs = {file} | {f"tests/{program}" for program, *_ in stages.values()}


TAL_TESTS = r"^tal\.(basics|branches|damage|merge|rewrite)"
LIBRARIES = {
    "talvcs": Library("talvcs", "talvcs", "talvcs/libtalvcs.so", TALVCS_STAGES,
                      {"talvcs_internal_tests"}, (("all",), "|".join((TAL_TESTS, *DEEP)))),
    "kit": Library("kit", "talvcs_kit", "kit/libtalvcs-kit.so", KIT_STAGES,
                   {"talvcs_kit_internal_tests"}, (("tal", "tal_make_branch"), TAL_TESTS)),
}

MEMORY = 6 << 30
KILLED = ("killed", "timeout")
COUNTED = KILLED + ("survived",)


def sources(folder):
    """Returns the files that are mutated. Code for other systems isn't compiled here."""
    names = subprocess.run(["git", "ls-files", f"{folder}/*.cpp", f"{folder}/*.h"], cwd=ROOT,
                           check=True, capture_output=True, text=True).stdout.split()
    return [name for name in names if not name.endswith(("_arm.cpp", "_windows.cpp"))]


def equivalents():
    """Returns the mutants with a reason: path, line before, line after."""
    found = set()
    path = before = None
    for line in EQUIVALENT.read_text(encoding="utf-8").splitlines():
        if line.startswith("- "):
            before = line[2:]
        elif line.startswith("+ "):
            found.add((path, before, line[2:]))
        elif line and line[0] not in "# ":
            path = line
    return found


def target_of(command):
    return pathlib.PurePath(command[0]).name


class Mutant:
    def __init__(self, path, mutation, source):
        self.path = path
        self.text = mutation.apply(source)
        self.line = mutation.line(source)
        self.before, self.after = mutation.describe(source)
        digest = hashlib.sha256(self.text.encode()).hexdigest()[:12]
        self.key = f"{path}:{self.line}:{digest}"


def plan(library, count, seed, only):
    """Yields for each file how many mutants it has to give, and its mutants in random order."""
    files = []
    for path in sources(library.name):
        source = (ROOT / path).read_text(encoding="utf-8")
        mutants = [Mutant(path, mutation, source) for mutation in mutations_of(source)]
        random.Random(f"{seed} {path}").shuffle(mutants)
        if mutants and re.search(only, path):
            files.append((path, source.count("\n"), mutants))
    # Every header is read by many files: one mutant each, the sources share the others.
    weights = [0 if path.endswith(".h") else lines for path, lines, _ in files]
    left = max(0, count - len(files))
    for (path, _, mutants), weight in zip(files, weights):
        yield 1 + round(left * weight / max(1, sum(weights))), mutants


def limit_memory():
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


class Workshop:
    """A copy of the sources and a build of it."""

    def __init__(self, library, folder, number):
        self.library = library
        self.source = folder / f"source-{number}"
        self.build = folder / f"build-{number}"
        self.scratch = folder / f"scratch-{number}"
        self.seconds = {}
        self.original = {}
        self.rebuilt = False

    def prepare(self):
        self.copy()
        self.scratch.mkdir(exist_ok=True)
        subprocess.run(
            ["cmake", "-S", self.source, "-B", self.build, "-G", "Ninja",
             "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O0 -D_GLIBCXX_ASSERTIONS",
             "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON", "-DTALVCS_BUILD_TESTS=ON",
             "-DTALVCS_BUILD_EXAMPLES=ON"], check=True, stdout=subprocess.DEVNULL)
        for stage, command in self.library.stages.items():
            if not self.make(target_of(command)):
                sys.exit(f"{stage} does not build")
            began = time.monotonic()
            failure = self.run(stage, 600)
            if failure:
                sys.exit(f"{stage} fails as it is: {failure}")
            self.seconds[stage] = time.monotonic() - began
        self.original = {file: self.digest(file) for file in self.library.programs}

    def copy(self):
        names = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard"],
                               cwd=ROOT, check=True, capture_output=True, text=True).stdout
        for name in names.splitlines():
            target = self.source / name
            content = (ROOT / name).read_bytes()
            if not target.exists() or target.read_bytes() != content:
                target.parent.mkdir(parents=True, exist_ok=True)
                target.write_bytes(content)
                target.chmod((ROOT / name).stat().st_mode)

    def digest(self, file):
        return hashlib.sha256((self.build / file).read_bytes()).digest()

    def is_original(self, *files):
        return all(self.digest(file) == self.original[file] for file in files)

    def make(self, *targets):
        return subprocess.run(["ninja", "-C", self.build, "-j1", *targets],
                              stdout=subprocess.DEVNULL).returncode == 0

    def execute(self, command, seconds):
        """Returns None if the command passes, otherwise what went wrong."""
        environment = dict(os.environ, TEST_TMPDIR=str(self.scratch), TMPDIR=str(self.scratch),
                           TALVCS_MODEL_SEQUENCES="20")
        # A session of its own, so that what the command has started ends with it.
        with subprocess.Popen(command, cwd=self.build, env=environment, start_new_session=True,
                              preexec_fn=limit_memory, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, errors="replace", text=True) as process:
            try:
                output, _ = process.communicate(timeout=seconds)
            except subprocess.TimeoutExpired:
                return "timeout"
            finally:
                with contextlib.suppress(ProcessLookupError):
                    os.killpg(process.pid, signal.SIGKILL)
        if process.returncode == 0:
            return None
        failed = re.search(r"\[  FAILED  \] ([\w./]+)|\d+ - (\S+) \(", output)
        return failed.group(1) or failed.group(2) if failed else f"code {process.returncode}"

    def run(self, stage, seconds):
        program, *options = self.library.stages[stage]
        return self.execute([self.build / "tests" / program, *options, "--gtest_fail_fast",
                             "--gtest_brief=1"], seconds)

    def judge(self, mutant, order):
        """Returns the outcome, and which stage and test found it."""
        target = self.source / mutant.path
        original = target.read_text(encoding="utf-8")
        target.write_text(mutant.text, encoding="utf-8")
        try:
            return self.judge_applied(mutant, order)
        finally:
            target.write_text(original, encoding="utf-8")
            if self.rebuilt:
                self.make(*map(target_of, self.library.stages.values()))

    def judge_applied(self, mutant, order):
        """Tests the changed library, then what compiles a changed header into itself as well."""
        self.rebuilt = False
        if not self.make(self.library.target):
            return "does not compile", ""
        if mutant.path.endswith(".cpp") and self.is_original(self.library.file):
            return "same code", ""
        with_library = self.library.with_library
        runs = [(stage, stage not in with_library) for stage in order]
        if mutant.path.endswith(".h"):
            runs += [(stage, True) for stage in order if stage in with_library]
        for stage, build in runs:
            self.rebuilt = self.rebuilt or build
            if build and not self.make(target_of(self.library.stages[stage])):
                return "does not compile", ""
            failure = self.run(stage, 30 + 10 * self.seconds[stage])
            if failure:
                return "timeout" if failure == "timeout" else "killed", f"{stage} {failure}"
        if self.is_original(*self.library.programs):
            return "same code", ""
        if not self.make(*self.library.last_targets):
            return "does not compile", ""
        failure = self.execute(["ctest", "-R", self.library.last_tests, "--stop-on-failure"], 900)
        return ("killed", f"ctest {failure}") if failure else ("survived", "")


class Run:
    def __init__(self, options):
        self.library = LIBRARIES[options.library]
        self.folder = options.folder.resolve()
        self.file = self.folder / "results.json"
        self.results = json.loads(self.file.read_text()) if self.file.exists() else {}
        self.reasons = equivalents()
        self.lock = threading.Lock()
        self.shops = queue.Queue()
        self.folder.mkdir(parents=True, exist_ok=True)
        for number in range(options.jobs):
            shop = Workshop(self.library, self.folder, number)
            shop.prepare()
            self.shops.put(shop)

    def order(self):
        """The stages, those first that have killed most."""
        kills = [result["by"].split(" ")[0] for result in self.results.values()]
        return sorted(self.library.stages, key=lambda stage: -kills.count(stage))

    def judge(self, mutant):
        began = time.monotonic()
        shop = self.shops.get()
        try:
            outcome, by = shop.judge(mutant, self.order())
        finally:
            self.shops.put(shop)
        with self.lock:
            self.results[mutant.key] = {
                "outcome": outcome, "by": by, "seconds": round(time.monotonic() - began, 1),
                "before": mutant.before, "after": mutant.after}
            self.file.write_text(json.dumps(self.results, indent=1), encoding="utf-8")
            print(f"{mutant.path}:{mutant.line}: {outcome} {by}\n  - {mutant.before}\n"
                  f"  + {mutant.after}", flush=True)
        return outcome

    def outcome(self, mutant):
        if (mutant.path, mutant.before, mutant.after) in self.reasons:
            return "equivalent"
        known = self.results.get(mutant.key)
        return known["outcome"] if known else self.judge(mutant)

    def take(self, wanted, mutants):
        """Judges mutants of one file until so many have counted; returns those outcomes."""
        outcomes = []
        for mutant in mutants:
            if sum(outcome in COUNTED for outcome in outcomes) == wanted:
                break
            outcomes.append(self.outcome(mutant))
        return outcomes


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--count", type=int, default=200, help="mutants that compile")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=1)
    parser.add_argument("--only", default="", help="a regular expression for paths")
    parser.add_argument("--library", choices=LIBRARIES, default="talvcs", help="what is changed")
    parser.add_argument("folder", type=pathlib.Path)
    options = parser.parse_args()
    files = sorted(plan(LIBRARIES[options.library], options.count, options.seed, options.only),
                   key=lambda file: file[1][0].path.endswith(".h"))
    run = Run(options)
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        outcomes = sum(pool.map(lambda file: run.take(*file), files), [])
    counts = {outcome: outcomes.count(outcome) for outcome in sorted(set(outcomes))}
    print(", ".join(f"{count} {outcome}" for outcome, count in counts.items()))
    killed = sum(counts.get(outcome, 0) for outcome in KILLED)
    counted = killed + counts.get("survived", 0)
    print(f"killed {killed} of {counted}")
    return 0 if counted and killed >= 0.95 * counted else 1


if __name__ == "__main__":
    sys.exit(main())
