#!/usr/bin/env python3
"""Compiles the installed headers as hosts of different kinds do.

Usage: headers_test.py INSTALLED_HEADERS_FILE COMPILER INCLUDE_FOLDER...

COMPILER compiles each header alone, by C++20. It, g++ and clang++, where they are installed, compile
all headers together, by C++20 and by C++23. All this is without exceptions and type information, and
with warnings as errors. Each header is included twice. Prints what a compiler says, and exits with 1,
if one refuses a header.
"""

import concurrent.futures
import os
import pathlib
import shutil
import subprocess
import sys

STANDARDS = ("c++20", "c++2b")
FLAGS = ("-fsyntax-only", "-fno-exceptions", "-fno-rtti", "-Wall", "-Wextra", "-Wpedantic", "-Wshadow",
         "-Wold-style-cast", "-Wconversion", "-Wsign-conversion", "-Werror")


def compilers(first):
    """Returns the compilers to try, each once."""
    paths = filter(None, map(shutil.which, (first, "g++", "clang++")))
    return list({os.path.realpath(path): path for path in paths}.values())


def check(compiler, standard, headers, folders):
    """Returns what the compiler says against the headers."""
    command = [compiler, f"-std={standard}", *FLAGS, *(f"-I{folder}" for folder in folders), "-xc++", "-"]
    source = "".join(f"#include <{header}>\n" for header in headers)
    done = subprocess.run(command, input=source * 2, capture_output=True, text=True)
    if done.returncode == 0:
        return ""
    return f"{compiler} -std={standard} refuses {', '.join(headers)}:\n{done.stderr}"


def main():
    headers = pathlib.Path(sys.argv[1]).read_text(encoding="utf-8").split()
    tasks = [(sys.argv[2], STANDARDS[0], [header]) for header in headers]
    tasks += [(compiler, standard, headers) for compiler in compilers(sys.argv[2]) for standard in STANDARDS]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        problems = [problem for problem in
                    pool.map(lambda task: check(*task, sys.argv[3:]), tasks) if problem]
    print("\n".join(problems))
    print(f"{len(headers)} headers, {len(tasks)} compilations, {len(problems)} refused")
    return 1 if problems or not headers else 0


if __name__ == "__main__":
    sys.exit(main())
