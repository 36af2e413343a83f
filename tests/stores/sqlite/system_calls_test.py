"""Saves of a document in one file in which one system call is the last, or fails: each in turn.

A store without logs and compactions is tested by the argument Saves.
"""

import collections
import os
import shutil
import unittest

from system_calls import STEP, SavingProgram, can_trace, folder_in_memory


@unittest.skipUnless(can_trace(), "strace isn't there or may not trace")
class Documents(unittest.TestCase):
    def setUp(self):
        holder = folder_in_memory(self)
        self.folder = os.path.join(holder, "documents")
        self.file = os.path.join(self.folder, "document.tal")
        self.saved = os.path.join(holder, "saved")
        self.program = SavingProgram(self, self.file, self.folder, os.path.join(holder, "trace"))
        os.mkdir(self.folder)
        self.texts = {}
        for state in ("old", "new"):
            self.assertEqual(self.program.act(state).returncode, 0)
            self.texts[state] = self.program.describe()
            self.assertEqual(os.listdir(self.folder), ["document.tal"])
            if state == "old":
                shutil.copy(self.file, self.saved)
        self.assertNotEqual(self.texts["old"], self.texts["new"])

    def start(self):
        shutil.rmtree(self.folder)
        os.mkdir(self.folder)
        shutil.copy(self.saved, self.file)

    def inject(self, injection, action="new", after="new", step=1):
        """Injects into calls of the action, which makes the state `after` of the old one."""
        found = collections.Counter()
        for what, ended in self.program.inject(self.start, injection, action, step):
            state = self.program.describe()
            allowed = [after] if ended else ["old", after]
            self.assertIn(state, [self.texts[name] for name in allowed], what)
            found[state] += 1
            self.assertEqual(self.program.act(action).returncode, 0, what)
            self.assertEqual(self.program.describe(), self.texts[after], what)
            self.assertEqual(os.listdir(self.folder), ["document.tal"], what)
        old, new = found[self.texts["old"]], found[self.texts["new"]]
        print(f"{injection}, {action}: {old + new} calls, {old} times the state before, {new} times the new")
        self.assertGreater(old, 30 // step)
        if after != "old":
            self.assertGreater(new, 0)


class Saves(Documents):
    def test_a_save_that_is_killed(self):
        self.inject("signal=KILL")

    def test_a_save_on_a_full_medium(self):
        self.inject("error=ENOSPC")

    def test_a_save_on_a_failing_medium(self):
        self.inject("error=EIO")

    def test_a_read_that_fails_is_no_damage(self):
        reads = [call for call in self.program.calls(self.start) if call[0] in ("read", "pread64")]
        self.assertGreater(len(reads), 5)
        for name, number in reads:
            self.start()
            result = self.program.save("-e", f"inject={name}:error=EIO:when={number}", calls=name)
            self.assertNotIn("damage", result.stderr, f"{name} number {number}")


class LogsAndCompactions(Documents):
    def test_a_save_with_a_log_that_is_killed(self):
        self.inject("signal=KILL", "log", step=STEP)

    def test_a_compaction_that_is_killed(self):
        self.inject("signal=KILL", "compact", "old", STEP)

    def test_a_compaction_on_a_failing_medium(self):
        self.inject("error=EIO", "compact", "old", STEP)


if __name__ == "__main__":
    unittest.main()
