"""Checks that the program on the first page is examples/quick_start.cpp."""

import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
page = (root / "README.md").read_text(encoding="utf-8")
shown = re.search(r"```cpp\n(.*?)```", page, re.DOTALL).group(1)
example = (root / "examples/quick_start.cpp").read_text(encoding="utf-8")
if not example.endswith(shown):
    sys.exit("README.md shows other code than examples/quick_start.cpp")
