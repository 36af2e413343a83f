#!/usr/bin/env python3
"""Draws the benchmark as bars in SVG: each workload's time as a share of libgit2's.

    bench/chart.py RESULTS PICTURE            writes the picture
    bench/chart.py --check RESULTS PICTURE    fails if the picture is not that of the results

RESULTS is what bench/compare.py prints, or a document with such a table, as docs/performance.md.
"""

import argparse
import dataclasses
import html
import pathlib
import sys

@dataclasses.dataclass(frozen=True)
class Kind:
    """What a chart compares: the columns of its table, and its texts."""
    rows: str
    ours: str
    peer: str
    end: int  # the percentage at which the bars end; longer ones are cut there

    @property
    def columns(self):
        return (self.rows, "unit", self.ours, self.peer, f"{self.ours} / {self.peer}")


LIBRARIES = Kind("workload", "TalVcs", "libgit2", 100)
AGAINST_GIT = Kind("command", "tal", "git", 150)
WIDTH, LABELS, BARS, ROW, TOP = 980, 330, 400, 26, 64
FONT = "font-family: 'DejaVu Sans', Verdana, sans-serif;"


def cells(line):
    return [cell.strip() for cell in line.strip().strip("|").split("|")]


def read_rows(text, kind=LIBRARIES):
    """Returns (workload, unit, our figure, the peer's figure, ratio) of each row that has a ratio."""
    lines = text.splitlines()
    for number, line in enumerate(lines):
        header = cells(line)
        if not line.startswith("|") or not set(kind.columns) <= set(header):
            continue
        rows = []
        for row_line in lines[number + 2:]:
            if not row_line.startswith("|"):
                break
            row = dict(zip(header, cells(row_line)))
            if row[kind.columns[-1]]:
                rows.append([row[name] for name in kind.columns])
        return rows
    raise SystemExit("there is no table with the columns " + ", ".join(kind.columns))


def text(x, y, content, style="", anchor="start"):
    return (f'<text x="{x}" y="{y}" text-anchor="{anchor}"{style}>{html.escape(content)}</text>')


def draw(rows, kind=LIBRARIES):
    height = TOP + ROW * len(rows) + 16
    end = TOP + ROW * len(rows) + 4
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{height}" '
        f'viewBox="0 0 {WIDTH} {height}">',
        f"<title>Time of {kind.ours} as a share of {kind.peer}'s time, by {kind.rows}</title>",
        f"<style>text {{ {FONT} font-size: 12px; fill: #1e293b; }} "
        ".title { font-size: 15px; font-weight: bold; } .quiet { fill: #64748b; font-size: 11px; }"
        "</style>",
        '<rect width="100%" height="100%" fill="#ffffff"/>',
        text(16, 26, f"Time of {kind.ours} as a share of {kind.peer}'s time (shorter is faster)",
             ' class="title"'),
    ]
    for percent in range(0, kind.end + 1, 25):
        x = LABELS + BARS * percent // kind.end
        colour = "#dc2626" if percent == 100 else "#e2e8f0"
        label = kind.peer if percent == 100 else f"{percent} %"
        parts.append(f'<path d="M{x} {TOP - 6} V{end}" stroke="{colour}"/>')
        parts.append(text(x, TOP - 12, label, ' class="quiet"', "middle"))
    for index, (workload, unit, ours, peer, ratio) in enumerate(rows):
        y = TOP + ROW * index
        colour = "#2563eb" if float(ratio) * 100 <= kind.end else "#dc2626"
        length = max(1.0, BARS * min(float(ratio) * 100 / kind.end, 1.0))
        parts.append(text(LABELS - 8, y + 15, workload, anchor="end"))
        parts.append(f'<rect x="{LABELS}" y="{y + 3}" width="{length:.1f}" height="{ROW - 9}" rx="2" '
                     f'fill="{colour}"/>')
        parts.append(text(LABELS + BARS + 16, y + 15, f"{ours} {unit} against {peer} {unit}",
                          ' class="quiet"'))
    return "\n".join([*parts, "</svg>", ""])


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("results", type=pathlib.Path)
    parser.add_argument("picture", type=pathlib.Path)
    parser.add_argument("--check", action="store_true", help="compare instead of writing")
    options = parser.parse_args()
    rows = read_rows(options.results.read_text(encoding="utf-8"))
    if not rows:
        print("no chart: libgit2 was not measured", file=sys.stderr)
        return 0
    picture = draw(rows)
    if not options.check:
        options.picture.write_text(picture, encoding="utf-8")
    elif options.picture.read_text(encoding="utf-8") != picture:
        print(f"{options.picture} shows other figures than {options.results}: run "
              f"bench/chart.py {options.results} {options.picture}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
