"""What a person at a terminal sees and can do: colour, progress, questions, Ctrl-C. tmux is the terminal."""

import os
import re
import subprocess
import time
import unittest

from support import PROGRAM, TalTest
from tracing import can_trace

PROMPT = re.compile(r"\[(\d+)\]>\s*\Z")
INTERRUPTED = 130


class Terminal:
    """A shell in a window of 100 columns and 30 lines. Its prompt has the exit code of the last command."""

    def __init__(self, scratch, folder, environment):
        self.socket, self.record_path = scratch / "tmux", scratch / "record"
        self.tmux("-f", os.devnull, "new-session", "-d", "-x", "100", "-y", "30", "-c", folder,
                  "sh", env=environment)
        self.record_path.touch()
        self.tmux("pipe-pane", f"cat >> '{self.record_path}'")
        self.run("PS1='[$?]> '")

    def tmux(self, *arguments, **options):
        return subprocess.run(["tmux", "-S", self.socket, *arguments], check=True,
                              capture_output=True, **options).stdout.decode()

    def close(self):
        subprocess.run(["tmux", "-S", self.socket, "kill-server"], capture_output=True, check=False)

    def screen(self):
        return self.tmux("capture-pane", "-p", "-J").rstrip("\n")

    def record(self):
        """Returns the bytes that the programs have written since `begin`."""
        return self.record_path.read_bytes()

    def wait_until(self, condition, what):
        end = time.monotonic() + 60
        while not (found := condition()):
            if time.monotonic() > end:
                raise AssertionError(f"{what} never came:\n{self.screen()}")
            time.sleep(0.01)
        return found

    def wait_for(self, text):
        """Waits until the screen has a text, or matches a pattern."""
        pattern = re.compile(re.escape(text)) if isinstance(text, str) else text
        return self.wait_until(lambda: pattern.search(self.screen()), repr(text))

    def type(self, text):
        """Types a line."""
        self.tmux("send-keys", "-l", text)
        self.tmux("send-keys", "Enter")

    def press(self, key):
        self.tmux("send-keys", key)

    def begin(self, command):
        """Types a command in an empty window."""
        self.tmux("send-keys", "-R")
        self.record_path.write_bytes(b"")
        self.type(command)

    def end(self):
        """Waits for the end of the command and returns its exit code."""
        return int(self.wait_for(PROMPT).group(1))

    def run(self, command):
        self.begin(command)
        return self.end()


class TerminalTest(TalTest):
    def setUp(self):
        super().setUp()
        path = os.pathsep.join([os.path.dirname(PROGRAM), os.environ["PATH"]])
        # The check for leaks can't work in a process that is traced already.
        leaks = self.environment.get("ASAN_OPTIONS", "") + ":detect_leaks=0"
        self.environment |= {"PATH": path, "ASAN_OPTIONS": leaks, "HOME": str(self.scratch)}
        self.terminal = Terminal(self.scratch, self.folder, self.environment)
        self.addCleanup(self.terminal.close)
        self.tal("init")

    def make_conflicts(self):
        self.commit("Base", a="base\n", b="base\n")
        self.tal("switch", "-c", "topic")
        self.commit("Topic", a="topic\n", b="topic\n")
        self.tal("switch", "master")
        self.commit("Master", a="master\n", b="master\n")

    def assert_interrupted(self, before):
        self.assertEqual(self.terminal.end(), INTERRUPTED, self.terminal.screen())
        self.assertIn("interrupted; nothing has changed", self.terminal.screen())
        self.assertEqual((self.contents(), self.store()), before)


class Colour(TerminalTest):
    def shown(self, command, code=0):
        self.assertEqual(self.terminal.run(command), code, self.terminal.screen())
        return self.terminal.record()

    def test_a_terminal_gets_colour_and_a_pipe_gets_none(self):
        self.write("new", "new")
        self.assertIn(b"\x1b[1mmaster\x1b[0m", self.shown("tal status"))
        self.assertIn(b"\x1b[32madded\x1b[0m\tnew", self.shown("tal status"))
        self.assertIn(b"\x1b[31mtal:\x1b[0m ", self.shown("tal show nowhere", code=1))
        for command in ("NO_COLOR=1 tal status", "TERM=dumb tal status", "tal status | cat"):
            shown = self.shown(command)
            self.assertIn(b"added\tnew", shown)
            self.assertNotIn(b"\x1b", shown, command)

    def test_names_cannot_control_the_terminal(self):
        self.write("\x1b[2Jgone\r\x07", "bytes")
        shown = self.shown("tal status")
        self.assertIn(rb"\x1b[2Jgone\x0d\x07", shown)
        self.assertNotIn(b"\x1b[2J", shown)


class Questions(TerminalTest):
    def setUp(self):
        super().setUp()
        self.make_conflicts()
        self.before = self.contents(), self.store()

    def script(self, name, text):
        path = self.scratch / name
        path.write_text(text)
        return f"sh '{path}'"

    def test_an_interactive_merge_shows_the_sides_and_starts_the_editor(self):
        editor = self.script("edit", 'test -t 0 && test -t 1 && grep -q "^<<<<<<<" "$1" && echo edited > "$1"')
        self.terminal.begin(f'EDITOR="{editor}" tal merge topic --interactive')
        self.terminal.wait_for("a.txt: changed on both sides. [o]urs")
        self.terminal.type("d")
        self.terminal.wait_for(re.compile(r"-master\s+\+topic\s+a.txt: changed"))
        self.assertIn(b"\x1b[31m-master\x1b[0m", self.terminal.record())
        self.terminal.type("e")
        self.terminal.wait_for("b.txt: changed on both sides. [o]urs")
        self.terminal.type("t")
        self.assertEqual(self.terminal.end(), 0, self.terminal.screen())
        self.assertEqual(self.contents(), {b"a.txt": b"edited\n", b"b.txt": b"topic\n"})
        self.assertEqual(self.read_json("status")["changes"], [])

    def test_an_edited_file_with_markers_is_asked_about_again(self):
        self.terminal.begin("EDITOR=true tal merge topic --interactive")
        self.terminal.wait_for("[q]uit?")
        self.terminal.type("e")
        self.terminal.wait_for("the file still has conflicts")
        self.terminal.type("q")
        self.assertEqual(self.terminal.end(), 1)
        self.assertEqual((self.contents(), self.store()), self.before)

    def test_ctrl_c_ends_a_question(self):
        self.terminal.begin("tal merge topic --interactive")
        self.terminal.wait_for("[q]uit?")
        self.terminal.press("C-c")
        self.assert_interrupted(self.before)

    def test_ctrl_c_in_a_merge_tool_ends_the_merge(self):
        tool = self.script("tool", "echo it has begun; exec sleep 600")
        self.terminal.begin(f'tal merge topic --tool "{tool}"')
        self.terminal.wait_for(re.compile("^it has begun", re.M))
        self.terminal.press("C-c")
        self.assert_interrupted(self.before)

    def test_closing_the_window_ends_a_question(self):
        self.terminal.begin("tal merge topic --interactive")
        self.terminal.wait_for("[q]uit?")
        self.terminal.close()
        # The folder is locked until the command has ended.
        self.terminal.wait_until(lambda: self.run_tal("gc", "--dry-run").returncode == 0 and
                                 self.run_tal("tag", "free").returncode == 0, "the end of the command")
        self.tal("tag", "-d", "free")
        self.assertEqual(self.contents(), self.before[0])
        self.assertEqual(self.read_json("show")["description"], "Master")


@unittest.skipUnless(can_trace(), "strace isn't there or may not trace")
class SlowCommands(TerminalTest):
    """Each system call of one kind takes longer than it needs."""

    def slowed(self, call, milliseconds, command):
        return f"strace -qq -o /dev/null -e trace={call} -e inject={call}:delay_enter={milliseconds}ms {command}"

    def test_progress_shows_itself_after_a_moment_and_goes(self):
        for number in range(150):
            self.write(f"f{number}", "x" * 2048)
        self.assertEqual(self.terminal.run(self.slowed("openat", 4, "tal commit -m All")), 0)
        shown = self.terminal.record()
        self.assertRegex(shown, rb"\rreading files: \d+, [\d.]+ KiB\x1b\[K")
        self.assertRegex(shown, rb"\x1b\[K\r\x1b\[K")
        self.assertNotIn("reading files", self.terminal.screen())

    def test_ctrl_c_in_a_switch_puts_the_folder_back(self):
        for number in range(60):
            self.write(f"f{number}", "master")
        self.tal("commit", "-m", "Master")
        self.tal("switch", "-c", "topic")
        for number in range(60):
            self.write(f"f{number}", "topic")
        self.tal("commit", "-m", "Topic")
        before = self.contents(), self.store()
        self.terminal.begin(self.slowed("renameat", 20, "tal switch master"))
        self.terminal.wait_until(lambda: b"master" in self.contents().values(), "the first file")
        self.terminal.press("C-c")
        self.assert_interrupted(before)
        self.assertEqual(self.read_json("status")["changes"], [])

    def test_ctrl_c_in_a_merge_that_leaves_conflicts_leaves_what_was_before(self):
        for number in range(40):
            self.write(f"f{number:02}", "base\n")
        self.tal("commit", "-m", "Base")
        self.tal("branch", "topic")
        for branch, count in (("topic", 40), ("master", 1)):
            self.tal("switch", branch)
            for number in range(count):
                self.write(f"f{number:02}", branch + "\n")
            self.tal("commit", "-m", branch)
        before = self.contents(), self.head()

        def interrupt(command):
            unchanged = self.read("f20")
            self.terminal.begin(self.slowed("renameat", 20, command))
            self.terminal.wait_until(lambda: self.read("f20") != unchanged, "the file in the middle")
            self.terminal.press("C-c")
            self.assertEqual(self.terminal.end(), INTERRUPTED, self.terminal.screen())

        interrupt("tal merge topic")
        self.assertEqual((self.contents(), self.head()), before)
        self.assertIsNone(self.read_json("status")["merge"])
        self.tal("merge", "topic", code=1)
        during = self.contents()
        interrupt("tal merge --abort")
        self.assertEqual(self.contents(), during)
        self.assertEqual(self.read_json("status")["merge"]["marked"], ["f00"])
        self.tal("merge", "--abort")
        self.assertEqual((self.contents(), self.head()), before)

    def test_ctrl_c_ends_a_long_list(self):
        for number in range(400):
            self.write(f"{number:03} " + "long " * 40, "x")
        self.tal("commit", "-m", "Long names")
        before = self.contents(), self.store()
        self.terminal.begin(self.slowed("write,writev", 100, "tal ls"))
        self.terminal.wait_until(lambda: b"000 long" in self.terminal.record(), "the first name")
        self.terminal.press("C-c")
        self.assert_interrupted(before)
        self.assertNotIn(b"399 long", self.terminal.record())


if __name__ == "__main__":
    unittest.main()
