#!/usr/bin/env python3
"""Works out, from the format alone, what fixed_store_test.cpp must save.

Prints the number of streams and the digest. With the test's path as argument, checks that both
stand in it.
"""

import hashlib
import sys

streams = {}


def put(kind, data):
    packed = kind.encode() + b" %d\0" % len(data) + data
    name = hashlib.sha256(packed).hexdigest()
    streams["doc/.vcs/objects/" + name[:2] + "/" + name[2:]] = packed
    return name


def tree(entries):
    """A tree of a dictionary: bytes are blobs, dictionaries are subtrees."""
    data = b""
    for name in sorted(entries, key=lambda name: name.encode("utf-16-be")):
        value = entries[name]
        if isinstance(value, dict):
            mode, kind, child = b"40000", b"tree", tree(value)
        else:
            mode, kind, child = b"100644", b"blob", put("blob", value)
        data += mode + b" " + kind + b" " + name.encode() + b"\0" + child.encode()
    return put("tree", data)


AUTHOR = "Zo\u00eb \u0410\u043d\u043d\u0430 \U0001f600 <zoe@example.org>"


def commit(root, parent, description, seconds, zone, author=AUTHOR):
    text = f"tree {root}\n"
    if parent:
        text += f"parent {parent}\n"
    text += f"author {author} {seconds} {zone}\n"
    text += f"committer {author} {seconds} {zone}\n"
    text += f"\n{description}\n"
    return put("commit", text.encode())


def branch(name, head):
    streams["doc/.vcs/refs/heads/" + name] = head.encode()


SMILE = {"\uff5e.txt": b"tilde", "\U0001f600.txt": b"smile"}
TOPIC = {"topic": {"\u00fc.txt": b"topic"}}
ALL_BYTES = bytes(range(256))

imported = tree(
    {"readme.txt": b"Hello\r\n", "src": {"core": {"all.bin": ALL_BYTES}, "empty": b""}, "docs": SMILE}
)
edited = tree({"readme.txt": b"Hello from master\n", "src": {"empty": b""}, "docs": SMILE})
topic = tree(
    {
        "readme.txt": b"Hello from topic\n",
        "src": {"core": {"all.bin": ALL_BYTES}, "empty": b""},
        "docs": SMILE | TOPIC,
    }
)
merged = tree({"readme.txt": b"Hello from master\n", "src": {"empty": b""}, "docs": SMILE | TOPIC})


def import_commit(parent):
    return commit(imported, parent, "Import", 1_000_000_000, "+0530")


# The topic stays on the commits of old; the master's and the vendor's get a common root.
branch("th\u00e8me", commit(topic, import_commit(""), "\u00dcber das Thema", 2_147_483_647, "+0030"))

root = commit("", "", "Root commit", 0, "+0000", author=" <>")
branch("root", root)

at = import_commit(root)
at = commit(edited, at, "Take all bytes out\n\nNobody reads them.", -1, "-0930")
branch("master", commit(merged, at, "Merge", 1_700_000_000, "+0000"))

at = commit(tree({"vendor.txt": b"1"}), root, "Vendor 1", 1_700_000_001, "+0100")
branch("vendor", commit(tree({"vendor.txt": b"2"}), at, "Vendor 2", 1_700_000_002, "+1345"))

digest = hashlib.sha256()
for path in sorted(streams, key=str.encode):
    digest.update(path.encode() + b"\0%d\0" % len(streams[path]) + streams[path])

expected = [f"size(), {len(streams)}u)", f'"{digest.hexdigest()}"']
print("\n".join(expected))
if len(sys.argv) > 1:
    with open(sys.argv[1], encoding="utf-8") as test:
        text = test.read()
    sys.exit(0 if all(part in text for part in expected) else "The test expects something else.")
