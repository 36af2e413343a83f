"""A folder of 10,000 files, and saves that are killed at any moment.

TAL_KILLS is how many saves are killed, and TAL_KILL_FILES how many files their folder has.
"""

import os
import random
import shutil
import signal
import subprocess
import time
import unittest

from support import DIFFERS, PROGRAM, TalTest

MANY_FILES = 10000
KILL_FILES = int(os.environ.get("TAL_KILL_FILES", "500"))
KILLS = int(os.environ.get("TAL_KILLS", "10"))
SEED = int(os.environ.get("TAL_SEED", str(random.randrange(1 << 32))))


class FolderOfFiles(TalTest):
    def fill(self, count):
        """Commits so many files, a fifth of them with names that aren't ASCII."""
        self.random = random.Random(SEED)
        for number in range(count):
            name = ("grün-%d" if number % 10 == 3 else "日本/%d.txt" if number % 10 == 7
                    else "file%d.txt") % number
            self.write(f"d{number % 23}/e{number % 7}/{name}", f"content {number}\n" * 8)
        self.tal("init")
        self.tal("commit", "-m", "All files")

    def change(self, count, text):
        for path in self.random.sample(sorted(self.contents()), count):
            with open(os.path.join(os.fsencode(self.folder), path), "ab") as file:
                file.write(text)


class ManyFiles(FolderOfFiles):
    def test_a_small_change(self):
        self.fill(MANY_FILES)
        self.assertEqual(len(self.read_json("ls")), MANY_FILES)
        before = self.read_json("stat")["store_objects"]
        self.change(5, b"changed\n")
        self.assertEqual(len(self.read_json("status")["changes"]), 5)
        self.tal("commit", "-m", "Five")
        self.assertEqual([c["description"] for c in self.read_json("log")], ["Five", "All files"])
        answer = self.read_json("diff", "HEAD~", "HEAD", code=DIFFERS)
        self.assertEqual([(c["change"], c["lines_added"]) for c in answer["changes"]],
                         [("changed", 1)] * 5)
        answer = self.read_json("verify")
        self.assertTrue(answer["whole"])
        # One commit, five blobs, and the trees above them.
        self.assertLess(answer["objects"] - before, 1 + 5 + 5 * 4)


class KilledSaves(FolderOfFiles):
    def setUp(self):
        super().setUp()
        self.fill(KILL_FILES)

    def commit_and_kill(self, message, delay):
        with subprocess.Popen([PROGRAM, "commit", "-m", message], cwd=self.folder,
                              env=self.environment, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL) as process:
            time.sleep(delay)
            process.send_signal(signal.SIGKILL)

    def time_of_commit(self, message):
        began = time.monotonic()
        self.tal("commit", "-m", message)
        return time.monotonic() - began

    def test_killed_saves_leave_the_old_or_the_new_state(self):
        print("seed", SEED)
        outcomes = {"old": 0, "new": 0}
        for kill in range(KILLS):
            self.change(50, b"whole %d\n" % kill)
            span = self.time_of_commit(f"Whole {kill}")
            old = self.head()
            self.change(50, b"killed %d\n" % kill)
            self.commit_and_kill(f"Killed {kill}", self.random.uniform(0, 1.3 * span))
            self.assertTrue(self.read_json("verify")["whole"])
            commit = self.read_json("show")
            if commit["id"] == old:
                outcomes["old"] += 1
            else:
                self.assertEqual((commit["parent"], commit["description"]),
                                 (old, f"Killed {kill}"))
                self.assertEqual(self.read_json("status")["changes"], [])
                outcomes["new"] += 1
        print("killed saves:", outcomes)
        self.write("last", "x")
        self.tal("commit", "-m", "After all")
        self.tal("gc")
        answer = self.read_json("verify")
        self.assertTrue(answer["whole"])
        self.assertEqual(answer["objects"], answer["reached"])  # nothing of the killed saves is left

    def test_killed_first_saves_leave_nothing_or_all(self):
        span = 0.5
        for _ in range(max(1, KILLS // 3)):
            shutil.rmtree(self.folder / ".vcs")
            self.tal("init")
            self.commit_and_kill("All files", self.random.uniform(0, span))
            self.assertTrue(self.read_json("verify")["whole"])
            count = len(self.read_json("ls"))
            self.assertIn(count, (0, KILL_FILES))
            if count == 0:
                span = 1.3 * self.time_of_commit("All files")


if __name__ == "__main__":
    unittest.main()
