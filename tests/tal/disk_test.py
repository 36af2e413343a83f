"""Merges in which one wait for the disk fails. strace makes it fail."""

import shutil
import subprocess
import unittest

from support import DIFFERS, DONE, PROGRAM, TalTest
from tracing import can_trace


@unittest.skipUnless(can_trace(), "strace isn't there or may not trace")
class FailingDisk(TalTest):
    def setUp(self):
        super().setUp()
        # The check for leaks can't work in a process that is traced already.
        self.environment["ASAN_OPTIONS"] = (
            self.environment.get("ASAN_OPTIONS", "") + ":detect_leaks=0")
        self.tal("init")
        self.commit("First", a="1")
        self.tal("switch", "-c", "topic")
        self.commit("On the topic", a="2")
        self.tal("switch", "master")
        self.commit("On master", b="3")

    def merge(self, folder, call, number):
        """Merges the topic, with an error at that call; returns whether there was such a call."""
        trace = self.scratch / "trace"
        self.result = subprocess.run(
            ["strace", "-qq", "-o", trace, "-e", "trace=" + call, "-e",
             f"inject={call}:error=EIO:when={number}", PROGRAM, "merge", "topic"],
            cwd=folder, env=self.environment, capture_output=True, check=False)
        return "(INJECTED)" in trace.read_text()

    def check(self, folder, old):
        """The files are those of the store; returns whether that is the new one."""
        is_new = b"saved, but" in self.result.stderr
        state = self.read_json("show", folder=folder)["id"]
        self.assertEqual(state != old, is_new)
        self.assertEqual((folder / "a.txt").read_bytes(), b"2" if is_new else b"1")
        self.assertEqual(self.read_json("status", folder=folder)["changes"], [])
        return is_new

    def test_files_are_those_of_the_store_whichever_wait_fails(self):
        old = self.head()
        outcomes = []
        for call in ("fsync", "fdatasync", "syncfs"):
            for number in range(1, 1000):
                copy = self.scratch / "copy"
                shutil.copytree(self.folder, copy)
                if not self.merge(copy, call, number):
                    self.assertEqual(self.result.returncode, DONE, self.result.stderr)
                    shutil.rmtree(copy)
                    break
                self.assertEqual(self.result.returncode, DIFFERS, self.result.stderr)
                outcomes.append(self.check(copy, old))
                shutil.rmtree(copy)
        # A save waits for its objects, and then for the record that has the new head.
        self.assertGreaterEqual(outcomes.count(False), 1, outcomes)
        self.assertGreaterEqual(len(outcomes), 2, outcomes)


if __name__ == "__main__":
    unittest.main()
