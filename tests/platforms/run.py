#!/usr/bin/env python3
"""Builds the test programs by presets for other platforms and checkers, runs them, and prints a table.

Usage: run.py PRESET...

cmake/presets/platforms.json says what is built, left_out.txt which cases are left out. Exits with
1 if a preset didn't build, or a test of it failed.
"""

import json
import os
import pathlib
import re
import subprocess
import sys
import time
import xml.etree.ElementTree

SOURCE = pathlib.Path(__file__).resolve().parents[2]
PROGRAMS = ("talvcs_tests", "talvcs_internal_tests", "talvcs_model_tests", "talvcs_kit_tests",
            "talvcs_kit_internal_tests", "talvcs_kit_text_tests", "talvcs_open_tests",
            "talvcs_workspace_tests", "talvcs_sharing_tests")


def run(*command):
    print("+", *command, flush=True)
    return subprocess.run(command, cwd=SOURCE).returncode == 0


def version(command):
    """The program's version: the first number of that form that it prints."""
    printed = subprocess.run((command, "--version"), capture_output=True, text=True).stdout
    match = re.search(r"\d+(\.\d+)+", printed)
    name = pathlib.Path(command).stem
    return f"{name} {match.group(0)}" if match else name


def compiler(preset):
    """The compiler and its version as CMake found them."""
    (found,) = (SOURCE / "build" / preset / "CMakeFiles").glob("*/CMakeCXXCompiler.cmake")
    settings = dict(re.findall(r'set\((CMAKE_CXX_COMPILER\w*) "(.*)"\)', found.read_text()))
    name = pathlib.Path(settings["CMAKE_CXX_COMPILER"]).name
    return f"{name} {settings['CMAKE_CXX_COMPILER_VERSION']}"


def runner(preset):
    """What the test programs run under."""
    printed = subprocess.run(("ctest", "--preset", preset, "--show-only=json-v1"), cwd=SOURCE,
                             check=True, capture_output=True, text=True).stdout
    command = json.loads(printed)["tests"][0]["command"][0]
    return "the processor" if pathlib.Path(command).stem in PROGRAMS else version(command)


def cases(report):
    """For each program, in order, how many of its cases passed, were skipped, and failed."""
    cells = {}
    for test in xml.etree.ElementTree.parse(report).iter("testcase"):
        output = test.findtext("system-out", "")
        counts = [re.search(rf"^\[  {word} +\] (\d+) test", output, re.MULTILINE)
                  for word in ("PASSED", "SKIPPED", "FAILED")]
        cells[test.get("name")] = ", ".join(
            f"{count.group(1)} {word}" for count, word in zip(counts, ("passed", "skipped", "failed"))
            if count) or "no end"
    return [cells.get(program, "-") for program in PROGRAMS]


def judge(preset):
    """Builds and runs the preset's tests. Returns its row of the table."""
    start = time.monotonic()
    if not (run("cmake", "--preset", preset) and run("cmake", "--build", "--preset", preset)):
        return (preset, "-", "-", *("-" for _ in PROGRAMS), "-", "not built")
    report = SOURCE / "build" / preset / "report.xml"
    # Of a long output the report keeps the end, where the counts stand.
    passed = run("ctest", "--preset", preset, "--output-junit", str(report),
                 "--test-output-truncation", "head")
    seconds = str(round(time.monotonic() - start))
    return (preset, compiler(preset), runner(preset), *cases(report), seconds,
            "passed" if passed else "failed")


def main():
    os.environ["TALVCS_ALL_PRESETS"] = "ON"
    rows = [("Platform", "Compiler", "Runs under", *PROGRAMS, "Seconds", "Result")]
    rows += [judge(preset) for preset in sys.argv[1:]]
    print()
    for row in rows:
        print("| " + " | ".join(row) + " |")
        if row is rows[0]:
            print("|" + " --- |" * len(row))
    return 0 if all(row[-1] == "passed" for row in rows[1:]) else 1


if __name__ == "__main__":
    sys.exit(main())
