"""Saves of a SQLite document in which one system call is the last, or fails: each in turn.

SAVE_STATES names the program that saves. With CALL_STEP=1, logs and compactions end at each call too,
otherwise at each fifth. strace injects the faults; without it nothing is tested.
"""

import collections
import os
import re
import shutil
import subprocess
import tempfile
import unittest

from tracing import can_trace

PROGRAM = os.environ["SAVE_STATES"]
CALLS = "%file,%desc"
STEP = int(os.environ.get("CALL_STEP", "5"))
MEMORY = "/dev/shm"  # files there need no medium


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, check=False, timeout=60)


@unittest.skipUnless(can_trace(), "strace isn't there or may not trace")
class SystemCalls(unittest.TestCase):
    def setUp(self):
        place = MEMORY if os.access(MEMORY, os.W_OK) else None
        holder = tempfile.TemporaryDirectory(prefix="talvcs-calls-", dir=place)
        self.addCleanup(holder.cleanup)
        self.folder = os.path.join(holder.name, "documents")
        self.file = os.path.join(self.folder, "document.tal")
        self.saved = os.path.join(holder.name, "saved")
        self.trace = os.path.join(holder.name, "trace")
        os.mkdir(self.folder)
        self.texts = {}
        for state in ("old", "new"):
            self.assertEqual(run(PROGRAM, self.file, state).returncode, 0)
            self.texts[state] = self.describe()
            self.assertEqual(os.listdir(self.folder), ["document.tal"])
            if state == "old":
                shutil.copy(self.file, self.saved)
        self.assertNotEqual(self.texts["old"], self.texts["new"])

    def start(self):
        shutil.rmtree(self.folder)
        os.mkdir(self.folder)
        shutil.copy(self.saved, self.file)

    def describe(self):
        return run(PROGRAM, self.file, "describe").stdout

    def save(self, action, *injection):
        return run("strace", "-qq", "-o", self.trace, "-e", f"trace={CALLS}", *injection,
                   PROGRAM, self.file, action)

    def calls(self, action):
        """Yields the name and number of each call from the first on the document."""
        self.start()
        self.assertEqual(self.save(action).returncode, 0)
        counts = collections.Counter()
        begun = False
        with open(self.trace, encoding="utf-8", errors="replace") as trace:
            for line in trace:
                name = re.match(r"\w+", line)
                if not name:
                    continue
                counts[name.group()] += 1
                begun = begun or self.folder in line
                if begun:
                    yield name.group(), counts[name.group()]

    def inject(self, injection, action="new", after="new", step=1):
        """Injects into each call of the action, which makes the state `after` of the old one."""
        found = collections.Counter()
        for name, number in list(self.calls(action))[::step]:
            if name == "close" and "error" in injection:
                continue  # strace would leave the file open, and what is locked with it
            what = f"{injection} at {name} number {number}"
            self.start()
            result = self.save(action, "-e", f"inject={name}:{injection}:when={number}")
            if injection == "signal=KILL":
                self.assertEqual(result.returncode, -9, what)
            else:
                self.assertTrue(result.returncode == 0 or result.returncode == 1 and result.stderr,
                                f"{what}: {result.returncode}")
            state = self.describe()
            allowed = [after] if result.returncode == 0 else ["old", after]
            self.assertIn(state, [self.texts[name] for name in allowed], what)
            found[state] += 1
            self.assertEqual(run(PROGRAM, self.file, action).returncode, 0, what)
            self.assertEqual(self.describe(), self.texts[after], what)
            self.assertEqual(os.listdir(self.folder), ["document.tal"], what)
        old, new = found[self.texts["old"]], found[self.texts["new"]]
        print(f"{injection}, {action}: {old + new} calls, {old} times the state before, {new} times the new")
        self.assertGreater(old, 30 // step)
        if after != "old":
            self.assertGreater(new, 0)

    def test_a_save_that_is_killed(self):
        self.inject("signal=KILL")

    def test_a_save_with_a_log_that_is_killed(self):
        self.inject("signal=KILL", "log", step=STEP)

    def test_a_compaction_that_is_killed(self):
        self.inject("signal=KILL", "compact", "old", STEP)

    def test_a_compaction_on_a_failing_medium(self):
        self.inject("error=EIO", "compact", "old", STEP)

    def test_a_save_on_a_full_medium(self):
        self.inject("error=ENOSPC")

    def test_a_save_on_a_failing_medium(self):
        self.inject("error=EIO")


if __name__ == "__main__":
    unittest.main()
