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

    def test_undecided_conflicts_fail_and_are_listed(self):
        output = self.assert_nothing_changes("merge", "topic")
        for name in ("a.txt", "b.txt", "both.txt", "c.txt"):
            self.assertIn(name, output)
        self.assertIn("4 conflicts", self.talk)

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
        self.assert_nothing_changes("merge", "topic")
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
