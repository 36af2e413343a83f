"""Stores that are damaged, hostile, or in use by another process."""

import os
import shutil
import subprocess
import unittest

from support import DAMAGED, DIFFERS, DONE, PROGRAM, TalTest, contents_of

MAKE_BRANCH = os.environ["TAL_MAKE_BRANCH"]


class Damage(TalTest):
    def setUp(self):
        super().setUp()
        self.tal("init")
        self.commit("First", a="1" * 100)
        self.write("dir/b", "2")
        self.commit("Second", a="3" * 100)

    def assert_damaged(self):
        contents = self.contents()
        self.tal("verify", code=DAMAGED)
        self.assertIn("damaged", self.talk)
        answer = self.read_json("verify", code=DAMAGED)
        self.assertFalse(answer["whole"])
        self.assertNotEqual(answer["reason"], "")
        self.assertEqual(self.contents(), contents)

    def test_every_changed_byte_of_a_pack_is_found(self):
        for path in sorted((self.folder / ".vcs/packs").glob("*.pack")):
            content = path.read_bytes()
            for position in range(len(content) // 4, len(content), 41):
                changed = bytearray(content)
                changed[position] ^= 1
                path.write_bytes(changed)
                self.assert_damaged()
            path.write_bytes(content)
        self.assertTrue(self.read_json("verify")["whole"])

    def test_missing_packs_are_found_and_nothing_is_committed(self):
        self.write("dir/b", "new")
        for path in (self.folder / ".vcs/packs").glob("*.pack"):
            path.unlink()
        self.assert_damaged()
        before = self.store()
        self.tal("status", code=DAMAGED)
        self.tal("commit", "-m", "More", code=DAMAGED)
        self.assertEqual(self.store(), before)

    def test_a_changed_byte_of_the_state_is_found_or_leaves_a_former_version(self):
        path = self.folder / ".vcs/state"
        content = path.read_bytes()
        found = 0
        for position in range(31, len(content), 13):  # after the two lines of the version
            changed = bytearray(content)
            changed[position] ^= 1
            path.write_bytes(changed)
            if self.run_tal("verify").returncode == DAMAGED:
                found += 1
                self.tal("commit", "-m", "More", code=DAMAGED)
                self.assertEqual(path.read_bytes(), changed)
            else:  # the last record counts as one that was never completed
                self.assertTrue(self.read_json("verify")["whole"])
                self.assertEqual([c["description"] for c in self.read_json("log")], ["First"])
        self.assertGreater(found, 5)
        path.unlink()
        self.tal("log", code=DAMAGED)

    def test_files_of_any_size_are_refused(self):
        """Sparse ones take no room on the disk, but would take all memory."""
        state = self.folder / ".vcs/state"
        index = self.folder / ".vcs/tal-index"
        for path, code in ((index, DONE), (state, DAMAGED)):
            os.truncate(path, 1 << 38)
            self.tal("status", code=code)
        self.assertIn("larger than the state of any store", self.talk)

    def test_an_unreadable_folder_is_named(self):
        (self.folder / ".vcs/state").unlink()
        (self.folder / ".vcs/state").mkdir()
        for command in ("log", "verify"):
            self.tal(command, code=DAMAGED)
            self.assertIn("Is a directory", self.talk)
        self.assertIn("Is a directory", self.read_json("verify", code=DAMAGED)["reason"])


class FormerStore(TalTest):
    """A store as the versions before kept it: a file for each object, and the branch in a file."""

    def setUp(self):
        super().setUp()
        subprocess.run([MAKE_BRANCH, "--former", self.folder, "trunk", "a", "1", "dir/b", "2"],
                       check=True)

    def test_it_is_read_and_continued(self):
        self.assertTrue((self.folder / ".vcs/objects").is_dir())
        self.assertEqual(self.read_json("status")["branch"], "trunk")
        self.assertEqual(self.tal("ls"), "a\ndir/b\n")
        self.tal("switch", "--restore", "trunk")
        self.assertEqual(self.contents(), {b"a": b"1", b"dir/b": b"2"})
        self.write("a", "changed")
        self.tal("commit", "-m", "Goes on")
        self.assertEqual(len(self.read_json("log")), 2)
        self.assertEqual(self.read_json("branch"),
                         [{"name": "trunk", "current": True, "head": self.head()}])
        self.assertTrue(self.read_json("verify")["whole"])


class HostileStore(TalTest):
    """A store that somebody else made may name any path."""

    def setUp(self):
        super().setUp()
        self.tal("init")
        self.commit("First", a="1")

    def assert_refused(self, path):
        subprocess.run([MAKE_BRANCH, self.folder, "hostile", path, "hostile"], check=True)
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


class DamagedFile(TalTest):
    """A history in a SQLite file, of which pages are damaged."""

    PAGE = 512

    def setUp(self):
        super().setUp()
        self.tal("init", "--store", "sqlite")
        self.write("dir/old", os.urandom(3000))
        self.commit("First", a="1\n" * 60)
        self.tal("switch", "-c", "topic")
        self.commit("On the topic", b="topic\n" * 70)
        self.whole = {"topic": self.contents()}
        self.tal("switch", "master")
        self.commit("On master", b="master\n" * 70)
        self.whole["master"] = self.contents()
        self.file = self.folder / ".vcs/history.sqlite"
        self.bytes = self.file.read_bytes()
        self.rescued = self.scratch / "rescued"

    def salvage(self, content):
        """Returns the exit code, and the files that were salvaged by the names of their folders."""
        self.file.write_bytes(content)
        shutil.rmtree(self.rescued, ignore_errors=True)
        result = self.run_tal("salvage", str(self.rescued))
        self.assertEqual(self.file.read_bytes(), content)
        self.assertEqual([p.name for p in self.file.parent.iterdir() if p.name.startswith("history")],
                         ["history.sqlite"])
        return result.returncode, {folder.name: contents_of(folder) for folder in self.rescued.iterdir()}

    def test_everything_is_found_without_the_first_page(self):
        content = bytes(self.PAGE) + self.bytes[self.PAGE:]
        self.assertEqual(self.salvage(content), (DONE, self.whole))

    def test_any_page_may_be_lost(self):
        codes = []
        for start in range(0, len(self.bytes), self.PAGE):
            content = self.bytes[:start] + bytes(self.PAGE) + self.bytes[start + self.PAGE:]
            code, found = self.salvage(content)
            self.assertIn(code, (DONE, DAMAGED))
            if code == DONE:
                self.assertEqual(found, self.whole)
            codes.append(code)
            files = [files.get(b"b.txt") for files in self.whole.values()]
            for name in found:
                self.assertIn(name, ("master", "topic", "salvaged_1", "salvaged_2"))
                self.assertIn(found[name].get(b"b.txt", files[0]), files)
        self.assertGreater(codes.count(DONE), len(codes) // 4)
        self.assertIn(DAMAGED, codes)

    def test_nothing_is_left_where_no_copy_can_be_written(self):
        self.file.write_bytes(bytes(self.PAGE) + self.bytes[self.PAGE:])
        result = self.run_limited("salvage", str(self.rescued), blocks=8)
        self.assertNotEqual(result.returncode, DONE)
        self.assertEqual(list(self.rescued.iterdir()), [])


class HostileLinks(TalTest):
    """A history whose symbolic links lead out of the folder, with files below them."""

    def setUp(self):
        super().setUp()
        self.tal("init")
        self.commit("First", a="1")
        self.outside = self.scratch / "outside"
        self.outside.mkdir()
        (self.outside / "file").write_text("mine")

    def branch(self, name, *files):
        subprocess.run([MAKE_BRANCH, self.folder, name, *files], check=True)

    def assert_outside_is_untouched(self):
        self.assertEqual(contents_of(self.outside), {b"file": b"mine"})

    def test_a_later_version_does_not_write_through_a_link(self):
        self.branch("link", "dir", str(self.outside), ".talkinds", "l dir\n")
        self.branch("files", "dir/file", "hostile", "dir/new", "hostile")
        self.tal("switch", "link")
        self.assertEqual(os.readlink(self.folder / "dir"), str(self.outside))
        self.tal("switch", "files")
        self.assertFalse((self.folder / "dir").is_symlink())
        self.assertEqual(self.read("dir/file"), b"hostile")
        self.tal("switch", "link")
        self.tal("switch", "master")
        self.assert_outside_is_untouched()
        self.assertEqual(self.contents(), {b"a.txt": b"1"})

    def test_a_link_of_the_user_is_not_written_through(self):
        self.branch("files", "dir/file", "hostile")
        (self.folder / "dir").symlink_to(self.outside)
        self.tal("switch", "files", code=DIFFERS)
        self.tal("merge", "files", code=DIFFERS)
        self.assert_outside_is_untouched()

    def test_links_without_a_valid_target_are_refused(self):
        for number, target in enumerate(("", "x" * 5000)):
            name = f"bad{number}"
            self.branch(name, "link", target, ".talkinds", "l link\n")
            self.tal("switch", name, code=DIFFERS)
            self.assertEqual(self.contents(), {b"a.txt": b"1"})
            self.assertFalse(os.path.lexists(self.folder / "link"))

    def test_kinds_of_any_text_are_harmless(self):
        self.branch("odd", "file", "1", ".talkinds",
                    "l ../outside\nx \nl\nq file\nx /etc\nl .vcs\nx file\n\\\nx")
        self.tal("switch", "odd")
        self.assertTrue(os.access(self.folder / "file", os.X_OK))
        self.assertEqual(self.contents(), {b"file": b"1"})
        self.assert_outside_is_untouched()


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
