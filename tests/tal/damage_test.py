"""Stores that are damaged, hostile, or in use by another process."""

import os
import subprocess
import unittest

from support import DAMAGED, DIFFERS, PROGRAM, TalTest

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
            self.assertIn("cannot change the store now", self.talk)
            self.tal("log")  # reading goes on
            first.communicate(b"t\n")
        self.assertEqual(first.returncode, 0)
        self.tal("commit", "-m", "Now")
        self.tal("verify")


if __name__ == "__main__":
    unittest.main()
