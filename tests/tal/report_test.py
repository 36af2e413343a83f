"""The bytes of the page that `tal report` writes: hostile contents, the policy, the limit."""

import base64
import hashlib
import html.parser
import json
import os
import random
import re
import subprocess
import unittest

from support import DIFFERS, USAGE, TalTest, blob_id

HOSTILE = "<script>alert(1)</script><img src=x onerror=alert(2)>\"'&</script><!--"
DIRECTION = "user\u202e\u2066// \u2069\u200b\x1b[31m\x07"
PNG = base64.b64decode("iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mNk+M9QDwADhgGAWjR9awAAAABJRU5E"
                       "rkJggg==")


class Page(html.parser.HTMLParser):
    """What a browser makes of the page."""

    def __init__(self, text):
        super().__init__(convert_charrefs=True)
        self.tags, self.attributes, self.texts, self.raw = [], [], [], {}
        self.inside = None
        self.open = []
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        self.tags.append(tag)
        self.attributes += [(tag, *pair) for pair in attrs]
        if tag in ("script", "style"):
            self.inside = "data" if dict(attrs).get("id") == "data" else tag
        if tag not in ("meta", "img", "input", "col", "path", "circle", "rect"):
            self.open.append(tag)

    def handle_endtag(self, tag):
        if self.open and self.open[-1] == tag:
            self.open.pop()
        self.inside = None

    def handle_data(self, data):
        if self.inside:
            self.raw[self.inside] = self.raw.get(self.inside, "") + data
        else:
            self.texts.append(data)

    def text(self):
        return "".join(self.texts)

    def data(self):
        return json.loads(self.raw["data"])


class Report(TalTest):
    def page(self, *options):
        self.tal("report", "../page.html", *options)
        self.bytes = (self.scratch / "page.html").read_bytes()
        return Page(self.bytes.decode("utf-8"))

    def hashes(self, text):
        return "'sha256-" + base64.b64encode(hashlib.sha256(text.encode()).digest()).decode() + "'"

    def test_says_what_changed(self):
        self.tal("init")
        self.commit("first\n\nbody of the message", one="a b c\nkept\n", two="gone\n")
        self.write("one.txt", "a B c\nkept\n")
        self.remove("two.txt")
        self.write("picture.png", PNG)
        self.write("bytes", b"\0\1\2hello")
        self.tal("commit", "-m", "second")
        page = self.page()
        text = page.text()
        for said in ("first", "second", "body of the message", "one.txt", "two.txt", "removed",
                     "Ann", "ann@example.org", self.head(), "00 01 02 68", "Whole."):
            self.assertIn(said, text)
        source = self.bytes.decode()
        self.assertIn("a <mark>b</mark> c", source)
        self.assertIn("a <mark>B</mark> c", source)
        self.assertIn(("img", "src", "data:image/png;base64," + base64.b64encode(PNG).decode()),
                      page.attributes)
        self.assertEqual(page.open, [])

    def test_has_the_data_for_every_comparison(self):
        self.tal("init")
        self.commit("first", one="1", two="2")
        self.commit("second", one="11")
        self.remove("two.txt")
        self.tal("commit", "-m", "third")
        data = self.page().data()
        self.assertEqual([row["parent"] for row in data["versions"]], [1, 2, -1])
        self.assertEqual(data["heads"], [["master", 0]])
        self.assertEqual(data["versions"][0]["files"], [["two.txt", -1]])
        [[path, number]] = data["versions"][1]["files"]
        self.assertEqual((path, data["contents"][number]), ("one.txt", ["t", "11"]))
        self.assertEqual({path: data["contents"][number][1] for path, number in data["versions"][2]["files"]},
                         {"one.txt": "1", "two.txt": "2"})

    def test_shows_hostile_names_and_contents_as_text(self):
        self.tal("init")
        name = HOSTILE.replace("/", "\u2215")
        self.write(name, HOSTILE + "\n" + DIRECTION + "\n")
        self.write("bad.txt", b"caf\xe9 \xff\n" + DIRECTION.encode() + b"\nA\tB\n")
        self.write("dir/" + DIRECTION, HOSTILE)
        self.tal("commit", "-m", HOSTILE + "\n\n" + DIRECTION, "--author", "Eve" + DIRECTION,
                 "--email", "e\"e'@&")
        page = self.page("--title", HOSTILE + DIRECTION)
        self.assertEqual([tag for tag in page.tags if tag == "script"], ["script", "script"])
        self.assertNotIn("img", page.tags)
        self.assertFalse([one for one in page.attributes if one[1].startswith("on")])
        self.assertIn(HOSTILE, page.text())
        self.assertIn(name, page.text())
        for character in DIRECTION[4:]:
            if character not in "/ [31m":
                self.assertNotIn(character.encode(), self.bytes)
        for shown in ("U+202E", "U+2066", "U+200B", "U+001B", "U+0007", "\\xE9", "\\xFF"):
            self.assertIn(f"<span class=\"u\">{shown}</span>", self.bytes.decode())
        contents = [content[1] for content in page.data()["contents"]]
        self.assertIn(HOSTILE, contents)
        self.assertIn("caf\udce9 \udcff\n" + DIRECTION + "\nA\tB\n", contents)

    def test_the_policy_allows_the_one_script_and_style_alone(self):
        self.tal("init")
        self.commit("first", one="1")
        page = self.page()
        policy = dict(pair[1:] for pair in page.attributes if pair[0] == "meta")["content"]
        content = [value for tag, name, value in page.attributes if value and "default-src" in value][0]
        self.assertIn("initial-scale", policy)
        self.assertEqual(content.split("; "), [
            "default-src 'none'", "script-src " + self.hashes(page.raw["script"]),
            "style-src " + self.hashes(page.raw["style"]), "img-src data:", "base-uri 'none'",
            "form-action 'none'"])
        self.assertFalse([one for one in page.attributes if one[1] == "style"])
        addresses = [value for _, name, value in page.attributes if name in ("href", "src")]
        self.assertEqual([one for one in addresses if not one.startswith(("#", "data:"))], [])
        self.assertNotIn(b"://", re.sub(rb"(?s)<(script|style)[ >].*?</\1>", b"", self.bytes))

    def test_the_same_history_gives_the_same_bytes(self):
        self.tal("init")
        self.commit("first", one="1")
        self.page()
        first = self.bytes
        self.page()
        self.assertEqual(self.bytes, first)

    def test_keeps_to_the_limit_and_says_what_is_left_out(self):
        self.tal("init")
        block = "".join(f"{number} line of a text\n" for number in range(2500))
        for number in range(6):
            self.commit(f"version {number}", one=block + str(number), two=str(number) * 9)
        page = self.page("--limit", "128")
        self.assertLessEqual(len(self.bytes), 128 << 10)
        self.assertIn("This page is limited to 128.0 KiB.", page.text())
        self.assertRegex(page.text(), r"The contents of \d files? left out")
        self.assertIn("left out", self.talk)
        self.assertIn("version 0", page.text())
        self.tal("report", "../small.html", "--limit", "100", code=USAGE)
        self.assertFalse((self.scratch / "small.html").exists())
        self.assertNotIn("left out", self.page("--limit", "4096").text())

    def test_leaves_out_the_oldest_of_many_versions(self):
        self.tal("init")
        lines = []
        for number in range(400):
            parent = f"from refs/heads/master^0\n" if number else ""
            lines.append(f"commit refs/heads/master\ncommitter A <a@b> {number} +0000\n"
                         f"data <<E\nversion number {number} {'x' * 150}\nE\n{parent}"
                         f"M 644 inline f\ndata <<E\n{number}\nE\n")
        self.tal("import-git", answers="".join(lines).encode())
        page = self.page("--limit", "192")
        self.assertLessEqual(len(self.bytes), 192 << 10)
        listed = page.tags.count("article")
        self.assertIn(f"{400 - listed} older versions left out.", page.text())
        self.assertEqual(page.data()["versions"][listed - 1]["parent"], -1)
        self.assertEqual(page.data()["versions"][listed - 1]["files"][0][0], "f")

    def test_replaces_a_file_and_nothing_else(self):
        self.tal("init")
        self.commit("first", one="1")
        self.page()
        self.assertEqual(self.page().tags.count("article"), 1)
        (self.scratch / "page.html.part").write_text("mine")
        self.page()
        self.assertEqual((self.scratch / "page.html.part").read_text(), "mine")
        # A pipe stays a pipe, and a folder a folder.
        pipe = self.scratch / "pipe"
        os.mkfifo(pipe)
        for command in (["report", str(pipe)], ["export-git", "-o", str(pipe)]):
            with subprocess.Popen(["cat", pipe], stdout=subprocess.PIPE) as reader:
                self.tal(*command)
                self.assertGreater(len(reader.stdout.read()), 100)
            self.assertTrue(pipe.is_fifo())
            self.tal(*command[:-1], str(self.scratch), code=DIFFERS)
            self.assertIn("it is a folder", self.talk)
        self.tal("report", str(self.scratch / "nowhere/page"), code=DIFFERS)
        self.assertIn("No such file or directory", self.talk)
        self.assertEqual({path.name for path in self.scratch.iterdir()},
                         {"folder", "page.html", "page.html.part", "pipe"})

    def test_an_empty_history_has_a_page(self):
        self.tal("init")
        page = self.page()
        self.assertIn("0 versions", page.text())
        self.assertEqual(page.data(), {"heads": [], "versions": [], "contents": []})

    def test_says_what_is_damaged(self):
        self.tal("init")
        self.commit("first", one="1")
        self.write("large", random.Random(5).randbytes(3000))
        self.tal("commit", "-m", "second")
        [pack] = (self.folder / ".vcs").rglob("*.pack")
        damaged = bytearray(pack.read_bytes())
        damaged[len(damaged) // 2] ^= 0xFF
        pack.write_bytes(bytes(damaged))
        text = self.page().text()
        self.assertIn("Damaged. 1 object of 6 can't be read.", text)
        self.assertIn(blob_id(random.Random(5).randbytes(3000)), text)
        self.assertIn("first", text)
        self.assertNotIn("This page is limited", text)


if __name__ == "__main__":
    unittest.main()
