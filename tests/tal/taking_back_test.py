"""Commands that take something back or put it aside: undo, redo, revert, cherry-pick, restore, stash."""

import os
import shutil
import signal
import subprocess
import time
import unittest

from support import DAMAGED, DIFFERS, DONE, PROGRAM, USAGE, TalTest


class TakingBack(TalTest):
    def setUp(self):
        super().setUp()
        self.tal("init")
        self.commit("First", a="1\n2\n3\n4\n5\n", b="b")
        self.commit("Second", a="1\ntwo\n3\n4\n5\n")
        self.commit("Third", a="1\ntwo\n3\n4\nfive\n")

    def assert_nothing_changes(self, *arguments, code=DIFFERS):
        contents, store = self.contents(), self.store()
        self.tal(*arguments, code=code)
        self.assertEqual(self.contents(), contents)
        self.assertEqual(self.store(), store)

    def test_undo_and_redo_go_step_by_step(self):
        third = self.contents()
        self.tal("undo")
        self.assertEqual(self.read("a.txt"), b"1\ntwo\n3\n4\n5\n")
        self.tal("undo")
        self.assertEqual(self.read("a.txt"), b"1\n2\n3\n4\n5\n")
        self.tal("redo")
        self.tal("redo")
        self.assertEqual(self.contents(), third)
        self.tal("redo", code=DIFFERS)
        self.assertIn("nothing of yours to redo", self.talk)
        self.assertEqual(self.read_json("status")["changes"], [])
        self.assertTrue(self.read_json("verify")["whole"])

    def test_undo_takes_back_only_what_is_mine(self):
        self.environment["TAL_AUTHOR"] = "Bob"
        self.assert_nothing_changes("undo")
        self.commit("Of Bob", b="bob")
        self.environment["TAL_AUTHOR"] = "Ann"
        self.tal("undo")
        self.assertEqual((self.read("a.txt"), self.read("b.txt")),
                         (b"1\ntwo\n3\n4\n5\n", b"bob"))

    def test_undo_keeps_uncommitted_changes(self):
        self.write("a.txt", "mine")
        self.assert_nothing_changes("undo")
        self.tal("restore", "a.txt")
        self.write("b.txt", "mine")
        self.tal("undo")
        self.assertEqual(self.read("b.txt"), b"mine")

    def test_dry_runs_change_nothing(self):
        for arguments in (["undo"], ["revert", "HEAD~1"], ["stash"], ["keep", "--newest", "1"],
                          ["merge", "HEAD~1"], ["switch", "-c", "new"], ["branch", "new"],
                          ["tag", "new"], ["rebase", "--onto", "root"], ["restore", "."]):
            self.write("b.txt", "mine")
            self.assert_nothing_changes(*arguments, "--dry-run", code=DONE)
            self.tal("restore", "b.txt")

    def test_revert_of_an_older_commit_keeps_the_newer_ones(self):
        self.tal("revert", "HEAD~1")
        self.assertEqual(self.read("a.txt"), b"1\n2\n3\n4\nfive\n")
        self.assertEqual(self.read_json("show")["description"], 'Revert "Second"')

    def test_revert_with_a_conflict_takes_a_decision(self):
        self.commit("Again", a="1\nzwei\n3\n4\nfive\n")
        self.assert_nothing_changes("revert", "HEAD~2", "--dry-run")
        self.tal("revert", "HEAD~2", "--theirs")
        self.assertEqual(self.read("a.txt").split(b"\n")[1], b"2")

    def test_cherry_pick_makes_the_changes_of_one_commit(self):
        self.tal("branch", "old", "HEAD~2")
        self.tal("switch", "old")
        self.tal("cherry-pick", "master")
        self.assertEqual(self.read("a.txt"), b"1\n2\n3\n4\nfive\n")
        self.assertEqual(self.read_json("show")["description"], "Third")

    def test_restore_writes_over_changes(self):
        self.write("a.txt", "mine")
        self.remove("b.txt")
        self.write("c.txt", "mine")
        self.tal("restore", ".")
        self.assertEqual(self.contents(), {b"a.txt": b"1\ntwo\n3\n4\nfive\n", b"b.txt": b"b",
                                           b"c.txt": b"mine"})
        self.tal("restore", "--from", "HEAD~2", "a.txt")
        self.assertEqual(self.read("a.txt"), b"1\n2\n3\n4\n5\n")
        self.tal("restore", "nowhere", code=DIFFERS)
        self.tal("restore", code=USAGE)

    def test_restore_that_fails_puts_back_what_it_wrote(self):
        self.write("large", b"x" * 100000)
        self.commit("Large", a="new", b="new")
        self.write("large", b"small")
        self.commit("Small", a="newer", b="newer")
        before = self.contents()
        result = self.run_limited("restore", "--from", "HEAD~1", ".")
        self.assertEqual(result.returncode, DIFFERS, result.stderr)
        self.assertEqual(self.contents(), before)

    def test_stashes_are_a_stack(self):
        clean = self.contents()
        self.tal("stash", code=DIFFERS)
        self.write("a.txt", "one")
        self.write("new.txt", "new")
        self.tal("stash", "-m", "First idea")
        self.assertEqual(self.contents(), clean)
        self.write("b.txt", "two")
        self.tal("stash")
        self.assertEqual(self.tal("stash", "list").count("stash/"), 2)
        self.assertEqual(self.tal("tag"), "")
        self.assertEqual(len(self.read_json("log")), 3)
        self.tal("gc")
        self.tal("stash", "pop")
        self.assertEqual(self.read("b.txt"), b"two")
        self.tal("restore", ".")
        self.tal("stash", "pop")
        self.assertEqual((self.read("a.txt"), self.read("new.txt")), (b"one", b"new"))
        self.tal("stash", "pop", code=DIFFERS)
        self.assertIn("no stash", self.talk)
        self.tal("stash", "frobnicate", code=USAGE)

    def test_a_stash_is_merged_with_the_folder(self):
        self.write("a.txt", "one\ntwo\n3\n4\nfive\n")
        self.tal("stash")
        self.commit("Meanwhile", c="c")
        self.write("a.txt", "1\ntwo\n3\n4\nfive\nsix\n")
        self.write("mine", "mine")
        before = self.contents(), self.store()
        self.tal("stash", "pop", "--dry-run")
        self.assertEqual((self.contents(), self.store()), before)
        self.tal("stash", "pop")
        self.assertEqual(self.read("a.txt"), b"one\ntwo\n3\n4\nfive\nsix\n")
        self.assertEqual(self.read("mine"), b"mine")
        self.assertEqual(self.tal("stash", "list"), "")
        self.assertEqual(len(self.read_json("log")), 4)

    def test_a_stash_that_conflicts_loses_nothing(self):
        self.write("a.txt", "one\ntwo\n3\n4\nfive\n")
        self.remove("b.txt")
        self.tal("stash")
        self.write("a.txt", "eins\ntwo\n3\n4\nfive\n")
        self.write("b.txt", "mine")
        output = self.tal("stash", "pop", code=DIFFERS)
        self.assertIn("conflict\ta.txt", output)
        self.assertIn("conflict\tb.txt", output)
        self.assertIn("stash/1 stays", self.talk)
        self.assertEqual(self.contents(), {
            b"a.txt": b"<<<<<<< ours\neins\n=======\none\n>>>>>>> theirs\ntwo\n3\n4\nfive\n",
            b"b.txt": b"mine"})
        self.tal("restore", ".")
        self.tal("stash", "pop")
        self.assertEqual(self.contents(), {b"a.txt": b"one\ntwo\n3\n4\nfive\n"})

    def test_a_stash_can_be_dropped(self):
        self.write("a.txt", "one")
        self.tal("stash")
        self.tal("stash", "drop")
        self.assertEqual(self.tal("stash", "list"), "")


class Rules(TalTest):
    def setUp(self):
        super().setUp()
        self.tal("init")
        for number in range(6):
            self.commit(f"Commit {number}", a=str(number) * 1000)

    def kept(self):
        return [c["description"] for c in self.read_json("log")]

    def test_the_newest_are_kept(self):
        self.tal("tag", "kept", "HEAD~4")
        self.tal("keep", "--newest", "2", "--dry-run")
        self.assertIn("would forget 3 commits and keep 3", self.talk)
        self.tal("keep", "--newest", "2")
        self.assertEqual(self.kept(), ["Commit 5", "Commit 4", "Commit 1"])
        self.assertEqual(self.read_json("stat")["unreached_bytes"], 0)

    def test_a_time_and_a_size_are_rules(self):
        self.tal("keep", "--since", "2 days ago")
        self.assertEqual(len(self.kept()), 6)
        self.tal("keep", "--under", "3KB")
        self.assertEqual(self.kept()[0], "Commit 5")
        self.assertLess(len(self.kept()), 4)
        for arguments in ([], ["--since", "soon"], ["--under", "much"],
                          ["--under", "16777216T"],  # 2 to the power of 64
                          ["--newest", "0"],
                          ["--tips", "--newest", "1"]):
            self.tal("keep", *arguments, code=USAGE)


class Stores(TalTest):
    def test_a_history_in_a_sqlite_file(self):
        self.tal("init", "--store", "sqlite")
        self.assertTrue((self.folder / ".vcs/history.sqlite").is_file())
        self.tal("init", code=DIFFERS)
        self.commit("First", a="1")
        self.tal("switch", "-c", "topic")
        self.commit("Second", a="2")
        self.tal("switch", "master")
        self.tal("merge", "topic")
        self.tal("undo")
        self.tal("simplify")
        self.assertTrue(self.read_json("verify")["whole"])
        self.assertEqual(self.read("a.txt"), b"1")
        self.tal("init", "--store", "paper", code=USAGE)

    def test_copies_have_the_same_history(self):
        self.tal("init")
        self.commit("First", a="1")
        self.tal("switch", "-c", "topic")
        self.commit("Second", a="2")
        other = self.scratch / "other"
        (other / ".vcs").mkdir(parents=True)
        self.tal("copy", str(other / ".vcs/history.sqlite"), "--store", "sqlite")
        self.assertEqual(self.read_json("log", folder=other), self.read_json("log"))
        self.tal("switch", "--restore", "topic", folder=other)
        self.assertEqual((other / "a.txt").read_bytes(), b"2")
        self.tal("copy", str(self.scratch / "back"), "--branch", "master", folder=other)
        self.assertEqual([b["name"] for b in self.read_json("branch", folder=self.scratch / "back")],
                         ["master"])
        self.tal("copy", str(other), code=DIFFERS)

    def test_a_copy_that_fails_leaves_nothing(self):
        self.tal("init")
        self.write("large", os.urandom(100000))
        self.tal("commit", "-m", "Large")
        for kind in ("folder", "sqlite"):
            target = self.scratch / ("copy-" + kind)
            result = self.run_limited("copy", str(target), "--store", kind, blocks=64)
            self.assertNotEqual(result.returncode, DONE, result.stderr)
            self.assertEqual([p for p in self.scratch.iterdir() if p.name.startswith("copy-" + kind)], [])
            self.tal("copy", str(target), "--store", kind)

    def test_salvage_writes_what_can_be_read(self):
        self.tal("init")
        self.write("dir/old", "old\n" * 50)
        self.commit("First", a="1\n" * 60)
        self.commit("Second", b="2\n" * 70)
        whole = self.contents()
        rescued = self.scratch / "rescued"
        self.tal("salvage", str(rescued))
        self.assertEqual({os.fsencode(p.relative_to(rescued / "master")): p.read_bytes()
                          for p in rescued.rglob("*") if p.is_file()}, whole)
        self.tal("salvage", str(rescued), code=DIFFERS)
        packs = sorted((self.folder / ".vcs/packs").glob("*.pack"))
        outcomes = set()
        for pack in packs:
            content = pack.read_bytes()
            for position in range(len(content) // 3, len(content), len(content) // 9):
                changed = bytearray(content)
                changed[position] ^= 1
                pack.write_bytes(changed)
                target = self.scratch / f"rescued-{pack.name}-{position}"
                result = self.run_tal("salvage", str(target))
                outcomes.add(result.returncode)
                self.assertIn(result.returncode, (DONE, DAMAGED), result.stderr)
                for path in target.rglob("*"):
                    if path.is_file():
                        name = os.fsencode("/".join(path.relative_to(target).parts[1:]))
                        self.assertEqual(path.read_bytes(), whole[name])
            pack.write_bytes(content)
        self.assertIn(DAMAGED, outcomes)


class SalvageOfOddNames(TalTest):
    def setUp(self):
        super().setUp()
        self.tal("init")
        self.commit("First", a="1")
        self.rescued = self.scratch / "rescued"

    def test_branches_whose_names_become_one_have_folders_of_their_own(self):
        for name in ("x/y", "x_y"):
            self.tal("switch", "-c", name)
            self.commit(name, a=name)
        self.tal("salvage", str(self.rescued))
        found = {p.name: (p / "a.txt").read_text() for p in self.rescued.iterdir()}
        self.assertEqual(found, {"master": "1", "x_y": "x/y", "x_y-2": "x_y"})

    def test_a_branch_with_a_long_name_is_salvaged(self):
        self.tal("branch", "ä" * 300)
        self.tal("salvage", str(self.rescued))
        self.assertEqual((self.rescued / ("ä" * 100) / "a.txt").read_text(), "1")

    def test_what_no_folder_can_hold_is_lost_and_the_rest_is_written(self):
        odd = ["../outside", "dir/.vcs/state", "long/" + "x" * 300]
        subprocess.run([os.environ["TAL_MAKE_BRANCH"], self.folder, "odd", "good", "2",
                        *[word for path in odd for word in (path, "hostile")]], check=True)
        self.tal("salvage", str(self.rescued), code=DAMAGED)
        self.assertEqual((self.rescued / "odd/good").read_text(), "2")
        for path in odd:
            self.assertIn(f"lost: odd: {path} (no folder can hold this path)", self.talk)
        self.assertFalse((self.scratch / "outside").exists())
        self.assertFalse((self.rescued / "outside").exists())


class SalvageWithoutBranches(TalTest):
    """The journal of the store, which lists the branches, is missing or damaged."""

    def setUp(self):
        super().setUp()
        self.tal("init")
        self.write("dir/old", "old\n" * 50)
        self.commit("First", a="1\n" * 60)
        self.tal("switch", "-c", "topic")
        self.commit("On the topic", b="topic\n" * 70)
        self.tips = {self.head()[:10]: self.contents()}
        self.tal("switch", "master")
        self.commit("On master", b="master\n" * 70)
        self.tips[self.head()[:10]] = self.contents()
        self.rescued = self.scratch / "rescued"

    def found(self):
        """Returns the files that were salvaged, by the id in the name of their folder."""
        result = {}
        for folder in self.rescued.iterdir():
            prefix, _, name = folder.name.partition("-")
            self.assertEqual(prefix, "tip")
            result[name] = {os.fsencode(p.relative_to(folder)): p.read_bytes()
                            for p in folder.rglob("*") if p.is_file()}
        return result

    def assert_all_found(self):
        before = self.store()
        self.tal("salvage", str(self.rescued), code=DAMAGED)
        self.assertIn("2 tips", self.talk)
        self.assertIn("Ann: On the topic", self.talk)
        self.assertEqual(self.found(), self.tips)
        self.assertEqual(self.store(), before)

    def test_without_a_journal(self):
        (self.folder / ".vcs/state").unlink()
        self.assert_all_found()

    def test_with_a_damaged_journal(self):
        path = self.folder / ".vcs/state"
        changed = bytearray(path.read_bytes())
        changed[60] ^= 1
        path.write_bytes(changed)
        self.assert_all_found()

    def test_with_files_of_objects(self):
        large = os.urandom(1 << 21)
        self.write("large", large)
        self.tal("commit", "-m", "Large")
        (self.folder / ".vcs/state").unlink()
        self.tal("salvage", str(self.rescued), code=DAMAGED)
        self.assertIn(large, [files.get(b"large") for files in self.found().values()])

    def test_with_a_damaged_pack_the_rest_is_found(self):
        (self.folder / ".vcs/state").unlink()
        outcomes = set()
        for pack in (self.folder / ".vcs/packs").glob("*.pack"):
            content = pack.read_bytes()
            for position in range(len(content) // 3, len(content), len(content) // 7):
                changed = bytearray(content)
                changed[position] ^= 1
                pack.write_bytes(changed)
                shutil.rmtree(self.rescued, ignore_errors=True)
                self.tal("salvage", str(self.rescued), code=DAMAGED)
                outcomes.add(len(self.found()))
                for files in self.found().values():
                    for path, content_found in files.items():
                        self.assertIn(content_found, [f.get(path) for f in self.tips.values()])
            pack.write_bytes(content)
        self.assertIn(2, outcomes)

    def test_nothing_at_all(self):
        shutil.rmtree(self.folder / ".vcs/packs")
        (self.folder / ".vcs/state").unlink()
        shutil.rmtree(self.folder / ".vcs/objects", ignore_errors=True)
        self.tal("salvage", str(self.rescued), code=DAMAGED)
        self.assertIn("no objects", self.talk)

    def test_commits_without_a_branch_on_request(self):
        self.tal("branch", "-d", "topic")
        self.tal("salvage", "--tips", str(self.rescued))
        self.assertIn("1 branch and 1 tip without one", self.talk)
        shutil.rmtree(self.rescued / "master")
        self.assertEqual(len(self.found()), 1)


class Interrupts(TalTest):
    def test_an_interrupted_command_leaves_the_state_before_or_after(self):
        self.tal("init")
        for number in range(300):
            self.write(f"d{number % 7}/f{number}", f"{number}\n" * 50)
        self.tal("commit", "-m", "First")
        first = self.contents()
        self.tal("switch", "-c", "topic")
        for number in range(0, 300, 2):
            self.write(f"d{number % 7}/f{number}", f"topic {number}\n" * 50)
        self.tal("commit", "-m", "Second")
        second = self.contents()
        outcomes = set()
        for round_number in range(12):
            branch, other = ("master", "topic") if round_number % 2 == 0 else ("topic", "master")
            self.tal("switch", other)
            with subprocess.Popen([PROGRAM, "switch", branch], cwd=self.folder,
                                  env=self.environment, stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL) as process:
                time.sleep(0.002 * round_number)
                process.send_signal(signal.SIGINT)
            outcomes.add(process.returncode)
            self.assertIn(process.returncode, (DONE, 130, -signal.SIGINT))
            now = self.read_json("status")
            self.assertEqual(now["changes"], [])
            self.assertEqual(now["branch"], branch if process.returncode == DONE else other)
            self.assertEqual(self.contents(), first if now["branch"] == "master" else second)
        self.assertTrue(self.read_json("verify")["whole"])

    def test_a_question_ends_at_an_interrupt(self):
        self.tal("init")
        self.commit("First", a="1")
        self.tal("switch", "-c", "topic")
        self.commit("Topic", a="2")
        self.tal("switch", "master")
        self.commit("Master", a="3")
        before = self.contents()
        with subprocess.Popen([PROGRAM, "merge", "topic", "--interactive"], cwd=self.folder,
                              env=self.environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE) as process:
            os.read(process.stderr.fileno(), 1)  # it has asked
            process.send_signal(signal.SIGINT)
            process.wait(timeout=60)
        self.assertEqual(process.returncode, 130)
        self.assertEqual(self.contents(), before)
        self.assertEqual(self.read_json("show")["description"], "Master")


if __name__ == "__main__":
    unittest.main()
