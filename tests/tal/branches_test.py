"""Branches, and the files that a switch writes."""

import os
import shutil
import stat
import unittest

from support import DIFFERS, USAGE, TalTest


class Branches(TalTest):
    def setUp(self):
        super().setUp()
        self.tal("init")
        self.commit("First", a="1")

    def names(self):
        return sorted(b["name"] for b in self.read_json("branch"))

    def test_make_list_and_remove(self):
        self.tal("branch", "topic")
        self.assertEqual(self.names(), ["master", "topic"])
        self.assertIn("* master", self.tal("branch"))
        self.tal("branch", "-d", "topic")
        self.assertEqual(self.names(), ["master"])

    def test_a_branch_begins_where_it_is_told(self):
        first = self.head()
        self.commit("Second", a="2")
        self.tal("branch", "old", first[:6])
        self.assertEqual(self.head("old"), first)

    def test_what_is_refused(self):
        self.tal("branch", "master", code=DIFFERS)
        self.tal("branch", "-d", "master", code=DIFFERS)
        self.tal("branch", "-d", "nowhere", code=DIFFERS)
        self.tal("branch", "-d", code=USAGE)
        self.tal("branch", "new", "nowhere", code=DIFFERS)
        self.tal("branch", b"bad \xff", code=USAGE)
        for name in ("HEAD", "a~1", "a~"):
            self.tal("branch", name, code=USAGE)
            self.tal("switch", "-c", name, code=USAGE)
        self.tal("branch", "a~b")
        self.tal("branch", "-d", "a~b")
        self.tal("switch", "nowhere", code=DIFFERS)
        self.assertEqual(self.names(), ["master"])

    def test_the_first_branch_has_no_commit_before_the_first(self):
        other = self.scratch / "other"
        other.mkdir()
        self.tal("init", folder=other)
        self.tal("log", folder=other, code=DIFFERS)
        self.tal("branch", "topic", folder=other, code=DIFFERS)
        self.tal("verify", folder=other)


class Switch(TalTest):
    def setUp(self):
        super().setUp()
        self.tal("init")
        self.commit("First", a="1", b="same")
        self.tal("switch", "-c", "topic")
        self.write("dir/deep/new.txt", "n")
        self.commit("On the topic", a="topic")
        self.topic = self.contents()
        self.tal("switch", "master")
        self.master = {b"a.txt": b"1", b"b.txt": b"same"}

    def test_files_are_written_and_removed(self):
        self.assertEqual(self.contents(), self.master)
        self.assertFalse((self.folder / "dir").exists())
        self.tal("switch", "topic")
        self.assertEqual(self.contents(), self.topic)
        self.assertEqual(self.read_json("status")["changes"], [])

    def test_changes_that_would_be_lost_stop_it(self):
        for path, content in (("a.txt", "mine"), ("dir/deep/new.txt", "mine"), ("dir", "a file")):
            self.write(path, content)
            before, store = self.contents(), self.store()
            self.tal("switch", "topic", code=DIFFERS)
            self.assertIn(path.split("/")[0], self.talk)
            self.assertEqual(self.contents(), before)
            self.assertEqual(self.store(), store)
            self.assertEqual(self.read_json("status")["branch"], "master")
            self.remove(path)
            shutil.rmtree(self.folder / "dir", ignore_errors=True)
            self.tal("switch", "--restore", "master")
            self.assertEqual(self.contents(), self.master)

    def test_a_file_that_was_removed_by_hand_stops_it(self):
        self.remove("a.txt")
        self.tal("switch", "topic", code=DIFFERS)
        self.assertIn("a.txt", self.talk)

    def test_changes_elsewhere_are_kept(self):
        self.write("b.txt", "mine")
        self.write("untracked", "mine")
        self.tal("switch", "topic")
        self.assertEqual(self.contents(), {**self.topic, b"b.txt": b"mine", b"untracked": b"mine"})

    def test_a_file_that_is_as_it_should_become_is_no_change(self):
        self.write("dir/deep/new.txt", "n")
        self.write("a.txt", "topic")
        self.tal("switch", "topic")
        self.assertEqual(self.contents(), self.topic)

    def test_ignored_files_are_not_overwritten_either(self):
        self.write(".talignore", "dir/\n")
        self.write("dir/deep/new.txt", "mine")
        self.tal("switch", "topic", code=DIFFERS)
        self.assertEqual(self.read("dir/deep/new.txt"), b"mine")

    def test_other_files_keep_a_folder_alive(self):
        self.tal("switch", "topic")
        self.write("dir/deep/mine", "mine")
        self.tal("switch", "master")
        self.assertEqual(self.contents(), {**self.master, b"dir/deep/mine": b"mine"})

    def test_a_link_does_not_lead_out_of_the_folder(self):
        outside = self.scratch / "outside"
        outside.mkdir()
        (self.folder / "dir").symlink_to(outside)
        self.tal("switch", "topic", code=DIFFERS)
        self.assertEqual(list(outside.iterdir()), [])

    def test_a_link_in_place_of_a_file_is_not_followed(self):
        target = self.scratch / "target"
        target.write_text("1")
        self.remove("a.txt")
        (self.folder / "a.txt").symlink_to(target)
        self.tal("switch", "topic", code=DIFFERS)
        self.assertEqual(target.read_text(), "1")
        self.assertTrue((self.folder / "a.txt").is_symlink())

    def test_a_folder_takes_the_place_of_a_file(self):
        self.remove("a.txt")
        self.write("a.txt/inner", "i")
        self.tal("commit", "-m", "A folder")
        self.tal("switch", "topic")
        self.assertEqual(self.contents(), self.topic)
        self.tal("switch", "master")
        self.assertEqual(self.read("a.txt/inner"), b"i")

    def test_a_folder_without_files_gives_way_to_a_file(self):
        self.tal("switch", "-c", "file")
        self.commit("A file", deep="1")
        self.tal("switch", "master")
        (self.folder / "deep.txt/a/b").mkdir(parents=True)
        (self.folder / "deep.txt/c").mkdir()
        self.tal("switch", "file")
        self.assertEqual(self.read("deep.txt"), b"1")
        self.remove("deep.txt")
        (self.folder / "deep.txt/a").mkdir(parents=True)
        self.tal("restore", "deep.txt")
        self.assertEqual(self.read("deep.txt"), b"1")
        self.remove("deep.txt")
        self.write("deep.txt/a/mine", "2")
        self.tal("restore", "deep.txt", code=DIFFERS)
        self.assertEqual(self.read("deep.txt/a/mine"), b"2")

    def test_a_folder_with_other_files_is_not_replaced(self):
        self.remove("a.txt")
        self.write("a.txt/inner", "i")
        self.tal("commit", "-m", "A folder")
        self.write("a.txt/mine", "mine")
        before = self.contents()
        self.tal("switch", "topic", code=DIFFERS)
        self.assertEqual(self.contents(), before)

    def test_permissions_of_a_file_stay(self):
        os.chmod(self.folder / "a.txt", 0o640)
        self.tal("switch", "topic")
        self.assertEqual(stat.S_IMODE(os.stat(self.folder / "a.txt").st_mode), 0o640)

    def test_the_executable_bit_follows_the_branch(self):
        os.chmod(self.folder / "a.txt", 0o740)
        self.assertEqual(self.tal("status").split("\n")[1], "changed\ta.txt (file -> executable)")
        self.tal("switch", "topic", code=DIFFERS)
        self.tal("commit", "-m", "A program")
        self.tal("switch", "topic")
        self.assertEqual(stat.S_IMODE(os.stat(self.folder / "a.txt").st_mode), 0o640)
        self.tal("switch", "master")
        self.assertEqual(stat.S_IMODE(os.stat(self.folder / "a.txt").st_mode), 0o750)

    def test_a_write_that_fails_puts_everything_back(self):
        self.tal("switch", "-c", "large")
        self.write("b.txt", "other")
        self.write("early", "e")
        self.write("large", b"x" * 100000)
        self.tal("commit", "-m", "A large file")
        self.tal("switch", "master")
        before = self.contents()
        result = self.run_limited("switch", "large")
        self.assertEqual(result.returncode, DIFFERS, result.stderr)
        self.assertIn(b"large", result.stderr)
        self.assertEqual(self.contents(), before)
        self.assertEqual(self.tal("status").split()[1], "master")
        self.tal("switch", "large")
        self.assertEqual(self.read("early"), b"e")

    def test_paths_longer_than_the_system_opens_at_once(self):
        deep = self.scratch / "/".join(["d" * 250] * 14)
        os.makedirs(deep.parent)
        (self.folder).rename(deep)
        name = "/".join(["x" * 250] * 3)
        os.chdir(deep)
        self.addCleanup(os.chdir, "/")
        for folder in name.split("/")[:-1]:
            os.mkdir(folder)
            os.chdir(folder)
        with open(name.split("/")[-1], "w", encoding="ascii") as file:
            file.write("deep")
        self.tal("commit", "-m", "A long path", folder=deep)
        self.tal("switch", "topic", folder=deep)
        self.assertEqual(self.tal("ls", "-r", "master", folder=deep), f"a.txt\nb.txt\n{name}\n")
        self.tal("switch", "master", folder=deep)
        self.assertEqual(self.read_json("status", folder=deep)["changes"], [])


if __name__ == "__main__":
    unittest.main()
