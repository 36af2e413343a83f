#!/usr/bin/env python3
"""Compares the binary interface of the libraries with golden lists.

Usage: golden.py symbols LIBRARY GOLDEN [--write]
       golden.py virtuals SOURCE_ROOT GOLDEN [--write]
       golden.py tables LIBRARY... GOLDEN

`symbols` lists the demangled names that the shared library exports. `virtuals` lists the virtual
functions of all polymorphic classes in public headers, in the order of their declaration, which
is their order in the virtual table. With --write the golden list is written anew. `tables` checks
that the golden list of `virtuals` has every class whose virtual table the libraries export.
"""

import difflib
import pathlib
import re
import subprocess
import sys

# Mangled: functions and const functions, tables, type information, thunks and guards of our
# namespaces, and the hash functions.
OWN_NAME = re.compile(
    r"_Z(T[VTIS]|Thn\d+_|Tv0_n\d+_|GV)?NK?(6TalVcs|11TalPlatform|8TalUtils)"
    r"|_ZNKSt4hashIN(6TalVcs|11TalPlatform)"
)

# The folders of the libraries.
LIBRARIES = ("talvcs", "kit", "stores")

COMMENT_OR_LITERAL = re.compile(
    r"//[^\n]*|/\*.*?\*/|\"(?:\\.|[^\"\\])*\"|'(?:\\.|[^'\\])'", re.DOTALL)
DIRECTIVE = re.compile(r"^[ \t]*#(?:\\\n|[^\n])*", re.MULTILINE)
NAMESPACE = re.compile(r"\bnamespace\s+([\w:]+)\s*$")
CLASS = re.compile(
    r"(?<!enum )\b(?:class|struct)\s+(?:\[\[\w+\]\]\s*)?(?:\w+_API\s+)?(\w+)\b([^;{}]*)$")
VIRTUAL = re.compile(r"\b(virtual|override|final)\b")


def exported(library, *options):
    """Returns the names that the library exports, each once."""
    command = ["nm", "-D", "--defined-only", *options, library]
    listing = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    return sorted({line.split(maxsplit=2)[2] for line in listing.splitlines()})


def is_template_instance(name):
    """Returns whether a template made the function: its demangled name begins with its result."""
    if re.match(r"(vtable|typeinfo|typeinfo name|VTT|guard variable) for ", name):
        return False
    depth = 0
    for position, character in enumerate(name):
        if character in "<>":
            depth += {"<": 1, ">": -1}[character]
        elif depth == 0 and character in "( ":
            return character == " " and not name[:position].endswith("operator")
    return False


def symbols(library):
    mangled = exported(library)
    foreign = [name for name in mangled if not OWN_NAME.match(name)]
    if foreign or not mangled:
        sys.exit("\n".join(["exported, and not the library's own:"] + foreign))
    # Whether an instance of a private template exists is up to the optimiser, and no host calls one.
    return [name for name in exported(library, "-C") if not is_template_instance(name)]


def classes_in(text):
    """Yields for each class defined in a header its qualified name, the rest of its head, and its body
    with each block in it replaced by a semicolon."""
    text = DIRECTIVE.sub("", COMMENT_OR_LITERAL.sub("", text))
    scopes = [["namespace", "", "", ""]]  # kind, qualified name, rest of the head, text so far
    for character in text:
        if character == "{":
            head = re.split(r"[;}]", scopes[-1][3])[-1]
            namespace, definition = NAMESPACE.search(head), CLASS.search(head)
            found = namespace or definition
            kind = "namespace" if namespace else "class" if definition else "block"
            if found:
                scopes[-1][3] = scopes[-1][3][: len(scopes[-1][3]) - len(head)]
            name = "::".join(filter(None, (scopes[-1][1], found.group(1) if found else "")))
            scopes.append([kind, name, definition.group(2).strip() if definition else "", ""])
        elif character == "}":
            kind, name, rest, body = scopes.pop()
            scopes[-1][3] += ";"
            if kind == "class":
                yield name, rest, body
        else:
            scopes[-1][3] += character


def virtual_functions(body):
    """Yields the declarations of a class body that say `virtual`, `override` or `final`."""
    for declaration in body.split(";"):
        declaration = " ".join(re.sub(r"\b(public|protected|private):", "", declaration).split())
        declaration = declaration.replace("( ", "(")
        if VIRTUAL.search(declaration):
            yield declaration


def public_headers(root):
    """Yields the headers of the libraries that don't stand in internal/: these are installed."""
    for folder in LIBRARIES:
        for path in sorted((pathlib.Path(root) / folder).rglob("*.h")):
            if "internal" not in path.parts:
                yield path


def virtuals(root):
    found = {}
    for path in public_headers(root):
        for name, rest, body in classes_in(path.read_text(encoding="utf-8")):
            found[name] = (" ".join(rest.split()), list(virtual_functions(body)))

    def is_polymorphic(name):
        rest, functions = found[name]
        bases = re.findall(r"\w+", rest.partition(":")[2])
        return bool(functions) or re.search(r"\bstd::\w*(exception|error)\b", rest) or any(
            is_polymorphic(other) for other in found
            if other != name and other.rpartition("::")[2] in bases)

    lines = []
    for name in sorted(filter(is_polymorphic, found)):
        rest, functions = found[name]
        lines.append(f"{name} {rest}".strip())
        lines += [f"  {function}" for function in functions]
    return lines


def check_tables(libraries, golden):
    """Prints the classes whose virtual tables are exported and that the golden list lacks."""
    lines = pathlib.Path(golden).read_text(encoding="utf-8").splitlines()
    listed = {line.split()[0] for line in lines if not line.startswith(" ")}
    tables = {name.removeprefix("vtable for ") for library in libraries
              for name in exported(library, "-C") if name.startswith("vtable for ")}
    lacking = sorted(tables - listed)
    print("\n".join(lacking + [f"{len(tables)} exported classes, {len(lacking)} not listed"]))
    return 1 if lacking or not tables else 0


def main():
    arguments = [argument for argument in sys.argv[2:] if argument != "--write"]
    kind, sources, golden = sys.argv[1], arguments[:-1], arguments[-1]
    if kind == "tables":
        return check_tables(sources, golden)
    lines = {"symbols": symbols, "virtuals": virtuals}[kind](*sources)
    golden = pathlib.Path(golden)
    if "--write" in sys.argv:
        golden.write_text("\n".join(lines) + "\n", encoding="utf-8")
        return 0
    expected = golden.read_text(encoding="utf-8").splitlines()
    difference = list(difflib.unified_diff(expected, lines, "golden", "built", lineterm="", n=0))
    if difference:
        print("\n".join(difference))
        print("The binary interface has changed. If that is meant: ./dev abi")
        return 1
    print(f"{len(lines)} lines, as in {golden.name}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
