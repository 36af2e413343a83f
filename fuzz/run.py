#!/usr/bin/env python3
"""Runs the fuzzers of a build and prints the results.

Usage: run.py BUILD --seconds N [TARGET...]
       run.py BUILD --runs N [TARGET...]

With --seconds, each target goes on from the corpus that it collects in BUILD/corpus/TARGET. With
--runs, each starts from the corpus and the kept inputs of the project alone, with a fixed seed, and
--runs is for the slowest target; faster ones do a multiple of it. As many targets run at once as there are processors.
Inputs that end a target come to BUILD/crashes; exits with 1 if there are any.
"""

import argparse
import concurrent.futures
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent

# The length of inputs that pays, and how many of its runs take as long as one of "operations".
TARGETS = {
    "commit_text": (512, 10),
    "directory_store": (512, 4),
    "encryption_store": (256, 2),
    "journal": (512, 10),
    "json": (512, 10),
    "load": (1024, 2),
    "object_codec": (512, 5),
    "operations": (512, 1),
    "pack": (512, 4),
    "packed_object": (1024, 4),
    "path": (256, 20),
    "sqlite_salvage": (16384, 1),
    "sqlite_store": (16384, 1),
    "text_merge": (256, 10),
    "tree": (1024, 4),
    "utf": (256, 20),
    "workspace": (512, 1),
    "zip_store": (2048, 1),
}
# The smallest input that any target needs is far below what one allocation may take.
LIMITS = ["-rss_limit_mb=1024", "-malloc_limit_mb=128"]
SECONDS_AN_INPUT = 25
# Its clock stands still, and with it the fuzzer's.
WITHOUT_CLOCK = {"operations"}
SANITIZERS = {
    "ASAN_OPTIONS": "quarantine_size_mb=32:malloc_context_size=10:detect_stack_use_after_return=1",
    "UBSAN_OPTIONS": "print_stacktrace=1",
}

LINE = "{:16}{:>12}{:>8}{:>10}{:>8}{:>9}"


def command(build, target, bound, corpus):
    length, _ = TARGETS[target]
    crashes = build / "crashes" / target
    crashes.mkdir(parents=True, exist_ok=True)
    limit = 0 if target in WITHOUT_CLOCK else SECONDS_AN_INPUT
    return [build / "fuzz" / f"fuzz_{target}", f"-max_len={length}", *bound, *LIMITS,
            f"-timeout={limit}", "-entropic=0", f"-dict={HERE / 'dictionary.txt'}", f"-artifact_prefix={crashes}/",
            "-print_final_stats=1", corpus, HERE / "corpus" / target,
            *(folder for folder in [HERE / "crashes" / target] if folder.exists())]


def figures(log):
    """Returns executions, edges covered, features and new inputs."""
    executed = re.findall(r"stat::number_of_executed_units: *(\d+)", log)
    covered = re.findall(r"cov: (\d+) ft: (\d+)", log)
    new = re.findall(r"stat::new_units_added: *(\d+)", log)
    edges, features = covered[-1] if covered else ("0", "0")
    return (executed or ["0"])[-1], edges, features, (new or ["0"])[-1]


def run(build, target, seconds, runs):
    """Runs one target and prints its line. Returns whether an input ended it."""
    if runs is None:
        bound = [f"-max_total_time={seconds}"]
        corpus = build / "corpus" / target
    else:
        bound = [f"-runs={runs * TARGETS[target][1]}", "-seed=1"]
        corpus = build / "checked" / target
        shutil.rmtree(corpus, ignore_errors=True)
    corpus.mkdir(parents=True, exist_ok=True)
    # A bounded number of runs takes a few seconds a target.
    most_seconds = (seconds or 600) + 120
    log_path = build / f"fuzz_{target}.log"
    with log_path.open("wb") as log_file:
        with subprocess.Popen(command(build, target, bound, corpus), stdout=log_file,
                              stderr=subprocess.STDOUT, env={**os.environ, **SANITIZERS}) as fuzzer:
            try:
                crashed = fuzzer.wait(most_seconds) != 0
            except subprocess.TimeoutExpired:
                # On this signal a fuzzer keeps the input that it is at.
                fuzzer.send_signal(signal.SIGABRT)
                crashed = fuzzer.wait() != 0
    log = log_path.read_text(encoding="utf-8", errors="replace")
    report = LINE.format(target, *figures(log), int(crashed))
    print("\n".join([report] + (log.splitlines()[-60:] if crashed else [])), flush=True)
    return crashed


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--seconds", type=int)
    parser.add_argument("--runs", type=int)
    parser.add_argument("targets", nargs="*")
    arguments = parser.parse_intermixed_args()
    unknown = set(arguments.targets) - TARGETS.keys()
    if unknown:
        parser.error(f"no such target: {', '.join(sorted(unknown))}; there are {', '.join(TARGETS)}")
    if (arguments.seconds is None) == (arguments.runs is None):
        parser.error("either --seconds or --runs")

    print(LINE.format("target", "executions", "edges", "features", "new", "crashes"))
    # Targets of optional components aren't there if their components weren't built.
    built = [name for name in TARGETS if (arguments.build / "fuzz" / f"fuzz_{name}").exists()]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        crashed = list(pool.map(lambda target: run(arguments.build, target, arguments.seconds, arguments.runs),
                                arguments.targets or built))
    return 1 if any(crashed) else 0


if __name__ == "__main__":
    sys.exit(main())
