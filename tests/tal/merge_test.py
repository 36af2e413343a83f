"""Merges: what conflicts, how it is decided, and that a failure changes nothing."""

import unittest

from support import DIFFERS, USAGE, TalTest


class MergeTest(TalTest):
    """Begins with "master" and "topic", which stand on one commit; `on` changes a branch."""

    def setUp(self):
        super().setUp()
        self.tal("init")
        self.commit("Base", a="base", b="base", c="base")
        self.tal("branch", "topic")

    def on(self, branch, remove=(), **files):
        self.tal("switch", branch)
        for name in remove:
            self.remove(name + ".txt")
        self.commit("Change on " + branch, **files)
        self.tal("switch", "master")

    def assert_nothing_changes(self, *arguments, code=DIFFERS, answers=b""):
        contents, store = self.contents(), self.store()
        output = self.tal(*arguments, code=code, answers=answers)
        self.assertEqual(self.contents(), contents)
        self.assertEqual(self.store(), store)
        return output

    def conflicts(self, code=DIFFERS):
        answer = self.read_json("merge", "--dry-run", "topic", code=code)
        return [(c["path"], c["kind"]) for c in answer["conflicts"]]


class Merging(MergeTest):
    def test_changes_of_both_sides_come_together(self):
        self.on("topic", a="topic", new="new", remove=["c"])
        self.on("master", b="master")
        self.assertEqual(self.conflicts(code=0), [])
        self.tal("merge", "topic")
        self.assertEqual(self.contents(),
                         {b"a.txt": b"topic", b"b.txt": b"master", b"new.txt": b"new"})
        self.assertEqual(self.read_json("status")["changes"], [])
        self.tal("verify")

    def test_the_merge_commit_has_one_parent_an_author_and_a_description(self):
        self.on("topic", a="topic")
        self.on("master", b="master")
        before = self.head()
        self.tal("merge", "topic", "--author", "Bob")
        commit = self.read_json("show")
        self.assertEqual((commit["parent"], commit["author"], commit["description"]),
                         (before, "Bob", "Merge topic"))

    def test_a_branch_ahead_is_a_fast_forward(self):
        self.on("topic", a="topic")
        self.tal("merge", "topic")
        self.assertEqual(self.head(), self.head("topic"))
        self.assertEqual(self.read("a.txt"), b"topic")

    def test_a_branch_behind_or_equal_is_nothing_to_do(self):
        self.assert_nothing_changes("merge", "topic", code=0)
        self.on("master", a="master")
        self.assert_nothing_changes("merge", "topic", code=0)

    def test_merging_twice_changes_nothing_more(self):
        self.on("topic", a="topic")
        self.on("master", b="master")
        self.tal("merge", "topic")
        self.assert_nothing_changes("merge", "topic", code=0)

    def test_unrelated_histories_come_together(self):
        self.tal("rebase", "--onto", "root")
        self.tal("switch", "root")
        self.commit("Apart", d="apart")
        self.tal("forget", "HEAD")  # leaves "root" and "master" with first commits of their own
        self.tal("switch", "master")
        self.tal("merge", "root")
        self.assertIn("no common commit", self.talk)
        self.assertEqual(self.contents(), {b"a.txt": b"base", b"b.txt": b"base",
                                           b"c.txt": b"base", b"d.txt": b"apart"})
        self.tal("verify")

    def test_uncommitted_changes_in_the_way_stop_it(self):
        self.on("topic", a="topic")
        self.on("master", b="master")
        self.write("a.txt", "mine")
        self.assert_nothing_changes("merge", "topic")
        self.assertIn("a.txt", self.talk)
        self.assert_nothing_changes("merge", "topic", "--dry-run")

    def test_uncommitted_changes_elsewhere_are_kept(self):
        self.on("topic", a="topic")
        self.on("master", b="master")
        self.write("c.txt", "mine")
        self.tal("merge", "topic")
        self.assertEqual(self.read("c.txt"), b"mine")

    def test_a_missing_branch_fails(self):
        self.assert_nothing_changes("merge", "nowhere")


class Conflicts(MergeTest):
    def setUp(self):
        super().setUp()
        self.on("topic", a="topic", b="topic", both="topic", remove=["c"])
        self.on("master", a="master", both="master", c="master", remove=["b"])

    def test_a_dry_run_lists_every_conflict_and_changes_nothing(self):
        output = self.assert_nothing_changes("merge", "--dry-run", "topic")
        self.assertIn("a.txt", output)
        self.assertEqual(self.conflicts(), [("a.txt", "changed on both sides"),
                                            ("b.txt", "removed here, changed there"),
                                            ("both.txt", "added on both sides"),
                                            ("c.txt", "changed here, removed there")])

    def test_undecided_conflicts_are_listed_and_left_in_the_folder(self):
        output = self.tal("merge", "topic", code=DIFFERS)
        for name in ("a.txt", "b.txt", "both.txt", "c.txt"):
            self.assertIn(name, output)
        self.assertIn("4 conflicts", self.talk)
        marked = b"<<<<<<< ours\nmaster\n=======\ntopic\n>>>>>>> theirs\n"
        self.assertEqual(self.contents(), {b"a.txt": marked, b"b.txt": b"topic",
                                           b"both.txt": marked, b"c.txt": b"master"})

    def test_ours(self):
        before = self.contents()
        self.tal("merge", "topic", "--ours")
        self.assertEqual(self.contents(), before)
        self.assertEqual(self.read_json("show")["merges"], [self.head("topic")])
        # The decision is remembered: a second merge has nothing to ask.
        self.assertEqual(self.conflicts(code=0), [])

    def test_theirs(self):
        self.tal("merge", "topic", "--theirs")
        self.assertEqual(self.contents(),
                         {b"a.txt": b"topic", b"b.txt": b"topic", b"both.txt": b"topic"})

    def test_base(self):
        self.tal("merge", "topic", "--base")
        self.assertEqual(self.contents(),
                         {b"a.txt": b"base", b"b.txt": b"base", b"c.txt": b"base"})

    def test_two_ways_at_once_are_wrong_usage(self):
        self.assert_nothing_changes("merge", "topic", "--ours", "--theirs", code=USAGE)

    def test_interactive_asks_for_each(self):
        self.tal("merge", "topic", "--interactive", answers=b"x\nd\nt\no\nb\nt\n")
        self.assertEqual(self.talk.count("[q]uit?"), 6)
        self.assertEqual(self.contents(), {b"a.txt": b"topic"})

    def test_interactive_can_be_given_up(self):
        self.assert_nothing_changes("merge", "topic", "--interactive", answers=b"t\nq\n")
        self.assert_nothing_changes("merge", "topic", "--interactive", answers=b"t\n")

    def test_a_dry_run_tells_what_a_way_would_take(self):
        answer = self.read_json("merge", "topic", "--dry-run", "--theirs")
        self.assertEqual({c["choice"] for c in answer["conflicts"]}, {"theirs"})
        self.assertEqual(answer["undecided"], 0)


class InProgress(MergeTest):
    """Merges whose conflicts are decided in the folder."""

    def setUp(self):
        super().setUp()
        self.on("topic", a="topic\n", new="new\n", run="run\n")
        self.on("master", a="master\n", b="master\n")
        self.before = self.state()

    def state(self):
        """Returns what a merge that is taken back leaves: all but the journal, which has grown."""
        objects = {path: bytes for path, bytes in self.store().items() if path != "state"}
        return self.contents(), self.read_json("branch"), objects

    def begin(self, *arguments):
        self.tal(*(arguments or ("merge", "topic")), code=DIFFERS)
        self.assertIn("tal merge --continue", self.talk)

    def decide(self):
        self.write("a.txt", "both\n")

    def assert_back(self):
        self.assertEqual(self.state(), self.before)
        self.assertIsNone(self.read_json("status")["merge"])
        self.assertEqual(self.read_json("status")["changes"], [])

    def test_status_says_what_is_in_progress(self):
        self.begin()
        status = self.tal("status")
        self.assertIn("merge of ", status)
        self.assertIn("conflict\ta.txt", status)
        topic = self.head("topic")
        self.assertEqual(self.read_json("status")["merge"],
                         {"action": "merge", "commit": topic, "conflicts": ["a.txt"],
                          "marked": ["a.txt"]})
        self.decide()
        self.assertEqual(self.read_json("status")["merge"]["marked"], [])
        self.assertNotIn("conflict\t", self.tal("status"))

    def test_the_end_makes_one_commit_of_all_files(self):
        head = self.head()
        self.begin()
        self.tal("merge", "--continue", code=DIFFERS)
        self.assertIn("a.txt", self.talk)
        self.decide()
        self.write("b.txt", "changed too\n")
        self.remove("c.txt")
        self.tal("merge", "--continue", "--dry-run")
        self.assertEqual(self.head(), head)
        self.tal("merge", "--continue")
        commit = self.read_json("show")
        self.assertEqual((commit["parent"], commit["merges"], commit["description"]),
                         (head, [self.head("topic")], "Merge topic"))
        files = {b"a.txt": b"both\n", b"b.txt": b"changed too\n", b"new.txt": b"new\n",
                 b"run.txt": b"run\n"}
        self.assertEqual(self.contents(), files)
        self.tal("switch", "topic")
        self.tal("switch", "master")
        self.assertEqual(self.contents(), files)
        self.assertIsNone(self.read_json("status")["merge"])
        self.tal("merge", "topic")
        self.assertIn("nothing to merge", self.talk)
        self.tal("merge", "--continue", code=DIFFERS)
        self.assertTrue(self.read_json("verify")["whole"])

    def test_a_commit_ends_it_with_its_message(self):
        head = self.head()
        self.begin()
        self.tal("commit", "-m", "Mine", code=DIFFERS)
        self.decide()
        self.tal("commit", "-m", "Mine")
        commit = self.read_json("show")
        self.assertEqual((commit["parent"], commit["merges"], commit["description"]),
                         (head, [self.head("topic")], "Mine"))

    def test_an_abort_puts_back_the_files_of_the_merge(self):
        self.begin()
        self.write("new.txt", "changed\n")
        self.tal("merge", "--abort", "--dry-run")
        self.assertEqual(self.read("new.txt"), b"changed\n")
        self.tal("merge", "--abort")
        self.assert_back()
        self.tal("merge", "--abort", code=DIFFERS)

    def test_an_abort_keeps_changes_elsewhere(self):
        self.write("c.txt", "mine")
        self.begin()
        self.tal("merge", "--abort")
        self.assertEqual(self.read("c.txt"), b"mine")
        self.tal("restore", "c.txt")
        self.assert_back()

    def test_the_sides_stay_where_a_tool_decided_nothing(self):
        self.begin("merge", "topic", "--tool", "false")
        self.assertIn(b"<<<<<<< ours", self.read("a.txt"))
        self.tal("merge", "--abort")
        self.assert_back()

    def test_a_tool_that_removes_or_replaces_the_merged_file_changes_nothing(self):
        self.tal("merge", "topic", "--tool", "sh -c 'ln -sf $2 $3'", code=DIFFERS)
        self.assertIn("has put a link in the place of the merged file", self.talk)
        self.assert_back()
        self.tal("merge", "topic", "--tool", "sh -c 'rm $3'", code=DIFFERS)
        self.assertIn("cannot read", self.talk)
        self.assert_back()

    def test_times_may_leave_conflicts_too(self):
        self.begin("merge", "topic", "--newest", "when.txt", "--markers")
        self.assertIn(b"<<<<<<< ours", self.read("a.txt"))

    def test_changes_in_the_way_stop_it_before_it_begins(self):
        self.write("a.txt", "mine")
        before = self.contents(), self.store()
        self.tal("merge", "topic", code=DIFFERS)
        self.assertIn("uncommitted changes", self.talk)
        self.assertEqual((self.contents(), self.store()), before)

    def test_commands_that_move_the_branch_wait_for_its_end(self):
        self.begin()
        before = self.contents(), self.store()
        for arguments in (["switch", "topic"], ["switch", "-c", "other"], ["merge", "topic"],
                          ["cherry-pick", "topic"], ["revert", "HEAD"], ["undo"], ["stash"],
                          ["stash", "pop"], ["rebase", "--onto", "root"], ["forget", "HEAD~1"],
                          ["simplify"], ["keep", "--newest", "1"], ["gc"]):
            self.tal(*arguments, code=DIFFERS)
            self.assertIn("a merge is in progress", self.talk, arguments)
            self.assertEqual((self.contents(), self.store()), before)
        self.tal("log")
        self.tal("merge", "--abort")
        self.assert_back()

    def test_picks_and_undos_are_decided_alike(self):
        self.tal("undo")
        self.tal("cherry-pick", "HEAD~1")
        self.commit("Again", a="again\n")
        for command in (["cherry-pick", "topic"], ["revert", "HEAD~2"]):
            self.before, head = self.state(), self.head()
            self.begin(*command)
            self.tal("merge", "--abort")
            self.assert_back()
            self.begin(*command)
            self.tal("restore", ".")
            for change in self.read_json("status")["changes"]:
                self.remove(change["path"])
            self.tal("merge", "--continue", code=DIFFERS)
            self.assertIn("changes nothing", self.talk)
            self.write("a.txt", "decided by " + command[0] + "\n")
            self.tal("merge", "--continue")
            commit = self.read_json("show")
            self.assertEqual((commit["parent"], commit["merges"]), (head, []))
            self.assertEqual(self.read_json("status")["changes"], [])

    def test_an_undo_that_conflicts_counts_as_an_undo(self):
        self.environment["TAL_AUTHOR"] = "Bob"
        self.commit("Of Bob", a="bob\n")
        self.environment["TAL_AUTHOR"] = "Ann"
        self.begin("undo")
        self.assertIn("undo of ", self.tal("status"))
        self.decide()
        self.tal("merge", "--continue")
        self.assertEqual(self.read_json("show")["description"], 'Undo "Change on master"')
        self.assertEqual(self.read("b.txt"), b"base")
        self.assertIn("redo, no conflicts", self.tal("redo", "--dry-run"))

    def test_without_text_one_side_is_in_the_folder(self):
        self.on("topic", a="\0topic", remove=["c"])
        self.on("master", a="\0master", c="changed")
        self.begin()
        self.assertEqual((self.read("a.txt"), self.read("c.txt")), (b"\0master", b"changed"))
        self.assertEqual(self.read_json("status")["merge"]["marked"], [])
        self.tal("merge", "--continue", "-m", "As it is here")
        self.assertEqual(self.read_json("show")["description"], "As it is here")
        self.assertEqual(self.read("a.txt"), b"\0master")

    def test_executable_bits_come_and_go_with_it(self):
        self.tal("switch", "topic")
        (self.folder / "b.txt").chmod(0o755)
        self.tal("commit", "-m", "Executable")
        self.tal("switch", "master")
        self.before = self.state()
        self.begin()
        self.assertTrue((self.folder / "b.txt").stat().st_mode & 0o100)
        self.tal("merge", "--abort")
        self.assertFalse((self.folder / "b.txt").stat().st_mode & 0o100)
        self.assert_back()
        self.begin()
        self.decide()
        self.tal("merge", "--continue")
        self.assertEqual({f["path"]: f.get("kind") for f in self.read_json("ls")}["b.txt"],
                         "executable")

    def test_a_merge_that_a_killed_command_began_can_be_taken_back(self):
        self.begin()
        self.remove("new.txt")  # as if the folder had not been changed to the end
        self.write("a.txt", "master\n")
        self.tal("merge", "--abort")
        self.assert_back()

    def test_wrong_usage(self):
        for arguments in (["merge"], ["merge", "--continue", "--abort"],
                          ["merge", "topic", "--abort"]):
            self.tal(*arguments, code=USAGE)


class Newest(MergeTest):
    def changed(self, master, topic, name="when"):
        self.on("topic", a="topic", **{name: topic})
        self.on("master", a="master", **{name: master})

    def merged(self, *arguments, path="when.txt"):
        self.tal("merge", "topic", "--newest", path, *arguments)
        return self.read("a.txt")

    def test_the_later_time_wins(self):
        self.changed("2024-05-31T18:00:00Z\n", "2024-05-31 20:30:00 +02:00\n")
        self.assertEqual(self.merged(), b"topic")

    def test_seconds_are_a_time_too(self):
        self.changed("1700000001", "1700000000")
        self.assertEqual(self.merged(), b"master")

    def test_a_time_on_one_side_only_wins(self):
        self.changed("no time", "2024-05-31")
        self.assertEqual(self.merged(), b"topic")

    def test_without_a_decision_ours_stays(self):
        self.changed("same", "no time")
        self.tal("merge", "topic", "--newest", "when.txt")
        self.assertEqual(self.read("a.txt"), b"master")

    def test_without_a_decision_the_given_way_counts(self):
        self.changed("same", "no time")
        self.assertEqual(self.merged("--theirs"), b"topic")

    def test_without_a_decision_interactive_asks(self):
        self.changed("same", "no time")
        self.tal("merge", "topic", "--newest", "when.txt", "--interactive", answers=b"t\nt\n")
        self.assertEqual(self.talk.count("[q]uit?"), 2)

    def test_the_time_nearest_to_the_conflict_counts(self):
        self.write("dir/when", "2020-01-01")
        self.write("dir/x", "base")
        self.write("when", "2020-01-01")
        self.tal("commit", "-m", "More")
        self.tal("merge", "topic")
        self.tal("branch", "-d", "topic")
        self.tal("switch", "-c", "topic")
        for branch, inner, outer in (("topic", "2022-01-01", "2020-01-01"),
                                     ("master", "2021-01-01", "2023-01-01")):
            self.tal("switch", branch)
            self.write("dir/when", inner)
            self.write("dir/x", branch)
            self.write("when", outer)
            self.tal("commit", "-m", branch)
        self.tal("merge", "topic", "--newest", "when")
        self.assertEqual(self.read("dir/x"), b"topic")


class Kinds(MergeTest):
    def test_a_file_against_a_folder(self):
        self.tal("switch", "topic")
        self.remove("a.txt")
        self.write("a.txt/inner", "i")
        self.tal("commit", "-m", "A folder")
        self.tal("switch", "master")
        self.on("master", a="master")
        self.assertEqual(self.conflicts(), [("a.txt", "changed here, folder there")])
        self.tal("merge", "topic", "--theirs")
        self.assertEqual(self.contents(), {b"a.txt/inner": b"i", b"b.txt": b"base",
                                           b"c.txt": b"base"})
        self.tal("verify")

    def test_a_file_against_a_changed_folder_is_a_conflict(self):
        self.write("x/y", "base")
        self.tal("commit", "-m", "A folder")
        self.tal("branch", "-d", "topic")
        self.tal("switch", "-c", "topic")
        self.remove("x/y")
        (self.folder / "x").rmdir()
        self.write("x", "a file")
        self.tal("commit", "-m", "A file")
        self.tal("switch", "master")
        self.write("x/y", "changed")
        self.tal("commit", "-m", "Changed in the folder")
        before = self.head()
        self.assertIn(("x", "changed folder here, added there"), self.conflicts())
        self.assert_nothing_changes("merge", "topic", "--dry-run")
        for way, expected in (("--theirs", {b"x": b"a file"}), ("--base", {b"x/y": b"base"}),
                              ("--ours", {b"x/y": b"changed"})):
            self.tal("merge", "topic", way)
            files = {path: content for path, content in self.contents().items() if path[:1] == b"x"}
            self.assertEqual(files, expected)
            self.tal("verify")
            self.tal("branch", "again" + way[2:], before)
            self.tal("switch", "again" + way[2:])
            self.assertEqual(self.read("x/y"), b"changed")

    def test_a_folder_that_a_merge_empties_goes(self):
        self.write("dir/one", "1")
        self.write("dir/two", "2")
        self.tal("commit", "-m", "A folder")
        self.tal("branch", "-d", "topic")
        self.tal("switch", "-c", "topic")
        self.remove("dir/one")
        self.write("dir/two", "topic")
        self.tal("commit", "-m", "One less")
        self.tal("switch", "master")
        self.remove("dir/two")
        self.tal("commit", "-m", "The other less")
        self.tal("merge", "topic", "--ours")
        self.assertFalse((self.folder / "dir").exists())
        self.tal("verify")
        self.assertEqual(self.tal("ls"), "a.txt\nb.txt\nc.txt\n")


if __name__ == "__main__":
    unittest.main()
