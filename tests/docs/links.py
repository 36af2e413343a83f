#!/usr/bin/env python3
"""Finds dead links.

    links.py markdown ROOT    among the Markdown documents of the project: links, and paths of sources
    links.py site FOLDER      in the built site

A link to another host is not followed. Exits with 1 and a line for each dead link.
"""

import html.parser
import pathlib
import re
import sys
import urllib.parse

LINK = re.compile(r"!?\[[^\]]*\]\(([^)\s]+)\)")
CODE = re.compile(r"^```.*?^```$|`[^`\n]*`|^<!--.*?-->$", re.DOTALL | re.MULTILINE)
SOURCE_PATH = re.compile(
    r"`((?:bench|cmake|docs|examples|fuzz|kit|stores|talvcs|tests)/[a-z0-9_./-]*)`")
HEADING = re.compile(r"^#+ (.*)$", re.MULTILINE)


def is_elsewhere(link):
    return bool(urllib.parse.urlsplit(link).scheme) or link.startswith("//")


def slug(heading):
    """Returns the anchor that a code host gives a heading."""
    return re.sub(r"[^\w\- ]", "", heading.strip().lower()).replace(" ", "-")


def anchors(document):
    text = re.sub(r"^```.*?^```$", "", document.read_text(encoding="utf-8"),
                  flags=re.DOTALL | re.MULTILINE)
    return {slug(heading) for heading in HEADING.findall(text)}


def markdown_documents(root):
    return [*sorted(root.glob("*.md")), *sorted((root / "docs").glob("*.md"))]


def dead_markdown_links(root):
    for document in markdown_documents(root):
        text = document.read_text(encoding="utf-8")
        for path in SOURCE_PATH.findall(text):
            if not (root / path).exists():
                yield document.relative_to(root), path
        prose = CODE.sub("", text)
        for link in LINK.findall(prose):
            if is_elsewhere(link):
                continue
            path, _, anchor = link.partition("#")
            target = document.parent / path if path else document
            if not target.exists() or (anchor and anchor not in anchors(target)):
                yield document.relative_to(root), link


class Page(html.parser.HTMLParser):
    """The links and anchors of one page of the site."""

    def __init__(self, path):
        super().__init__()
        self.links = []
        self.anchors = set()
        self.feed(path.read_text(encoding="utf-8"))

    def handle_starttag(self, tag, attrs):
        for name, value in attrs:
            if name in ("href", "src", "data", "xlink:href") and value:
                self.links.append(value)
            elif name == "id" or (name == "name" and tag == "a"):
                self.anchors.add(value)


def dead_site_links(folder):
    pages = {path: Page(path) for path in [*sorted(folder.rglob("*.html")), *sorted(folder.rglob("*.svg"))]}
    if not pages:
        yield folder, "no page at all"
    for path, page in pages.items():
        for link in page.links:
            parts = urllib.parse.urlsplit(link)
            if is_elsewhere(link) or link.startswith("javascript:"):
                continue
            if path.suffix == ".svg" and not parts.path:
                continue  # part of the drawing
            target = (path.parent / urllib.parse.unquote(parts.path)).resolve() if parts.path else path
            dead = not target.exists()
            if parts.fragment and target in pages:
                dead = urllib.parse.unquote(parts.fragment) not in pages[target].anchors
            if dead:
                yield path.relative_to(folder), link


def main():
    kind, folder = sys.argv[1], pathlib.Path(sys.argv[2]).resolve()
    dead = list((dead_markdown_links if kind == "markdown" else dead_site_links)(folder))
    for document, link in dead:
        print(f"{document}: dead link {link}")
    return 1 if dead else 0


if __name__ == "__main__":
    sys.exit(main())
