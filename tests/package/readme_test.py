"""Checks that the code on the first page is the example that is built and run, and that the page's
links lead to files."""

import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
page = (root / "README.md").read_text(encoding="utf-8")
example = (root / "examples/quick_start.cpp").read_text(encoding="utf-8")
errors = []
shown = re.search(r"```cpp\n(.*?)```", page, re.DOTALL).group(1).strip()
if shown not in example:
    errors.append("README.md shows other code than examples/quick_start.cpp")
for document in [root / "README.md", *sorted((root / "docs").glob("*.md"))]:
    prose = re.sub(r"```.*?```", "", document.read_text(encoding="utf-8"), flags=re.DOTALL)
    for link in re.findall(r"\]\(([^)#:]+)\)", prose):
        if not (document.parent / link).exists():
            errors.append(f"{document.name} links to {link}, which isn't there")
print("\n".join(errors))
sys.exit(1 if errors else 0)
