#!/usr/bin/env python3
"""Compares the binary interface of the libraries with golden lists.

Usage: golden.py symbols LIBRARY GOLDEN [--write]
       golden.py virtuals SOURCE_ROOT GOLDEN [--write]

`symbols` lists the demangled names that the shared library exports. `virtuals` lists the virtual
functions of the classes that hosts implement or call through, in the order of their declaration,
which is their order in the virtual table. With --write the golden list is written anew.
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

CLASSES = {
    "talvcs/objects/object.h": ["IObject", "Object"],
    "talvcs/storage/objects_storage.h": ["IObjectsStorage"],
    "talvcs/repository/irepository.h": ["IRepository"],
    "talvcs/persistence/blob_io.h": ["IBlobWriter", "IBlobReader"],
    "talvcs/persistence/serializer.h": ["Serializer"],
    "talvcs/persistence/deserializer.h": ["Deserializer"],
    "kit/directory_store.h": ["DirectoryStore"],
    "kit/memory_store.h": ["MemoryStore"],
    "kit/store/blobs_as_object_store.h": ["BlobsAsObjectStore"],
    "kit/store/directory_object_store.h": ["DirectoryObjectStore"],
    "kit/store/memory_object_store.h": ["MemoryObjectStore"],
    "kit/store/object_store.h": ["IObjectStore"],
    "kit/store/object_store_as_blobs.h": ["ObjectStoreAsBlobs"],
}


def exported(library, *options):
    """Returns the names that the library exports, each once."""
    command = ["nm", "-D", "--defined-only", *options, library]
    listing = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    return sorted({line.split(maxsplit=2)[2] for line in listing.splitlines()})


def is_template_instance(name):
    """Tells a function made of a template, whose demangled name begins with the result's type."""
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


def class_text(text, name):
    """Returns the head of the class and its body, without the braces around it."""
    start = re.search(rf"^class (?:\w+_API )?{name}\b([^;{{]*){{", text, re.MULTILINE)
    if not start:
        sys.exit(f"no class {name} found")
    depth, end = 1, start.end()
    while depth:
        depth += {"{": 1, "}": -1}.get(text[end], 0)
        end += 1
    return name + " " + start.group(1).strip(), text[start.end() : end - 1]


def virtual_functions(body):
    """Yields the declarations of a class body that say `virtual`, `override` or `final`."""
    body = re.sub(r"{[^{}]*}", ";", body)
    for declaration in body.split(";"):
        declaration = " ".join(re.sub(r"\b(public|protected|private):", "", declaration).split())
        declaration = declaration.replace("( ", "(")
        if re.search(r"\b(virtual|override|final)\b", declaration):
            yield declaration


def virtuals(root):
    lines = []
    for header, names in CLASSES.items():
        text = (pathlib.Path(root) / header).read_text(encoding="utf-8")
        text = re.sub(r"//[^\n]*", "", text)
        for name in names:
            head, body = class_text(text, name)
            lines.append(head.strip())
            functions = list(virtual_functions(body))
            if not functions:
                sys.exit(f"no virtual function of {name} found")
            lines += [f"  {function}" for function in functions]
    return lines


def main():
    kind, source, golden = sys.argv[1:4]
    lines = {"symbols": symbols, "virtuals": virtuals}[kind](source)
    golden = pathlib.Path(golden)
    if "--write" in sys.argv[4:]:
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
