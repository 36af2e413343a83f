#!/usr/bin/env python3
"""Builds the test programs by presets for other platforms, runs them, and prints a table.

Usage: run.py PRESET...

What is built, and the cases left out, are the matter of CMakePresets.json and left_out.txt.
"""

import pathlib
import re
import subprocess
import sys
import time

SOURCE = pathlib.Path(__file__).resolve().parents[2]
PROGRAMS = ("talvcs_tests", "talvcs_internal_tests", "talvcs_kit_tests", "talvcs_model_tests")
RUNNERS = {"big-endian": "qemu-s390x", "mingw": "wine"}


def run(*command):
    print("+", *command, flush=True)
    return subprocess.run(command, cwd=SOURCE).returncode == 0


def version(command):
    """The program's version, from what it tells first about itself."""
    told = subprocess.run((command, "--version"), capture_output=True, text=True).stdout
    match = re.search(r"\d+(\.\d+)+", told)
    return f"{command} {match.group(0)}" if match else command


def compiler(preset):
    """The compiler and its version as CMake found them."""
    (found,) = (SOURCE / "build" / preset / "CMakeFiles").glob("*/CMakeCXXCompiler.cmake")
    settings = dict(re.findall(r'set\((CMAKE_CXX_COMPILER\w*) "(.*)"\)', found.read_text()))
    name = pathlib.Path(settings["CMAKE_CXX_COMPILER"]).name
    return f"{name} {settings['CMAKE_CXX_COMPILER_VERSION']}"


def results(preset):
    """For each program the number of cases that passed, were skipped and failed."""
    log = SOURCE / "build" / preset / "Testing/Temporary/LastTest.log"
    told = {}
    for part in log.read_text(errors="replace").split("\n----------------------------------------------------------\n"):
        for program in PROGRAMS:
            if not re.search(rf"Testing: {program}\n", part):
                continue
            counts = []
            for word in ("PASSED", "SKIPPED", "FAILED"):
                match = re.search(rf"^\[  {word} +\] (\d+) test", part, re.MULTILINE)
                counts.append(f"{match.group(1)} {word.lower()}" if match else "")
            told[program] = ", ".join(filter(None, counts)) or "no end"
    return told


def main():
    rows = [("Platform", "Compiler", "Runs under", *PROGRAMS, "Seconds", "Result")]
    for preset in sys.argv[1:]:
        start = time.monotonic()
        log = SOURCE / "build" / preset / "Testing/Temporary/LastTest.log"
        log.unlink(missing_ok=True)
        built = run("cmake", "--preset", preset) and run("cmake", "--build", "--preset", preset)
        passed = built and run("ctest", "--preset", preset)
        told = results(preset) if log.exists() else {}
        result = "passed" if passed else "failed" if built else "not built"
        runner = version(RUNNERS[preset]) if preset in RUNNERS else "the processor"
        cases = [told.get(program, "-") for program in PROGRAMS]
        seconds = str(round(time.monotonic() - start))
        rows.append((preset, compiler(preset), runner, *cases, seconds, result))
    print()
    for row in rows:
        print("| " + " | ".join(row) + " |")
        if row is rows[0]:
            print("|" + " --- |" * len(row))
    return 0 if all(row[-1] == "passed" for row in rows[1:]) else 1


if __name__ == "__main__":
    sys.exit(main())
