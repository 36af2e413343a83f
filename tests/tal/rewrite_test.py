"""Commands that change the history: rebase, forget, simplify, gc."""

import unittest

from support import DIFFERS, DONE, USAGE, TalTest


class RewriteTest(TalTest):
    def setUp(self):
        super().setUp()
        self.tal("init")

    def chain(self, branch, *names):
        """Commits once for each name, on a branch that is made if it isn't there."""
        if branch != self.read_json("status")["branch"]:
            exists = any(b["name"] == branch for b in self.read_json("branch"))
            self.tal("switch", *([] if exists else ["-c"]), branch)
        for name in names:
            self.commit(name, state=name)

    def descriptions(self, branch):
        return [c["description"] for c in self.read_json("log", branch)]

    def state(self, branch):
        return self.tal("cat", "state.txt", "-r", branch)

    def assert_whole(self):
        self.assertTrue(self.read_json("verify")["whole"])
        self.assertEqual(self.read_json("status")["changes"], [])

    def assert_nothing_changes(self, *arguments, code=DIFFERS):
        contents, store = self.contents(), self.store()
        self.tal(*arguments, code=code)
        self.assertEqual(self.contents(), contents)
        self.assertEqual(self.store(), store)


class Forget(RewriteTest):
    def test_older_commits_go(self):
        self.chain("master", "a", "b", "c", "d")
        self.tal("forget", "HEAD~2")
        self.assertEqual(self.descriptions("master"), ["d", "c"])
        self.assertEqual(self.state("master~1"), "c")
        self.assert_whole()
        self.assertEqual(self.read_json("stat")["unreached_bytes"], 0)

    def test_branches_above_and_beside_follow(self):
        self.chain("master", "a", "b")
        self.chain("side", "e")
        self.tal("switch", "master")
        self.chain("master", "c", "d")
        self.tal("forget", "HEAD~2")  # b, from which both branches lead on
        self.assertEqual(self.descriptions("master"), ["d", "c"])
        self.assertEqual(self.descriptions("side"), ["e"])
        self.assertEqual((self.state("master"), self.state("side")), ("d", "e"))
        self.assert_whole()

    def test_a_branch_that_stands_there_is_kept_and_stays_the_base(self):
        self.chain("master", "a", "b")
        self.tal("branch", "kept")
        self.chain("master", "c", "d")
        self.tal("forget", "HEAD~1")
        self.assertEqual(self.descriptions("kept"), ["b"])
        self.assertEqual(self.descriptions("master"), ["d", "b"])
        self.assertEqual(self.state("kept"), "b")
        self.assert_whole()

    def test_the_current_head_is_kept(self):
        self.chain("master", "a", "b")
        self.tal("forget", "HEAD")
        self.assertEqual(self.descriptions("master"), ["b"])
        self.assert_whole()

    def test_a_first_commit_cannot_be_forgotten(self):
        self.chain("master", "a", "b")
        self.assert_nothing_changes("forget", "HEAD~1")
        self.assertIn("first commit", self.talk)
        self.assert_nothing_changes("forget", code=USAGE)

    def test_any_commit_can_become_the_first(self):
        self.chain("master", "a", "b", "the parent of all", "d")
        self.tal("forget", "HEAD~2")
        self.assertEqual(self.descriptions("master"), ["d", "the parent of all"])
        self.assert_whole()

    def test_a_dry_run_says_how_many_would_go(self):
        self.chain("master", "a", "b", "c", "d")
        self.assert_nothing_changes("forget", "HEAD~2", "--dry-run", code=DONE)
        self.assertIn("forgotten 2 commits", self.talk)
        self.assert_nothing_changes("simplify", "--dry-run", code=DONE)
        self.assertIn("dropped 3 commits of 4", self.talk)


class Simplify(RewriteTest):
    def test_tips_and_forks_stay(self):
        self.chain("master", "a", "b")
        self.chain("side", "e", "f")
        self.tal("switch", "master")
        self.chain("master", "c", "d")
        before = {branch: self.state(branch) for branch in ("master", "side")}
        self.tal("simplify")
        self.assertIn("dropped 3 commits", self.talk)
        self.assertEqual(self.descriptions("master"), ["d", "b"])
        self.assertEqual(self.descriptions("side"), ["f", "b"])
        self.assertEqual({branch: self.state(branch) for branch in before}, before)
        self.assert_whole()

    def test_it_frees_room_and_a_second_time_changes_nothing(self):
        self.chain("master", "a", "b", "c")
        before = self.read_json("stat")
        self.tal("simplify")
        after = self.read_json("stat")
        # The commits that stay get new ids: what goes includes their former objects.
        self.assertGreaterEqual(after["last_freed_bytes"],
                                before["store_bytes"] - after["store_bytes"])
        self.assertLess(after["store_bytes"], before["store_bytes"])
        head = self.head()
        self.tal("simplify")
        self.assertIn("dropped 0 commits of 1; freed 0 B", self.talk)
        self.assertEqual(self.head(), head)


class Collect(RewriteTest):
    def test_what_a_removed_branch_held_goes(self):
        self.chain("master", "a")
        self.chain("side", "e")
        self.write("large", b"x" * 100000)
        self.tal("commit", "-m", "Large")
        self.tal("switch", "master")
        self.tal("branch", "-d", "side")
        self.assertGreater(self.read_json("stat")["unreached_bytes"], 100000)
        self.assert_nothing_changes("gc", "--dry-run", code=DONE)
        self.assertIn("would remove 6 objects", self.talk)
        self.tal("gc")
        answer = self.read_json("stat")
        self.assertGreater(answer["last_freed_bytes"], 100000)
        self.assertEqual((answer["unreached_bytes"], answer["store_objects"]), (0, 3))
        self.assert_whole()


class Rebase(RewriteTest):
    def test_a_missing_root_is_made_and_content_stays(self):
        self.chain("master", "a", "b")
        self.tal("rebase", "--onto", "root")
        self.assertEqual(self.descriptions("master"), ["b", "a", "Root commit"])
        self.assertEqual(self.descriptions("root"), ["Root commit"])
        self.assertEqual(self.state("master"), "b")
        self.assert_whole()

    def test_unrelated_branches_become_related(self):
        self.chain("master", "a", "b")
        self.tal("rebase", "--onto", "root")
        self.tal("switch", "root")
        self.assertEqual(self.contents(), {})
        self.write("other.txt", "o")
        self.tal("commit", "-m", "o")
        self.tal("forget", "HEAD")  # "root" has a first commit of its own now
        self.assertEqual(self.descriptions("root"), ["o"])
        self.assertEqual(self.descriptions("master"), ["b", "a"])
        self.assert_whole()
        self.tal("rebase", "--onto", "root", "master")
        self.assertEqual(self.descriptions("master"), ["b", "a", "o"])
        self.assertEqual(self.state("master"), "b")
        self.assert_whole()

    def test_related_branches_stay_as_they_are(self):
        self.chain("master", "a")
        self.chain("side", "b")
        self.assert_nothing_changes("rebase", "--onto", "root", "master", "side", code=DONE)

    def test_missing_branches_fail(self):
        self.chain("master", "a")
        self.assert_nothing_changes("rebase", "--onto", "root", "nowhere")
        self.assert_nothing_changes("rebase", "--onto", "root", "master", "nowhere")
        self.assert_nothing_changes("rebase", code=USAGE)


if __name__ == "__main__":
    unittest.main()
