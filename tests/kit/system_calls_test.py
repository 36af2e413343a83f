"""Saves in which one system call is the last, or fails: each that has to do with files, in turn.

SAVE_STATES names the program that saves. strace steps in; without it there is nothing to see. A
program that knows the state "former" saves into a store of the former format too, which upgrades it,
and counts the objects of a store.
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
MEMORY = "/dev/shm"  # folders there need no medium
NOTHING = "0 commits, 0 trees, 0 blobs, 0 damaged"


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, check=False, timeout=60)


@unittest.skipUnless(can_trace(), "strace isn't there or may not trace")
class SystemCalls(unittest.TestCase):
    def setUp(self):
        place = MEMORY if os.access(MEMORY, os.W_OK) else None
        holder = tempfile.TemporaryDirectory(prefix="talvcs-calls-", dir=place)
        self.addCleanup(holder.cleanup)
        self.folder = os.path.join(holder.name, "store")
        self.saved = os.path.join(holder.name, "saved")
        self.trace = os.path.join(holder.name, "trace")
        self.texts = {"nothing": NOTHING}
        for state in ("old", "new", "former"):
            self.start_with("nothing")
            if run(PROGRAM, self.folder, state).returncode != 0:
                self.assertEqual(state, "former")
                continue
            self.texts[state] = self.describe()
            shutil.copytree(self.folder, os.path.join(self.saved, state))

    def start_with(self, state):
        shutil.rmtree(self.folder, ignore_errors=True)
        if state != "nothing":
            shutil.copytree(os.path.join(self.saved, state), self.folder)

    def describe(self):
        return run(PROGRAM, self.folder, "describe").stdout.strip()

    def count_objects(self, files):
        if "former" not in self.texts:
            return sum(len(name) == 62 for name in files)
        return int(run(PROGRAM, self.folder, "count").stdout)

    def save(self, *injection):
        return run("strace", "-qq", "-o", self.trace, "-e", f"trace={CALLS}", *injection,
                   PROGRAM, self.folder, "new")

    def calls(self, start):
        """Yields the name and number of each call from the first on the store."""
        self.start_with(start)
        self.assertEqual(self.save().returncode, 0)
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

    def check(self, start, what, ended):
        """The store is as before, or as saved; it has to be the latter if the save ended well."""
        found = self.describe()
        allowed = [self.texts["new"]] + ([] if ended else [self.texts[start]])
        self.assertIn(found, allowed, what)
        again = run(PROGRAM, self.folder, "new")
        self.assertEqual((again.returncode, again.stderr), (0, ""), what)
        self.assertEqual(self.describe(), self.texts["new"], what)
        files = [name for _, _, names in os.walk(os.path.join(self.folder, ".vcs")) for name in names]
        self.assertFalse([name for name in files if name.endswith(".new")], what)
        objects = self.count_objects(files)
        counts = [int(number) for number in re.findall(r"(\d+) [ctb]", found)]
        self.assertTrue(objects == sum(counts[:3]) or found != self.texts["new"], what)
        return found == self.texts["new"]

    def inject(self, start, injection):
        kept = done = 0
        for name, number in list(self.calls(start)):
            if name == "close" and "error" in injection:
                continue  # strace would leave the file open, and what is locked with it
            what = f"{injection} at {name} number {number}"
            self.start_with(start)
            result = self.save("-e", f"inject={name}:{injection}:when={number}")
            if injection == "signal=KILL":
                self.assertEqual(result.returncode, -9, what)
            else:
                self.assertTrue(result.returncode == 0 or result.returncode == 1 and result.stderr,
                                f"{what}: {result.returncode}")
            if self.check(start, what, result.returncode == 0):
                done += 1
            else:
                kept += 1
        print(f"{injection} from {start}: {kept + done} calls, {kept} times the state before,",
              f"{done} times the state saved")
        self.assertGreater(kept, 20)
        self.assertGreater(done, 3)

    def test_a_save_that_is_killed(self):
        self.inject("old", "signal=KILL")

    def test_a_first_save_that_is_killed(self):
        self.inject("nothing", "signal=KILL")

    def test_a_save_with_an_upgrade_that_is_killed(self):
        if "former" not in self.texts:
            self.skipTest("the program has one format")
        self.inject("former", "signal=KILL")

    def test_a_save_on_a_full_medium(self):
        self.inject("old", "error=ENOSPC")

    def test_a_save_on_a_failing_medium(self):
        self.inject("old", "error=EIO")


if __name__ == "__main__":
    unittest.main()
