"""The page of `tal report` in a headless Chromium: selecting, filtering, comparing, without a script.

With the name of a folder in TAL_REPORT_PICTURES, it makes the folder and writes pictures of the page there.
"""

import os
import pathlib
import unittest

import garden
from browser import Browser
from report_test import DIRECTION, HOSTILE
from support import TalTest


class ReportInBrowser(TalTest):
    @classmethod
    def setUpClass(cls):
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.end)

    def setUp(self):
        super().setUp()
        self.tal("init")
        self.pictures = os.environ.get("TAL_REPORT_PICTURES")
        if self.pictures:
            pathlib.Path(self.pictures).mkdir(parents=True, exist_ok=True)

    def show(self, *options, script=True, scheme="light"):
        self.tal("report", "../page.html", *options)
        self.browser.use_scripts(script)
        self.browser.use_colours(scheme)
        self.browser.open(self.scratch / "page.html")

    def garden(self, **how):
        self.tal("import-git", answers=garden.stream())
        self.show("--title", "Garden", **how)

    def texts(self, selector):
        """Returns the texts of the elements that a user sees."""
        return self.browser.run("return [...document.querySelectorAll(arguments[0])]"
                                ".filter((one) => one.checkVisibility()).map((one) => one.innerText)", selector)

    def fill(self, name, value):
        self.browser.run("const field = document.getElementById(arguments[0]); field.value = arguments[1];"
                         "field.dispatchEvent(new Event('input', { bubbles: true }))", name, value)

    def select(self, summary):
        self.browser.run("[...document.querySelectorAll('#versions a')]"
                         ".find((one) => one.innerText.includes(arguments[0])).click()", summary)

    def compare(self, before, after):
        self.browser.run("""
            for (const [id, text] of [["from", arguments[0]], ["to", arguments[1]]]) {
              const list = document.getElementById(id);
              list.value = [...list.options].find((one) => one.text.includes(text)).value;
            }
            document.querySelector("#pick button").click()""", before, after)

    def picture(self, name):
        if not self.pictures:
            return
        for scheme in ("light", "dark"):
            self.browser.use_colours(scheme)
            self.browser.screenshot(pathlib.Path(self.pictures) / f"{name}-{scheme}.png")

    def test_selects_a_version(self):
        self.garden()
        self.assertEqual(self.texts("#changes h3"), ["Pave the path and widen the house"])
        self.picture("report-history")
        self.select("Level the ground")
        self.assertEqual(self.texts("#changes h3"), ["Level the ground"])
        self.assertEqual(self.texts("#changes summary code"), ["terrain.bin"])
        self.assertIn("20 20 20", self.texts("#changes pre")[1])
        self.select("Move the notes")
        self.assertEqual(self.texts("#changes .kind"), ["MOVED AND CHANGED"])
        self.assertEqual(self.texts("#changes .add mark"), ["the ", "-west"])
        self.select("Try winter colours")
        self.assertEqual(self.browser.run("return [...document.querySelectorAll('article.on img')]"
                                          ".map((one) => one.naturalWidth)"), [100, 100])
        self.assertEqual(self.browser.messages(), [])

    def test_filters_by_text_author_branch_and_path(self):
        self.garden()
        self.fill("text", "POND")
        self.assertEqual(len(self.texts("#versions li")), 2)
        self.assertEqual(self.texts("#count"), ["2 of 10 versions"])
        self.fill("text", "")
        self.fill("author", "Bo Meyer")
        self.assertEqual(len(self.texts("#versions li")), 3)
        self.fill("branch", "pond")
        self.assertEqual(len(self.texts("#versions li")), 1)
        self.fill("author", "")
        self.assertEqual(len(self.texts("#versions li")), 5)
        self.fill("path", "outline")
        self.assertEqual(len(self.texts("#versions li")), 2)
        self.fill("branch", "master")
        self.fill("path", "")
        self.assertEqual(len(self.texts("#versions li")), 8)

    def test_compares_any_two_versions(self):
        self.garden()
        self.compare("Draw a house", "Pave the path")
        self.assertEqual(self.texts("#result > p"), ["4 files differ."])
        self.assertEqual(self.texts("#result summary code"),
                         ["docs/notes.md", "picture.png", "plan.json", "terrain.bin"])
        self.assertEqual(self.texts("#result .kind")[0], "MOVED AND CHANGED")
        self.assertEqual(self.texts("#result .del mark"), ["morning", "10", "5", "false"])
        self.assertEqual(self.texts("#result .add mark"), ["the ", "-west", "second evening", "14", "6",
                                                            'true, "snow": 12'])
        self.assertEqual(self.browser.run("return [...document.querySelectorAll('#result img')]"
                                          ".map((one) => one.naturalWidth)"), [100, 100])
        self.browser.run("document.getElementById('compare').scrollIntoView()")
        self.picture("report-compare")
        self.compare("Deepen the pond", "Level the ground")
        self.assertEqual(self.texts("#result .kind"), ["REMOVED", "REMOVED"])
        self.compare("Draw a house", "Draw a house")
        self.assertEqual(self.texts("#result > p"), ["The two versions have the same files."])
        self.assertEqual(self.browser.messages(), [])

    def test_its_comparison_agrees_with_the_lines_of_random_edits(self):
        lines = [f"line {number % 17} of {number % 5}" for number in range(120)]
        self.write("f", "\n".join(lines) + "\n")
        self.tal("commit", "-m", "one")
        changed = lines[10:40] + ["new"] + lines[45:90:2] + lines[60:] + ["end"]
        self.write("f", "\n".join(changed))
        self.tal("commit", "-m", "two")
        self.show()
        self.compare("one", "two")
        sides = self.browser.run("""return [0, 2].map((at) => [...document.querySelectorAll("#result tr")]
            .filter((row) => row.cells.length === 4 && row.cells[at].innerText)
            .map((row) => row.cells[at + 1].innerText))""")
        hidden = self.browser.run("""return [...document.querySelectorAll("#result .gap")]
            .reduce((sum, row) => sum + Number.parseInt(row.innerText), 0)""")
        self.assertEqual(len(sides[0]) + hidden, len(lines))
        self.assertEqual(len(sides[1]) + hidden, len(changed))
        self.assertEqual(sides[1][-1], "end")

    def test_can_be_read_without_the_script(self):
        self.garden(script=False)
        self.browser.use_scripts(True)
        self.assertFalse(self.browser.run("return document.documentElement.classList.contains('script')"))
        self.assertEqual(self.texts("form"), [])
        self.assertEqual(len(self.texts("#changes h3")), 10)
        self.assertIn("Whole.", self.texts("#check p")[0])
        self.assertEqual(len(self.texts("#branches tbody tr")), 4)

    def test_hostile_contents_run_nothing(self):
        self.write("f" + HOSTILE.replace("/", "\u2215"), HOSTILE + "\n" + DIRECTION)
        self.tal("commit", "-m", HOSTILE + DIRECTION, "--author", "Eve")
        self.write("f" + HOSTILE.replace("/", "\u2215"), HOSTILE)
        self.tal("commit", "-m", "next")
        self.show("--title", HOSTILE)
        self.compare(HOSTILE[:20], "next")
        self.assertEqual(self.browser.messages(), [])
        self.assertEqual(self.browser.run("return document.querySelectorAll('img').length"), 0)
        self.assertEqual(self.browser.run("return document.scripts.length"), 2)
        self.assertIn(HOSTILE, self.texts("#result td"))
        self.assertIn("U+202E", "".join(self.texts("#result .u")))
        self.assertEqual(self.browser.run("document.body.setAttribute('onclick', 'window.ran = true');"
                                          "document.body.click(); return window.ran === true"), False)
        self.assertIn("Content Security Policy", self.browser.messages()[0])


if __name__ == "__main__":
    unittest.main()
