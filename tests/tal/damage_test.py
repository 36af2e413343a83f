"""Stores that are damaged, hostile, or in use by another process."""

import os
import shutil
import subprocess
import unittest

from support import DAMAGED, DIFFERS, PROGRAM, TalTest, can_trace

MAKE_BRANCH = os.environ["TAL_MAKE_BRANCH"]


class Damage(TalTest):
    def setUp(self):
        super().setUp()
        self.tal("init")
        self.commit("First", a="1" * 100)
        self.write("dir/b", "2")
        self.commit("Second", a="3" * 100)

    def objects(self):
        return sorted(path for path in (self.folder / ".vcs/objects").rglob("*") if path.is_file())

    def assert_damaged(self):
        contents = self.contents()
        self.tal("verify", code=DAMAGED)
        self.assertIn("damaged", self.talk)
        self.assertFalse(self.read_json("verify", code=DAMAGED)["whole"])
        self.assertEqual(self.contents(), contents)

    def test_every_missing_object_is_found(self):
        for path in self.objects():
            content = path.read_bytes()
            path.unlink()
            self.assert_damaged()
            self.tal("status", code=DAMAGED)
            self.tal("commit", "-m", "More", code=DAMAGED)
            path.write_bytes(content)
        self.tal("verify")

    def test_every_changed_object_is_found(self):
        for path in self.objects():
            content = path.read_bytes()
            for position in (0, len(content) // 2, len(content) - 1):
                changed = bytearray(content)
                changed[position] ^= 1
                path.write_bytes(changed)
                self.assert_damaged()
            path.write_bytes(content[:-1])
            self.assert_damaged()
            path.write_bytes(content)
        self.tal("verify")

    def test_every_changed_byte_of_the_state_is_found(self):
        path = self.folder / ".vcs/state"
        content = path.read_bytes()
        for position in range(0, len(content), 13):
            changed = bytearray(content)
            changed[position] ^= 1
            path.write_bytes(changed)
            self.tal("verify", code=DAMAGED)
            self.tal("commit", "-m", "More", code=DAMAGED)
            self.assertEqual(path.read_bytes(), changed)
        path.unlink()
        self.tal("log", code=DAMAGED)

    def test_an_unreadable_folder_is_told(self):
        (self.folder / ".vcs/state").unlink()
        (self.folder / ".vcs/state").mkdir()
        for command in ("log", "verify"):
            self.tal(command, code=DAMAGED)
            self.assertIn("Is a directory", self.talk)
        self.assertIn("Is a directory", self.read_json("verify", code=DAMAGED)["reason"])


class HostileStore(TalTest):
    """A store that somebody else made may name any path."""

    def setUp(self):
        super().setUp()
        self.tal("init")
        self.commit("First", a="1")

    def assert_refused(self, path):
        subprocess.run([MAKE_BRANCH, self.folder, "hostile", path], check=True)
        before = everything(self.scratch)
        for arguments in (["switch", "hostile"], ["merge", "hostile"]):
            self.tal(*arguments, code=DIFFERS)
            self.assertIn("unsafe", self.talk)
            self.assertEqual(everything(self.scratch), before)
        self.tal("ls", "-r", "hostile")

    def test_a_path_that_leads_out_of_the_folder(self):
        self.assert_refused("../outside")

    def test_a_path_that_leads_out_further_down(self):
        self.assert_refused("dir/../../outside")

    def test_a_path_into_the_store(self):
        self.assert_refused(".vcs/state")

    def test_a_path_into_the_store_of_another_history(self):
        self.assert_refused("dir/.vcs/state")

    def test_a_dot(self):
        self.assert_refused("dir/./file")


def everything(folder):
    return {path: path.read_bytes() if path.is_file() else None for path in folder.rglob("*")}


class Locking(TalTest):
    def setUp(self):
        super().setUp()
        self.tal("init")
        self.commit("First", a="1")

    def test_a_second_process_is_told_that_the_store_is_in_use(self):
        self.tal("branch", "topic")
        self.tal("switch", "topic")
        self.commit("On the topic", a="2")
        self.tal("switch", "master")
        self.commit("On master", a="3")
        # A merge that waits for an answer keeps the store.
        with subprocess.Popen([PROGRAM, "merge", "topic", "--interactive"], cwd=self.folder,
                              env=self.environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE) as first:
            os.read(first.stderr.fileno(), 1)  # it has asked
            self.write("b", "4")
            self.tal("commit", "-m", "Too early", code=DIFFERS)
            self.assertIn("can't be changed now", self.talk)
            self.tal("log")  # reading goes on
            first.communicate(b"t\n")
        self.assertEqual(first.returncode, 0)
        self.tal("commit", "-m", "Now")
        self.tal("verify")


@unittest.skipUnless(can_trace(), "strace isn't there or may not trace")
class FailingDisk(TalTest):
    """Merges in which the disk doesn't tell of one write that it will last."""

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
        copy = self.scratch / "copy"
        shutil.copytree(self.folder, copy)
        result, self.calls = self.merge(copy)
        self.assertEqual(result.returncode, 0, result.stderr)

    def merge(self, folder, *injection):
        """Merges the topic; returns what came of it, and the calls that wait for the disk."""
        trace = self.scratch / "trace"
        result = subprocess.run(
            ["strace", "-qq", "-o", trace, "-e", "trace=fsync,fdatasync,syncfs", *injection,
             PROGRAM, "merge", "topic"],
            cwd=folder, env=self.environment, capture_output=True, check=False)
        return result, [line.partition("(")[0] for line in trace.read_text().splitlines()]

    def merge_with_failing_call(self, position):
        name = self.calls[position]
        number = self.calls[:position].count(name) + 1
        result, _ = self.merge(self.folder, "-e", f"inject={name}:error=EIO:when={number}")
        self.assertEqual(result.returncode, DIFFERS, result.stderr)
        return result.stderr.decode()

    def test_files_follow_a_store_that_was_replaced_but_may_not_last(self):
        # The last call is for the folder in which the new state has taken the old one's place.
        self.assertIn("in place", self.merge_with_failing_call(len(self.calls) - 1))
        self.assertEqual(self.head(), self.head("topic"))
        self.assertEqual(self.read("a.txt"), b"2")
        self.assertEqual(self.read_json("status")["changes"], [])

    def test_files_stay_as_the_store_does(self):
        for position in range(len(self.calls) - 1):
            self.merge_with_failing_call(position)
            self.assertNotEqual(self.head(), self.head("topic"))
            self.assertEqual(self.read("a.txt"), b"1")
            self.assertEqual(self.read_json("status")["changes"], [])
        self.tal("merge", "topic")


if __name__ == "__main__":
    unittest.main()
