"""Checks that the code on the first page is the example that is built and run, that the guide's recipe
for a store is what the host of the installed kit does, and that links lead to files."""

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
guide = (root / "docs/guide.md").read_text(encoding="utf-8")
host = (root / "tests/package/installed/kit_host.cpp").read_text(encoding="utf-8")
recipe = re.search(r"## A store\n.*?```cpp\n(.*?)```", guide, re.DOTALL).group(1).strip()
if recipe not in host.replace("\n  ", "\n"):
    errors.append("docs/guide.md shows another store than tests/package/installed/kit_host.cpp")
for document in [root / "README.md", *sorted((root / "docs").glob("*.md"))]:
    prose = re.sub(r"```.*?```", "", document.read_text(encoding="utf-8"), flags=re.DOTALL)
    for link in re.findall(r"\]\(([^)#:]+)\)", prose):
        if not (document.parent / link).exists():
            errors.append(f"{document.name} links to {link}, which isn't there")
print("\n".join(errors))
sys.exit(1 if errors else 0)
