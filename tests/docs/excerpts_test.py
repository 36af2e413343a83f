"""Checks that each piece of C++ code of a page is a piece of a program.

Usage: excerpts_test.py PAGE PROGRAM
"""

import pathlib
import re
import sys

page = pathlib.Path(sys.argv[1]).read_text(encoding="utf-8")
program = pathlib.Path(sys.argv[2]).read_text(encoding="utf-8")
blocks = re.findall(r"^```cpp\n(.*?)^```$", page, re.DOTALL | re.MULTILINE)
# A block may show functions that are apart in the program.
functions = [part + "\n}\n" for block in blocks for part in block.split("\n}\n") if part.strip()]
if not functions:
    sys.exit(f"{sys.argv[1]} shows no code")
for function in functions:
    if function.lstrip("\n") not in program:
        sys.exit(f"{sys.argv[1]} shows what is not in {sys.argv[2]}:\n{function}")
