"""Tests of the search for dead links."""

import pathlib
import tempfile
import unittest

import links


class Links(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name).resolve()
        (self.root / "docs").mkdir()

    def write(self, name, text):
        (self.root / name).write_text(text, encoding="utf-8")

    def dead_in_markdown(self):
        return [link for _, link in links.dead_markdown_links(self.root)]

    def dead_in_site(self):
        return [link for _, link in links.dead_site_links(self.root)]

    def test_accepts_files_headings_and_other_hosts(self):
        self.write("docs/other.md", "# Other\n\n## What's new, too\n")
        self.write("README.md", "[a](docs/other.md) [b](docs/other.md#whats-new-too) [c](#first)\n"
                                "[d](https://example.org/none)\n\n# First\n")
        self.assertEqual(self.dead_in_markdown(), [])

    def test_reports_missing_file_and_missing_heading(self):
        self.write("docs/other.md", "[up](../README.md#none) ![picture](none.svg)\n")
        self.write("README.md", "[a](docs/none.md)\n")
        self.assertEqual(self.dead_in_markdown(),
                         ["docs/none.md", "../README.md#none", "none.svg"])

    def test_reports_missing_source_path(self):
        self.write("docs/other.md", "`docs/other.md`, `docs/`, `docs/none.md`, `docs/TARGET`\n")
        self.assertEqual(self.dead_in_markdown(), ["docs/none.md"])

    def test_ignores_code_in_markdown(self):
        self.write("README.md", "`f[0](x)`\n\n```cpp\nauto f = [](none) {};\n```\n")
        self.assertEqual(self.dead_in_markdown(), [])

    def test_reports_missing_page_and_anchor_of_site(self):
        self.write("index.html", '<a href="page.html#there"></a><a href="page.html#gone"></a>'
                                 '<img src="gone.svg"/><a href="https://example.org/"></a>')
        self.write("page.html", '<h1 id="there"></h1>')
        self.assertEqual(self.dead_in_site(), ["page.html#gone", "gone.svg"])

    def test_reports_site_without_pages(self):
        self.assertEqual(self.dead_in_site(), ["no page at all"])


if __name__ == "__main__":
    unittest.main()
