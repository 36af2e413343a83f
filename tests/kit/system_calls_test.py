"""Saves into a store in a folder in which one system call is the last, or fails: each in turn.

A program that knows the state "former" saves into a store of the former format too, which upgrades it,
and counts the objects of a store.
"""

import os
import re
import shutil
import unittest

from system_calls import STEP, SavingProgram, can_trace, folder_in_memory

NOTHING = "0 commits, 0 trees, 0 blobs, 0 damaged"


@unittest.skipUnless(can_trace(), "strace isn't there or may not trace")
class SystemCalls(unittest.TestCase):
    def setUp(self):
        holder = folder_in_memory(self)
        self.folder = os.path.join(holder, "store")
        self.saved = os.path.join(holder, "saved")
        self.program = SavingProgram(self, self.folder, self.folder, os.path.join(holder, "trace"))
        self.texts = {"nothing": NOTHING}
        for state in ("old", "new", "former"):
            self.start_with("nothing")
            if self.program.act(state).returncode != 0:
                self.assertEqual(state, "former")
                continue
            self.texts[state] = self.program.describe()
            shutil.copytree(self.folder, os.path.join(self.saved, state))

    def start_with(self, state):
        shutil.rmtree(self.folder, ignore_errors=True)
        if state != "nothing":
            shutil.copytree(os.path.join(self.saved, state), self.folder)

    def count_objects(self, files):
        if "former" not in self.texts:
            return sum(len(name) == 62 for name in files)
        return int(self.program.act("count").stdout)

    def check(self, start, what, ended):
        """The store is as before, or as saved; it has to be the latter if the save ended well."""
        found = self.program.describe()
        allowed = [self.texts["new"]] + ([] if ended else [self.texts[start]])
        self.assertIn(found, allowed, what)
        again = self.program.act("new")
        self.assertEqual((again.returncode, again.stderr), (0, ""), what)
        self.assertEqual(self.program.describe(), self.texts["new"], what)
        files = [name for _, _, names in os.walk(os.path.join(self.folder, ".vcs")) for name in names]
        self.assertFalse([name for name in files if name.endswith(".new")], what)
        objects = self.count_objects(files)
        counts = [int(number) for number in re.findall(r"(\d+) [ctb]", found)]
        self.assertTrue(objects == sum(counts[:3]) or found != self.texts["new"], what)
        return found == self.texts["new"]

    def inject(self, start, injection, step=1):
        results = [self.check(start, what, ended)
                   for what, ended in self.program.inject(lambda: self.start_with(start), injection, step=step)]
        done = sum(results)
        kept = len(results) - done
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
        self.inject("former", "signal=KILL", STEP)

    def test_a_save_on_a_full_medium(self):
        self.inject("old", "error=ENOSPC")

    def test_a_save_on_a_failing_medium(self):
        self.inject("old", "error=EIO")


if __name__ == "__main__":
    unittest.main()
