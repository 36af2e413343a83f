"""The examples of docs/tal.md: each command prints what the page shows, and each command has an example.

In the page, "..." matches any text, 0123456 a short id of any digits, and a line that begins with "$ " is a
command, which a shell runs in one folder for the whole page.
"""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

PROGRAM = pathlib.Path(os.environ["TAL"])
PAGE = pathlib.Path(os.environ["TAL_PAGE"])


def examples():
    """Returns the commands of the page, each with the lines that follow it."""
    found = []
    for block in re.findall(r"^```console\n(.*?)^```$", PAGE.read_text(), re.M | re.S):
        for line in block.splitlines():
            if line.startswith("$ "):
                found.append((line[2:], []))
            else:
                found[-1][1].append(line)
    return found


def pattern_of(lines):
    text = re.escape("".join(line + "\n" for line in lines))
    return text.replace(re.escape("..."), ".*").replace("0123456", "[0-9a-f]{7,}")


class Examples(unittest.TestCase):
    def setUp(self):
        scratch = pathlib.Path(tempfile.mkdtemp(prefix="tal-page-"))
        self.addCleanup(shutil.rmtree, scratch, ignore_errors=True)
        self.folder = scratch / "folder"
        self.folder.mkdir()
        self.environment = {"PATH": f"{PROGRAM.parent}:{os.environ['PATH']}", "LC_ALL": "C.UTF-8",
                            "TZ": "UTC", "TAL_AUTHOR": "Ann", "TAL_EMAIL": "ann@example.org"}
        for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS", "LD_LIBRARY_PATH"):
            if name in os.environ:
                self.environment[name] = os.environ[name]

    def test_each_command_prints_what_the_page_shows(self):
        self.assertGreater(len(examples()), 40)
        for command, lines in examples():
            result = subprocess.run(["sh", "-c", command], cwd=self.folder, env=self.environment,
                                    stdin=subprocess.DEVNULL, capture_output=True, check=False)
            shown = (result.stdout + result.stderr).decode()
            self.assertRegex(shown, rf"\A{pattern_of(lines)}\Z", command)

    def test_each_command_has_an_example(self):
        text = subprocess.run([PROGRAM, "--help"], capture_output=True, check=True,
                              env=self.environment).stdout.decode()
        commands = re.findall(r"^  ([a-z][a-z-]*) ", text[text.index("Subcommands:"):], re.M)
        self.assertIn("commit", commands)
        shown = "\n".join(command for command, _ in examples())
        for command in commands:
            self.assertRegex(shown, rf"(?m:(^|[;&|] *)tal {re.escape(command)}\b)", command)


if __name__ == "__main__":
    unittest.main()
