"""A small history with everything that a report shows: branches, a merge, a picture, bytes, a move."""

import struct
import zlib

START, STEP = 1760000000, 7300
NOTES = ("# Garden\n\nPlant more trees along the path.\nThe house faces south.\nWater every morning.\n\n"
         "- oak\n- birch\n- beech\n")
PLAN = ('{\n  "house": {"width": 10, "height": 8},\n  "tree": {"height": 5},\n'
        '  "path": {"length": 120, "paved": false}\n}\n')
GROWN = PLAN.replace('"height": 5', '"height": 6')
SNOWY = GROWN.replace('"paved": false', '"paved": false, "snow": 12')
WIDE = SNOWY.replace("false", "true").replace('"width": 10', '"width": 14')
MOVED = NOTES.replace("faces south", "faces the south-west")
POND = '<svg xmlns="http://www.w3.org/2000/svg"><ellipse rx="{}" ry="{}"/></svg>\n'
TERRAIN = bytes((i * 7 + i // 16) % 256 for i in range(640))
LEVEL = bytes(32 if 200 <= i < 214 else byte for i, byte in enumerate(TERRAIN))


def png(width, height, colour):
    """Returns a picture; `colour` returns the three bytes of a point."""
    rows = b"".join(b"\0" + b"".join(bytes(colour(x, y)) for x in range(width)) for y in range(height))

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(rows, 9)) +
            chunk(b"IEND", b""))


def house(roof, has_tree):
    def colour(x, y):
        if 30 <= y < 60 and 20 <= x < 60:
            return (110, 70, 40) if 36 <= x < 44 and 44 <= y else (236, 205, 160)
        if 12 <= y < 30 and abs(x - 40) < (y - 10) * 1.3:
            return roof
        if has_tree and (x - 76) ** 2 + (y - 26) ** 2 < 130:
            return (60, 140, 70)
        if has_tree and 30 <= y < 60 and 74 <= x < 78:
            return (110, 70, 40)
        return (110, 170, 90) if y >= 60 else (120 + y, 170 + y // 2, 230)

    return png(100, 72, colour)


class Stream:
    """Writes commits as `git fast-export` does."""

    def __init__(self):
        self.text = b""
        self.marks = {}

    def commit(self, branch, name, message, author, files, parents=(), removed=()):
        self.marks[name] = mark = len(self.marks) + 1
        time = START + STEP * mark
        address = author.split()[0].lower() + "@example.org"
        if not parents:
            self.line(f"reset refs/heads/{branch}")
        self.line(f"commit refs/heads/{branch}\nmark :{mark}")
        for role in ("author", "committer"):
            self.line(f"{role} {author} <{address}> {time} +0200")
        self.data(message.encode() + b"\n")
        for word, parent in zip(("from", "merge"), parents):
            self.line(f"{word} :{self.marks[parent]}")
        for path in removed:
            self.line("D " + path)
        for path, content in files.items():
            self.line("M 100644 inline " + path)
            self.data(content if isinstance(content, bytes) else content.encode())

    def line(self, text):
        self.text += text.encode() + b"\n"

    def data(self, content):
        self.line(f"data {len(content)}")
        self.text += content + b"\n"


def stream():
    """Returns the history as a stream for `tal import-git`."""
    red, snow = (170, 60, 50), (220, 225, 235)
    out = Stream()
    out.commit("master", "a", "Draw a house\n\nThe first sketch, from the photo of last summer.",
               "Ada Lind", {"notes.md": NOTES, "plan.json": PLAN, "picture.png": house(red, False),
                            "terrain.bin": TERRAIN})
    out.commit("master", "b", "Plant a tree beside it", "Ada Lind",
               {"picture.png": house(red, True), "plan.json": GROWN}, "a")
    out.commit("winter", "c", "Try winter colours", "Bo Meyer", {"picture.png": house(snow, True)}, "b")
    out.commit("master", "d", "Level the ground", "Bo Meyer", {"terrain.bin": LEVEL}, "b")
    out.commit("winter", "e", "Snow on the path", "Bo Meyer", {"plan.json": SNOWY}, "c")
    out.commit("pond", "f", "Sketch a pond", "Chiara Rossi", {"pond/outline.svg": POND.format(40, 22)}, "d")
    out.commit("master", "g", "Move the notes into a folder", "Ada Lind", {"docs/notes.md": MOVED}, "d",
               ["notes.md"])
    out.commit("master", "h", 'Merge "winter"', "Ada Lind",
               {"picture.png": house(snow, True), "plan.json": SNOWY}, "ge")
    out.commit("pond", "i", "Deepen the pond", "Chiara Rossi",
               {"pond/outline.svg": POND.format(44, 25), "pond/depth.csv": "x,y,depth\n0,0,1.8\n"}, "f")
    out.commit("master", "j", "Pave the path and widen the house", "Ada Lind",
               {"plan.json": WIDE, "docs/notes.md": MOVED.replace("every morning", "every second evening")},
               "h")
    out.line(f"reset refs/tags/first-draft\nfrom :{out.marks['b']}\n")
    return out.text
