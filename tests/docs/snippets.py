#!/usr/bin/env python3
"""Makes one C++ program of the code in a Markdown document, and runs it.

    snippets.py write DOCUMENT SOURCE    writes the program's source
    snippets.py run DOCUMENT PROGRAM     runs the built program in a new folder; compares its output

All ```cpp blocks of a document make one program, in their order:
- a block that begins with #include stands at file scope: includes, classes, functions;
- every other block is statements of main.
A comment `<!-- test` ... `-->` holds statements that the reader need not see, such as
`REQUIRE(condition);`. A block after `<!-- output -->` is what the program prints.
A document whose block defines main is that program as it stands.
"""

import pathlib
import re
import subprocess
import sys
import tempfile

# Nothing that a page needs itself: a reader has only what the page shows.
PREAMBLE = """#include <cstdio>
#include <cstdlib>

#define REQUIRE(condition) \\
  ((condition) ? (void)0 : (std::fprintf(stderr, "%s:%d: " #condition "\\n", __FILE__, __LINE__), std::exit(1)))
"""

PART = re.compile(
    r"^```cpp\n(?P<code>.*?)^```$"
    r"|^<!-- test\n(?P<test>.*?)^-->$"
    r"|^<!-- output -->\n```\w*\n(?P<output>.*?)^```$"
    r"|^```\w*\n.*?^```$",
    re.DOTALL | re.MULTILINE)


class Document:
    """The parts of one document that matter to its program."""

    def __init__(self, path):
        text = path.read_text(encoding="utf-8")
        self.whole = ""
        self.declarations = []
        self.statements = []
        self.outputs = []
        for part in PART.finditer(text):
            code = part["code"] or part["test"]
            if code is None:
                if part["output"] is not None:
                    self.outputs.append(part["output"])
                continue
            line = text.count("\n", 0, part.start()) + 2
            block = f'#line {line} "{path}"\n{code}'
            if re.search(r"^int main\(", code, re.MULTILINE):
                self.whole = block
            elif code.startswith("#include"):
                self.declarations.append(block)
            else:
                self.statements.append(block)
        if not self.whole and not self.statements:
            raise SystemExit(f"{path}: there is no C++ code to test")
        if self.whole and (self.declarations or self.statements):
            raise SystemExit(f"{path}: a document with a whole program has no other C++ code")

    def source(self):
        if self.whole:
            return self.whole
        return PREAMBLE + "\n".join(
            [*self.declarations, "int main() {", *self.statements, "  return 0;", "}", ""])


def run(document, program):
    with tempfile.TemporaryDirectory() as folder:
        result = subprocess.run([program], cwd=folder, capture_output=True, text=True, check=False)
    expected = "".join(document.outputs)
    sys.stderr.write(result.stderr)
    if result.returncode != 0:
        raise SystemExit(f"the program ended with {result.returncode}")
    if result.stdout != expected:
        raise SystemExit(f"the document shows\n{expected}\nbut the program prints\n{result.stdout}")


def main():
    action, path, other = sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])
    document = Document(path)
    if action == "write":
        other.write_text(document.source(), encoding="utf-8")
    else:
        run(document, other.resolve())


if __name__ == "__main__":
    main()
