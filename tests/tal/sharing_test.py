"""Folders that share a history through a store: a folder, a SQLite file."""

import shutil
import unittest

from support import DAMAGED, DIFFERS, USAGE, TalTest


class Sharing(TalTest):
    """Ann and Bob have a folder each; the store between them is in a third place."""

    KIND = "folder"

    def setUp(self):
        super().setUp()
        self.place = self.scratch / "shared"
        self.bob = self.scratch / "bob"
        self.tal("init")
        self.commit("First", a="1")
        self.tal("remote", str(self.place), "--create", self.KIND)
        self.tal("push")
        self.tal("clone", str(self.place), str(self.bob))

    def commit_of_bob(self, message, name, content):
        (self.bob / name).write_text(content)
        self.tal("commit", "-m", message, "--author", "Bob", "--email", "b@c", folder=self.bob)

    def both(self):
        return self.contents(), {
            str(path.relative_to(self.bob)).encode(): path.read_bytes()
            for path in self.bob.rglob("*") if path.is_file() and ".vcs" not in path.parts}

    def summaries(self, folder):
        return [c["description"] for c in self.read_json("log", folder=folder)]

    def test_a_clone_has_the_files_and_the_history(self):
        ann, bob = self.both()
        self.assertEqual(ann, bob)
        self.assertEqual(self.tal("remote", folder=self.bob), f"remote\t{self.place}\n")
        self.assertEqual(self.tal("status", folder=self.bob).splitlines()[1], "nothing changed")
        self.tal("verify", folder=self.bob)
        self.tal("clone", str(self.place), str(self.bob), code=DIFFERS)
        self.tal("clone", str(self.place), "../" + self.bob.name, code=DIFFERS)
        self.assertIn(f'"../{self.bob.name}" is no empty folder', self.talk)
        self.tal("clone", str(self.scratch / "nowhere"), str(self.scratch / "x"), code=DIFFERS)

    def test_a_folder_without_a_commit_has_nothing_to_push(self):
        empty = self.scratch / "empty"
        empty.mkdir()
        self.tal("init", folder=empty)
        self.tal("remote", str(self.place), folder=empty)
        self.tal("push", code=DIFFERS, folder=empty)
        self.assertIn('cannot push branch "master": there is no such branch', self.talk)

    def test_both_edit_both_sync_both_are_equal(self):
        self.commit("Ann's", b="ann")
        self.commit_of_bob("Bob's", "c.txt", "bob")
        self.tal("sync")
        self.tal("push", code=DIFFERS, folder=self.bob)
        self.assertIn("tal sync", self.talk)
        self.tal("sync", folder=self.bob)
        self.assertIn("1 commit replayed", self.talk)
        self.tal("sync")
        ann, bob = self.both()
        self.assertEqual(ann, bob)
        self.assertEqual(ann, {b"a.txt": b"1", b"b.txt": b"ann", b"c.txt": b"bob"})
        self.assertEqual(self.summaries(self.folder), ["Bob's", "Ann's", "First"])
        self.assertEqual(self.summaries(self.bob), ["Bob's", "Ann's", "First"])
        self.assertEqual(self.read_json("log")[0]["author"], "Bob")
        self.tal("verify")
        self.tal("verify", folder=self.bob)

    def test_conflicts_change_nothing_until_a_side_is_taken(self):
        self.commit("Ann's", a="ann")
        self.commit_of_bob("Bob's", "a.txt", "bob")
        self.tal("sync")
        before = self.head_of_bob()
        listed = self.tal("sync", code=DIFFERS, folder=self.bob)
        self.assertEqual(listed, "conflict\ta.txt\tBob's\n")
        self.assertEqual(self.head_of_bob(), before)
        self.assertEqual((self.bob / "a.txt").read_text(), "bob")
        self.tal("sync", "--mine", "--theirs", code=USAGE, folder=self.bob)
        self.tal("sync", "--mine", folder=self.bob)
        self.tal("sync")
        self.assertEqual(self.read("a.txt"), b"bob")
        self.assertEqual(self.summaries(self.folder), ["Bob's", "Ann's", "First"])

    def head_of_bob(self):
        return self.read_json("show", "HEAD", folder=self.bob)["id"]

    def test_changes_that_are_not_committed_stay_or_stop_the_sync(self):
        self.commit("Ann's", b="ann")
        self.tal("sync")
        (self.bob / "own.txt").write_text("not committed")
        self.tal("sync", folder=self.bob)
        self.assertEqual((self.bob / "own.txt").read_text(), "not committed")
        self.commit("Again", b="again")
        self.tal("sync")
        (self.bob / "b.txt").write_text("in the way")
        before = self.head_of_bob()
        self.tal("sync", code=DIFFERS, folder=self.bob)
        self.assertEqual((self.bob / "b.txt").read_text(), "in the way")
        self.assertEqual(self.head_of_bob(), before)

    def test_fetch_brings_branches_and_prune_removes_them(self):
        self.tal("switch", "-c", "topic")
        self.commit("On the topic", t="1")
        self.tal("push")
        self.assertIn("remote/topic\t", self.tal("fetch", folder=self.bob))
        names = [b["name"] for b in self.read_json("branch", folder=self.bob)]
        self.assertEqual(sorted(names), ["master", "remote/master", "remote/topic"])
        self.tal("switch", "remote/topic", folder=self.bob)
        self.assertEqual((self.bob / "t.txt").read_text(), "1")

    def test_remotes_are_listed_and_removed(self):
        self.tal("remote", str(self.place), "--name", "second")
        self.tal("fetch", code=USAGE)
        self.tal("fetch", "--remote", "second")
        self.assertEqual(len(self.tal("remote").splitlines()), 2)
        self.tal("remote", "-d", "--name", "second")
        self.tal("remote", "-d", "--name", "second", code=DIFFERS)
        self.tal("fetch")
        self.tal("remote", "-d", "nowhere", code=DIFFERS)
        self.assertIn('no remote "nowhere"', self.talk)
        self.assertEqual(self.tal("remote"), f"remote\t{self.place}\n")
        self.tal("remote", "-d", str(self.place))
        self.tal("sync", code=DIFFERS)
        self.assertIn("tal remote PLACE", self.talk)

    def test_a_lazy_clone_works_on_the_remote_and_reads_offline_what_it_has(self):
        carla = self.scratch / "carla"
        self.tal("clone", str(self.place), str(carla), "--lazy")
        self.assertEqual((carla / "a.txt").read_text(), "1")
        (carla / "d.txt").write_text("carla")
        self.tal("commit", "-m", "Carla's", folder=carla)
        self.tal("sync", code=DIFFERS, folder=carla)
        self.tal("sync")
        self.assertEqual(self.read("d.txt"), b"carla")
        # A switch there is nobody else's.
        self.tal("switch", "-c", "topic", folder=carla)
        self.assertTrue(self.tal("status", folder=carla).startswith("branch topic"))
        self.assertTrue(self.tal("status", folder=self.bob).startswith("branch master"))
        self.tal("switch", "master", folder=carla)
        self.place.rename(self.scratch / "away")
        self.assertEqual(self.tal("log", "--json", folder=carla)[:1], "[")
        (carla / "d.txt").write_text("offline")
        self.assertIn("d.txt", self.tal("status", folder=carla))
        self.tal("commit", "-m", "Not now", code=DAMAGED, folder=carla)
        self.assertIn("the store can't be read: there is no store", self.talk)
        (self.scratch / "away").rename(self.place)
        self.tal("commit", "-m", "Now", folder=carla)


class SharingInOneFile(Sharing):
    KIND = "sqlite"


if __name__ == "__main__":
    unittest.main()
