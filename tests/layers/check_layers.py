#!/usr/bin/env python3
"""Checks that every #include points the way that the architecture allows.

Usage: check_layers.py SOURCE_ROOT INSTALLED_HEADERS_FILE

The second argument names a file that lists the installed headers, one a line, relative to the
include root. Prints one line for each include that is not allowed; exits with 1 if there is one.
"""

import pathlib
import re
import sys

# Which folders a folder of talvcs/ may include, itself apart. The order is that of the layers, the
# lowest first.
BELOW = {
    "foundation": set(),
    "format": {"foundation"},
    "directory": {"foundation", "format"},
    "objects": {"foundation", "format", "directory"},
    "storage": {"foundation", "format", "directory", "objects"},
    "merge": {"foundation", "directory", "objects"},
    "repository": {"foundation", "objects", "storage", "merge"},
    "persistence": {"foundation", "format", "objects", "storage", "merge", "repository"},
}

# The headers of a higher layer that a folder may include all the same. An entry of a directory is a
# handle on an object, whose id is in its record, and subtrees are reached through their trees.
EXCEPTIONS = {
    "directory": {
        "talvcs/objects/id.h",
        "talvcs/objects/object.h",
        "talvcs/objects/tree.h",
        "talvcs/objects/internal/tree_access.h",
    },
}

# The abstract interface that the lower layers work against, and what it may include itself.
INTERFACE = "talvcs/repository/irepository.h"
INTERFACE_USERS = {"objects", "merge"}
INTERFACE_INCLUDES = {"talvcs/objects/id.h"}

# Headers of no layer: every file may include these.
COMMON = {"talvcs/export.h", "talvcs/version.h"}
UMBRELLA = "talvcs/talvcs.h"

OUR_FOLDERS = {"talvcs", "kit", "examples", "tests", "bench", "fuzz"}
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)


def includes_of(root, path):
    """Yields the files of this project that `path` includes, relative to the root."""
    for mark, name in INCLUDE.findall((root / path).read_text(encoding="utf-8")):
        beside = pathlib.PurePosixPath(path).parent / name
        if name.split("/")[0] in OUR_FOLDERS:
            yield name
        elif mark == '"':
            yield str(beside)


def layer_of(path):
    parts = path.split("/")
    return parts[1] if parts[0] == "talvcs" and len(parts) > 2 else None


def library_problem(path, included):
    """Says what is wrong with an include in talvcs/, or returns None."""
    if not included.startswith("talvcs/"):
        return "the library includes nothing outside talvcs/"
    if included in COMMON or path == UMBRELLA:
        return None
    layer, below = layer_of(path), layer_of(included)
    if included == UMBRELLA:
        return "the umbrella header is for hosts"
    if path == INTERFACE:
        allowed = below == "foundation" or included in INTERFACE_INCLUDES
        return None if allowed else "the interface includes the foundation and objects/id.h alone"
    if included == INTERFACE and layer in INTERFACE_USERS:
        return None
    if included in EXCEPTIONS.get(layer, set()):
        return None
    if below == layer or below in BELOW.get(layer, set()):
        return None
    return f"{layer or 'the top'} must not include {below or 'the top'}"


def place_problem(path, installed):
    """Says what is wrong with the place of a header, or returns None."""
    if not path.endswith(".h") or path.split("/")[0] not in ("talvcs", "kit"):
        return None
    private = "/internal/" in path
    if private and path in installed:
        return "an installed header stands in internal/"
    if not private and path not in installed:
        return "a header that is not installed stands outside internal/"
    return None


def problem(path, included, installed):
    top = path.split("/")[0]
    if included.startswith(("talvcs/", "kit/")) and included not in installed:
        if path in installed:
            return "an installed header includes one that is not installed"
        if top in ("kit", "examples") and not (top == "kit" and included.startswith("kit/")):
            return "a host includes a header that is not installed"
    if top == "talvcs":
        return library_problem(path, included)
    if top == "kit" and included.split("/")[0] not in ("talvcs", "kit"):
        return "the companion library includes itself and talvcs/ only"
    return None


def main():
    root = pathlib.Path(sys.argv[1])
    installed = set(pathlib.Path(sys.argv[2]).read_text(encoding="utf-8").split())
    files = includes = 0
    problems = []
    for top in ("talvcs", "kit", "examples"):
        for found in sorted((root / top).rglob("*")):
            if found.suffix not in (".h", ".cpp"):
                continue
            path = found.relative_to(root).as_posix()
            files += 1
            wrong = place_problem(path, installed)
            if wrong:
                problems.append(f"{path}: {wrong}")
            for included in includes_of(root, path):
                includes += 1
                wrong = problem(path, included, installed)
                if wrong:
                    problems.append(f"{path} includes {included}: {wrong}")
    print("\n".join(problems + [f"{files} files, {includes} includes, {len(problems)} not allowed"]))
    if not includes:
        print("nothing was checked")
    return 1 if problems or not includes else 0


if __name__ == "__main__":
    sys.exit(main())
