#!/usr/bin/env python3
"""Prints a Markdown document for Doxygen: headings get the anchors that a code host gives them, links to other
documents keep their anchors, and links to files that are no page of the site become plain text.

    markdown_filter.py DOCUMENT
"""

import pathlib
import re
import sys

HEADING = re.compile(r"^(#+) (.*)$")
LINK = re.compile(r"(?<!!)\[([^\]]*)\]\(([^)\s]+)\)")


def slug(heading):
    return re.sub(r"[^\w\- ]", "", heading.strip().lower()).replace(" ", "-")


def label(document, anchor):
    return re.sub(r"\W", "_", f"{document.stem.lower()}-{anchor}")


def replace_link(document, match):
    words, link = match[1], match[2]
    if ":" in link:
        return match[0]
    path, _, anchor = link.partition("#")
    target = (document.parent / path).resolve() if path else document
    if target.suffix != ".md":
        return words
    return f'@ref {label(target, anchor)} "{words}"' if anchor else match[0]


def convert(document):
    is_code = False
    headings = 0
    for line in document.read_text(encoding="utf-8").splitlines():
        if line.startswith("```"):
            is_code = not is_code
        heading = HEADING.match(line)
        if heading and not is_code:
            headings += 1
            # The first heading is the page's title, and its anchor the page's own name.
            anchor = label(document, "page" if headings == 1 else slug(heading[2]))
            if headings == 1 and document.name == "README.md":
                yield line
            else:
                yield f"{line} {{#{anchor}}}"
        elif is_code:
            yield line
        else:
            yield LINK.sub(lambda match: replace_link(document, match), line)


if __name__ == "__main__":
    print("\n".join(convert(pathlib.Path(sys.argv[1]).resolve())))
