#!/usr/bin/env python3
"""Counts the instructions of the main workloads, and compares them with the recorded counts.

Counts are steadier than times: they don't depend on what else the machine does. Counted is what
happens inside of one function, by callgrind, without the block function of SHA-256, which callgrind
runs in its portable form and whose share would hide the rest.

  instructions.py check PROGRAM    fails if a count has grown by more than 5 %
  instructions.py record PROGRAM   writes the counts of today

The record goes with the code: a change that makes a workload dearer on purpose records it as well.
"""

import pathlib
import re
import subprocess
import sys
import tempfile

# Workload and the function inside of which instructions are counted.
WORKLOADS = [
    ("import/batch/1000", "TalVcs::Bench::Import(*"),
    ("import/perfile/1000", "TalVcs::Bench::Import(*"),
    ("import/shuffled/1000", "TalVcs::Bench::Import(*"),
    ("flat/perfile/1000", "TalVcs::Bench::Import(*"),
    ("history/batch/1000/1000", "TalVcs::Bench::Replay(*"),
    ("history/perfile/1000/1000", "TalVcs::Bench::Replay(*"),
    ("diff/10000", "TalVcs::Tree::GetDeepBlobDiffs(*"),
    ("merge/10000", "TalVcs::Repository::Merge(*"),
    ("mergebase/far/10000", "TalVcs::Repository::GetCommonBase(*"),
    ("save/stream/1000/100", "TalVcs::Serializer::Serialize(*"),
    ("load/stream/1000/100", "TalVcs::Deserializer::Deserialize(*"),
    ("purge/1000/100/100", "TalVcs::Repository::UpdateStorage(*"),
]
MOST_GROWTH = 1.05
BLOCK_FUNCTION = re.compile(r"Sha256Blocks|MixBlock")
RECORD = pathlib.Path(__file__).with_name("instructions.txt")


def count(program, name, function):
    """Returns the number of instructions of a workload, in thousands."""
    with tempfile.TemporaryDirectory() as folder:
        output = pathlib.Path(folder) / "callgrind.out"
        subprocess.run(
            ["valgrind", "--tool=callgrind", f"--callgrind-out-file={output}",
             "--collect-atstart=no", f"--toggle-collect={function}", program,
             f"--benchmark_filter=^{re.escape(name)}(/iterations:[0-9]+)?/manual_time$"],
            check=True, capture_output=True)
        total = sum_costs(output.read_text())
    if total == 0:
        sys.exit(f"{name}: nothing was counted in {function}; is it still called so?")
    return total // 1000


def sum_costs(profile):
    """Adds up the own costs of all functions in a profile but the block function's."""
    names = {}
    total = 0
    counted = True
    is_call = False
    for line in profile.splitlines():
        if line.startswith("fn="):
            number, _, name = line[3:].partition(" ")
            name = names.setdefault(number, name)
            counted = not BLOCK_FUNCTION.search(name)
        elif line.startswith("cfn="):
            number, _, name = line[4:].partition(" ")
            names.setdefault(number, name)
        elif line.startswith("calls="):
            is_call = True
        elif line[:1] in "0123456789+-*" and line:
            # The line after a call has the cost of what was called, which is counted there.
            if counted and not is_call:
                total += int(line.split()[1])
            is_call = False
    return total


def compiler(program):
    """Returns the compiler that the program was built with: counts of others don't compare."""
    comment = subprocess.run(["readelf", "-p", ".comment", program], check=True,
                             capture_output=True, text=True).stdout
    return re.search(r"\]\s+(.*)", comment).group(1).strip()


def record(program):
    lines = [f"# Thousands of instructions, Release, {compiler(program)}"]
    for name, function in WORKLOADS:
        lines.append(f"{name} {count(program, name, function)}")
        print(lines[-1])
    RECORD.write_text("\n".join(lines) + "\n")


def check(program):
    first, *lines = RECORD.read_text().splitlines()
    if compiler(program) not in first:
        print(f"The counts were recorded with another compiler: {first}")
        return 77
    recorded = dict(line.split() for line in lines)
    failed = False
    for name, function in WORKLOADS:
        before, now = int(recorded[name]), count(program, name, function)
        # Half of the work isn't saved unnoticed: then something else is counted.
        wrong = "TOO MANY" if now > before * MOST_GROWTH else "RECORD ANEW" if 2 * now < before else ""
        failed |= wrong != ""
        print(f"{name}: {before} -> {now} thousand ({now / before - 1:+.1%}) {wrong}".rstrip())
    return 1 if failed else 0


def main():
    if len(sys.argv) != 3 or sys.argv[1] not in ("check", "record"):
        sys.exit(__doc__)
    sys.exit({"check": check, "record": record}[sys.argv[1]](sys.argv[2]))


if __name__ == "__main__":
    main()
