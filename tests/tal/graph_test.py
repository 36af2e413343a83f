"""Drawings of the history."""

import os
import pty
import re
import subprocess
import unittest
import xml.etree.ElementTree

from support import DIFFERS, PROGRAM, USAGE, TalTest

SVG = "{http://www.w3.org/2000/svg}"
HARD_TEXT = "cut <here> & \"there\" ü 日本語 " + "long " * 30


class GraphTest(TalTest):
    def setUp(self):
        super().setUp()
        self.tal("init")
        self.commit("First", a="1")
        self.tal("switch", "-c", "side <&>")
        self.commit(HARD_TEXT, b="2")
        self.tal("switch", "master")
        self.commit("Second", a="2")


class Text(GraphTest):
    def graph(self):
        """Returns the drawing without ids, texts and times."""
        lines = self.tal("log", "--graph").splitlines()
        return [re.sub(r"  ?[0-9a-f]{7,} .*", "", line).rstrip() for line in lines]

    def test_branches_are_drawn(self):
        # Which tip stands above depends on whether a second has passed between the commits.
        self.assertIn(self.graph(), [["●", "│ ●", "├─╯", "○"], ["  ●", "● │", "├─╯", "○"]])

    def test_without_utf8_it_is_drawn_in_ascii(self):
        self.environment["LC_ALL"] = "C"
        self.assertEqual(self.graph()[-2:], ["|-'", "*"])

    def test_a_limit_cuts_it(self):
        self.assertEqual(len(self.tal("log", "--graph", "-n", "2").splitlines()), 2)

    def test_one_branch_alone_is_a_line(self):
        lines = self.tal("log", "--graph", "master").splitlines()
        self.assertEqual(len(lines), 2)


class Svg(GraphTest):
    def test_it_is_xml_and_says_what_there_is(self):
        root = xml.etree.ElementTree.fromstring(self.run_tal("graph", "--svg").stdout)
        self.assertEqual(root.tag, SVG + "svg")
        texts = [element.text for element in root.iter(SVG + "text")]
        self.assertIn("folder: 3 commits, 2 branches", texts)
        for text in ("master", "side <&>", "First", "Second", self.head()[:10]):
            self.assertIn(text, texts)
        cut = [text for text in texts if text.startswith("cut <here> & \"there\" ü 日本語")]
        self.assertEqual(len(cut), 1)
        self.assertTrue(cut[0].endswith("…"))
        self.assertLess(len(cut[0]), 80)

    def test_each_branch_has_its_colour(self):
        root = xml.etree.ElementTree.fromstring(self.run_tal("graph", "--svg").stdout)
        self.assertEqual(len({path.get("stroke") for path in root.iter(SVG + "path")}), 2)

    def test_texts_that_xml_cannot_hold_do_no_harm(self):
        self.write("c", "3")
        self.tal("commit", "-m", b"bell \a escape \x1b[31m surrogate \xed\xa0\x80")
        xml.etree.ElementTree.fromstring(self.run_tal("graph", "--svg").stdout)

    def test_an_empty_history_is_an_empty_picture(self):
        other = self.scratch / "other"
        other.mkdir()
        self.tal("init", folder=other)
        xml.etree.ElementTree.fromstring(self.run_tal("graph", "--svg", folder=other).stdout)

    def test_it_can_be_written_to_a_file(self):
        self.tal("graph", "--svg", "-o", str(self.scratch / "graph.svg"))
        self.assertEqual((self.scratch / "graph.svg").read_bytes(),
                         self.run_tal("graph", "--svg").stdout)
        self.tal("graph", "--svg", "-o", str(self.scratch / "no/such/folder"), code=DIFFERS)
        for arguments in ([], ["--svg", "--json"]):
            self.tal("graph", *arguments, "-o", str(self.scratch / "other"), code=USAGE)
        self.assertFalse((self.scratch / "other").exists())


class Dot(GraphTest):
    def test_it_has_a_node_a_commit_and_an_edge_a_parent(self):
        text = self.tal("graph", "--dot")
        self.assertTrue(text.startswith("digraph history {\n"))
        self.assertEqual(len(re.findall(r"^  \"[0-9a-f]{64}\" \[label=", text, re.M)), 3)
        self.assertEqual(len(re.findall(r"^  \"[0-9a-f]{64}\" -> \"", text, re.M)), 2)
        self.assertIn('\\"there\\"', text)

    def test_two_forms_at_once_are_wrong_usage(self):
        self.tal("graph", "--dot", "--svg", code=USAGE)


class OnATerminal(GraphTest):
    """On a terminal there is colour, unless it isn't wanted."""

    def on_terminal(self, *arguments):
        ours, theirs = pty.openpty()
        process = subprocess.Popen([PROGRAM, *arguments], cwd=self.folder, stdout=theirs,
                                   stderr=subprocess.PIPE, env=self.environment)
        os.close(theirs)
        output = b""
        while True:
            try:
                part = os.read(ours, 65536)
            except OSError:
                break
            if not part:
                break
            output += part
        os.close(ours)
        process.communicate()
        return output

    def test_colour(self):
        self.assertIn(b"\x1b[33m", self.on_terminal("log"))

    def test_no_color(self):
        self.environment["NO_COLOR"] = "1"
        self.assertNotIn(b"\x1b", self.on_terminal("log"))

    def test_json_has_no_colour(self):
        self.assertNotIn(b"\x1b", self.on_terminal("log", "--json"))


if __name__ == "__main__":
    unittest.main()
