"""Commits, and the commands that read them."""

import base64
import subprocess
import unittest

from support import DAMAGED, DIFFERS, DONE, PROGRAM, USAGE, TalTest, blob_id


class Usage(TalTest):
    def test_no_command_is_wrong_usage(self):
        self.tal(code=USAGE)
        self.assertIn("tal: say what to do\n", self.talk)

    def test_an_unknown_command_is_wrong_usage(self):
        self.tal("frobnicate", code=USAGE)
        self.assertIn('there is no command "frobnicate"', self.talk)

    def test_an_unknown_option_is_wrong_usage(self):
        self.tal("init", "--frobnicate", code=USAGE)

    def test_help_tells_the_commands_and_the_limits(self):
        text = self.tal("--help", code=DONE)
        for word in ("commit", "merge", "simplify", ".talignore", "Exit codes"):
            self.assertIn(word, text)

    def test_without_a_store_a_command_fails(self):
        self.tal("status", code=DIFFERS)
        self.assertIn("tal init", self.talk)

    def test_a_second_init_fails(self):
        self.tal("init")
        self.tal("init", code=DIFFERS)

    def test_an_empty_name_is_wrong_usage(self):
        """A variable of a script that isn't set must not mean everything."""
        self.tal("init")
        self.commit("First", a="1")
        self.write("a.txt", "mine")
        before = self.store()
        for arguments in (["branch", ""], ["tag", ""], ["show", ""], ["log", ""], ["restore", ""],
                          ["restore", "--from", "", "a.txt"], ["stash", ""], ["merge", ""], ["ls", ""],
                          ["log", "--author", ""], ["copy", ""], ["export-git", "-o", ""],
                          ["commit", "-m", "Mine", "--author", ""], ["import-git", ""]):
            self.tal(*arguments, code=USAGE)
            self.assertIn("must not be empty", self.talk)
        self.assertEqual(self.read("a.txt"), b"mine")
        self.assertEqual(self.store(), before)

    def test_closed_streams_never_become_files_of_the_store(self):
        self.tal("init")
        self.commit("First", a="1")
        for number, closed in enumerate(("<&-", ">&-", "2>&-", "<&- >&-", "<&- 2>&-", "<&- >&- 2>&-")):
            self.write("a.txt", str(number))
            for command in ('commit -m "Next"', "status", f"branch b{number}", "nonsense"):
                subprocess.run(["sh", "-c", f'"$0" {command} {closed}', PROGRAM], cwd=self.folder,
                               env=self.environment, capture_output=True, check=False)
        for name in ("lock", "readers", "tal-lock"):
            self.assertEqual(self.read(f".vcs/{name}"), b"", name)
        self.assertEqual(len(self.read_json("log")), 7)
        self.tal("verify")

    def test_output_that_cannot_be_written_is_a_failure(self):
        for arguments in (["--help"], ["--version"], ["manual"], ["status", "--help"]):
            with open("/dev/full", "wb") as full:
                result = subprocess.run([PROGRAM, *arguments], stdout=full, stderr=subprocess.PIPE,
                                        env=self.environment, check=False)
            self.assertEqual(result.returncode, DIFFERS, result.stderr)

    def test_a_path_from_the_root_is_wrong_usage(self):
        self.tal("init")
        self.commit("First", a="1")
        for command in ("restore", "ls", "cat", "blame", "log"):
            for path in ("/", "/a.txt"):
                self.tal(command, path, code=USAGE)
                self.assertIn('must not begin with "/"', self.talk)

    def test_files_are_made_below_the_folder_that_is_named(self):
        self.tal("init")
        self.commit("First", a="1")
        for number, arguments in enumerate((["copy"], ["salvage"], ["graph", "--svg", "-o"], ["report"],
                                            ["export-git", "-o"])):
            self.tal("-C", "folder", *arguments, f"made{number}", folder=self.scratch)
            self.assertTrue((self.folder / f"made{number}").exists(), arguments)

    def test_a_folder_behind_a_link_is_the_one_that_the_system_finds(self):
        self.tal("init")
        self.commit("Outer", outer="1")
        other = self.scratch / "other"
        (other / "deep").mkdir(parents=True)
        (other / "inner.txt").write_text("1")
        self.tal("init", folder=other)
        self.tal("commit", "-m", "Inner", folder=other)
        (self.folder / "link").symlink_to(other / "deep")
        self.assertEqual(self.tal("-C", "link/..", "ls"), "inner.txt\n")
        self.assertEqual(self.tal("-C", "link", "ls"), "inner.txt\n")
        copy = self.scratch / "copy"
        self.tal("-C", "link/..", "clone", ".", str(copy))
        self.assertEqual(self.tal("ls", folder=copy), "inner.txt\n")
        self.tal("-C", "", "ls", code=USAGE)

    def test_a_folder_that_is_not_there_is_wrong_usage(self):
        self.tal("init")
        self.write("file", "x")
        for arguments in (["commit", "-m", "One"], ["status"], ["init"]):
            self.tal("-C", "typo", *arguments, code=USAGE)
            self.tal("-C", "file", *arguments, code=USAGE)
        self.assertEqual(self.contents(), {b"file": b"x"})
        self.assertFalse((self.folder / "typo").exists())

    def test_an_init_that_failed_can_be_done_again(self):
        limited = self.run_limited("init", blocks=0)
        self.assertEqual(limited.returncode, DIFFERS, limited.stderr)
        self.tal("status", code=DAMAGED)
        self.assertIn("tal init", self.talk)
        self.tal("init")
        self.tal("status")

    def test_a_command_finds_the_store_of_a_folder_above(self):
        self.tal("init")
        self.write("deep/er/file.txt", "x")
        self.tal("commit", "-m", "One", folder=self.folder / "deep/er")
        self.assertEqual(self.tal("ls"), "deep/er/file.txt\n")


class Commits(TalTest):
    def setUp(self):
        super().setUp()
        self.tal("init")

    def test_status_tells_what_was_added_changed_and_removed(self):
        self.commit("First", a="1", b="2")
        self.write("a.txt", "other")
        self.remove("b.txt")
        self.write("c.txt", "3")
        changes = {c["path"]: c["change"] for c in self.read_json("status")["changes"]}
        self.assertEqual(changes, {"a.txt": "changed", "b.txt": "removed", "c.txt": "added"})

    def test_a_commit_takes_the_whole_state(self):
        self.commit("First", a="1", b="2")
        self.write("a.txt", "other")
        self.remove("b.txt")
        self.commit("Second", c="3")
        self.assertEqual(self.tal("ls"), "a.txt\nc.txt\n")
        self.assertEqual(self.read_json("status")["changes"], [])

    def test_a_commit_of_nothing_fails_unless_it_is_wanted(self):
        self.commit("First", a="1")
        self.tal("commit", "-m", "Again", code=DIFFERS)
        self.tal("commit", "-m", "Again", "--allow-empty")
        self.assertEqual(len(self.read_json("log")), 2)

    def test_a_commit_of_nothing_has_the_time_zone_and_only_its_message(self):
        self.environment["TZ"] = "UTC-9"
        self.commit("First", a="1")
        message = "Second\n\nWorkspace: merges=" + self.head()
        self.tal("commit", "-m", message, "--allow-empty")
        commit = self.read_json("show")
        self.assertEqual((commit["description"], commit["merges"]), (message, []))
        self.assertIn("+0900", commit["time"])

    def test_a_folder_without_files_can_be_committed(self):
        self.commit("First", a="1")
        self.remove("a.txt")
        self.tal("commit", "-m", "Nothing left")
        self.assertEqual(self.tal("ls"), "")
        self.tal("verify")

    def test_a_file_takes_the_place_of_a_folder_and_back(self):
        self.write("x/y", "1")
        self.tal("commit", "-m", "Folder")
        self.remove("x/y")
        (self.folder / "x").rmdir()
        self.write("x", "2")
        self.tal("commit", "-m", "File")
        self.assertEqual(self.tal("ls"), "x\n")
        self.remove("x")
        self.write("x/z", "3")
        self.tal("commit", "-m", "Folder again")
        self.assertEqual(self.tal("ls"), "x/z\n")
        self.tal("verify")

    def test_author_comes_from_options_before_the_environment(self):
        self.write("a", "1")
        self.tal("commit", "-m", "One", "--author", "Bob Ünal", "--email", "bob@example.org")
        self.commit("Two", b="2")
        log = self.read_json("log")
        self.assertEqual([(c["author"], c["email"]) for c in log],
                         [("Ann", "ann@example.org"), ("Bob Ünal", "bob@example.org")])

    def test_without_author_there_is_a_default(self):
        del self.environment["TAL_AUTHOR"], self.environment["TAL_EMAIL"]
        self.commit("One", a="1")
        self.assertNotEqual(self.read_json("log")[0]["author"], "")

    def test_texts_that_no_commit_can_have_are_refused(self):
        self.write("a", "1")
        before = self.store()
        for arguments in (["-m", b"not utf-8 \xff"],
                          ["-m", ""],
                          ["-m", " \n\t"],
                          ["-m", "x", "--author", "A <b>"],
                          ["-m", "x", "--author", "A\nB"],
                          ["-m", "x", "--email", "a>b"]):
            self.tal("commit", *arguments, code=USAGE)
            self.assertEqual(self.store(), before, arguments)
        self.assertIn("a>b", self.talk)

    def test_descriptions_come_back_unchanged(self):
        texts = ["Two lines\n\nand more", "the parent folder", "tree parent author"]
        for number, text in enumerate(texts):
            self.write("a", str(number))
            self.tal("commit", "-m", text)
        self.assertEqual([c["description"] for c in self.read_json("log")], texts[::-1])
        self.assertIn("    Two lines\n    \n    and more\n", self.tal("log"))

    def test_a_dry_run_commits_nothing(self):
        self.write("a", "1")
        before = self.store()
        self.assertEqual(self.tal("commit", "-m", "One", "--dry-run"), "added\ta\n")
        self.assertEqual(self.store(), before)

    def test_bytes_come_back_unchanged(self):
        content = bytes(range(256)) * 300 + b"\r\n\n\0"
        self.write("binary", content)
        self.write("empty", b"")
        self.tal("commit", "-m", "Bytes")
        self.assertEqual(self.run_tal("cat", "binary").stdout, content)
        self.assertEqual(self.run_tal("cat", "empty").stdout, b"")
        answer = self.read_json("cat", "binary")
        self.assertEqual(base64.b64decode(answer["base64"]), content)
        self.assertEqual(answer["id"], blob_id(content))


class Reading(TalTest):
    def setUp(self):
        super().setUp()
        self.tal("init")
        self.commit("First", a="1\n2\n3\n", b="same")
        self.write("dir/c.txt", "c")
        self.commit("Second", a="1\ntwo\n3\n")

    def test_log_lists_the_newest_first(self):
        self.assertEqual([c["description"] for c in self.read_json("log")], ["Second", "First"])
        text = self.tal("log")
        self.assertLess(text.index("Second"), text.index("First"))
        self.assertNotIn("\x1b", text)

    def test_log_begins_where_it_is_told_and_ends_at_its_limit(self):
        self.assertEqual([c["description"] for c in self.read_json("log", "HEAD~1")], ["First"])
        self.assertEqual([c["description"] for c in self.read_json("log", "-n", "1")], ["Second"])
        for limit in ("0", "-1", "x", "1.5", "18446744073709551616"):
            self.tal("log", "-n", limit, code=USAGE)
            self.assertIn(f'--limit: write a whole number from 1 on, not "{limit}"\n', self.talk)

    def test_commits_are_linked(self):
        second, first = self.read_json("log")
        self.assertEqual(second["parent"], first["id"])
        self.assertIsNone(first["parent"])

    def test_abbreviated_ids_name_a_commit(self):
        second = self.head()
        for name in (second, second[:4], second[:20], "HEAD", "master", "HEAD~0"):
            self.assertEqual(self.head(name), second)
        self.assertEqual(self.head(second[:8] + "~"), self.head("HEAD~1"))

    def test_names_of_no_commit_fail(self):
        for name in ("abc", "nowhere", "HEAD~2", "HEAD~x", "0" * 64, "~"):
            self.tal("log", "--", name, code=DIFFERS)

    def test_show_tells_the_commit_and_its_changes(self):
        answer = self.read_json("show")
        self.assertEqual(answer["description"], "Second")
        self.assertEqual([(c["path"], c["change"]) for c in answer["changes"]],
                         [("a.txt", "changed"), ("dir/c.txt", "added")])
        self.assertEqual(answer["changes"][0]["before"], blob_id(b"1\n2\n3\n"))
        self.assertEqual(answer["changes"][0]["after"], blob_id(b"1\ntwo\n3\n"))
        self.assertIn("+two", self.tal("show"))

    def test_ls_lists_a_commit_or_a_folder_of_it(self):
        self.assertEqual(self.tal("ls"), "a.txt\nb.txt\ndir/c.txt\n")
        self.assertEqual(self.tal("ls", "dir/"), "dir/c.txt\n")
        self.assertEqual(self.tal("ls", "-r", "HEAD~1"), "a.txt\nb.txt\n")
        self.assertEqual(self.read_json("ls", "b.txt"),
                         [{"path": "b.txt", "id": blob_id(b"same"), "bytes": 4}])
        self.tal("ls", "nowhere", code=DIFFERS)

    def test_cat_reads_a_file_of_a_commit(self):
        self.assertEqual(self.tal("cat", "a.txt"), "1\ntwo\n3\n")
        self.assertEqual(self.tal("cat", "a.txt", "-r", "HEAD~1"), "1\n2\n3\n")
        for command in ("cat", "blame"):
            self.tal(command, "dir", code=DIFFERS)
            self.assertIn('"dir" is a folder', self.talk)
        self.tal("cat", code=USAGE)

    def test_diff_of_two_commits(self):
        text = self.tal("diff", "HEAD~1", "HEAD", code=DIFFERS)
        self.assertIn("changed a.txt\n@@ -1,3 +1,3 @@\n 1\n-2\n+two\n 3\n", text)
        self.assertIn("added dir/c.txt\n", text)
        self.assertIn("\\ No newline at end of file", text)
        answer = self.read_json("diff", "HEAD", "HEAD~1", code=DIFFERS)
        self.assertEqual([(c["path"], c["change"]) for c in answer["changes"]],
                         [("a.txt", "changed"), ("dir/c.txt", "removed")])
        self.assertEqual((answer["changes"][0]["lines_added"],
                          answer["changes"][0]["lines_removed"]), (1, 1))

    def test_diff_with_the_folder(self):
        self.assertEqual(self.tal("diff", code=DONE), "")
        self.write("b.txt", "same\n")
        self.write("new.bin", b"a\0b")
        self.assertEqual(self.tal("diff", "--names", code=DIFFERS), "C\tb.txt\nA\tnew.bin\n")
        self.assertIn("binary", self.tal("diff", code=DIFFERS))
        self.assertEqual(self.tal("diff", "--names", "HEAD~1", code=DIFFERS),
                         "C\ta.txt\nC\tb.txt\nA\tdir/c.txt\nA\tnew.bin\n")

    def test_stat_counts_objects_and_bytes(self):
        answer = self.read_json("stat")
        # Trees: the first root, "dir", the second root. Blobs: a.txt twice, b.txt, c.txt.
        self.assertEqual([answer[k]["count"] for k in ("commits", "trees", "blobs")], [2, 3, 4])
        self.assertEqual(answer["blobs"]["bytes"], len(b"blob 6\0") * 4 + 6 + 8 + 4 + 1)
        self.assertEqual(answer["files_of_all_commits"], 5)
        self.assertEqual(answer["bytes_of_all_commits"], 6 + 4 + 8 + 4 + 1)
        self.assertEqual(answer["store_objects"], 9)
        self.assertEqual(answer["unreached_bytes"], 0)
        self.assertIn("5 files in all commits, 23 B, stored as 4 blobs, 19 B\n", self.tal("stat"))

    def test_verify_finds_a_whole_store(self):
        answer = self.read_json("verify")
        self.assertTrue(answer["whole"])
        self.assertEqual((answer["objects"], answer["reached"]), (9, 9))

    def test_reading_leaves_the_store_alone(self):
        before = self.store()
        for arguments in (["status"], ["log"], ["show"], ["ls"], ["cat", "a.txt"], ["diff"],
                          ["branch"], ["verify"], ["stat"], ["graph"]):
            self.tal(*arguments)
        self.assertEqual(self.store(), before)


if __name__ == "__main__":
    unittest.main()
