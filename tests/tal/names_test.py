"""Names of files, what isn't a file, and the ignore file."""

import json
import os
import socket
import unittest

from support import DIFFERS, TalTest, contents_of

NAMES = ["grün.txt", "日本語/説明.txt", "emoji 😀", "fullwidth ～", "a b", "-dash", "quote\"'", "tab\there",
         "new\nline", "back\\slash", "dot.", "...", ".hidden", "%41", "*", "#", "e\u0301 combining",
         "é precomposed", "x" * 255]


class Names(TalTest):
    def setUp(self):
        super().setUp()
        self.tal("init")

    def test_names_come_back_unchanged(self):
        for name in NAMES:
            self.write(name, name)
        expected = self.contents()
        self.tal("commit", "-m", "Names")
        self.assertEqual(len(expected), len(NAMES))
        self.assertEqual({f["path"] for f in self.read_json("ls")}, set(NAMES))
        self.assertEqual(self.restored(), expected)

    def test_a_name_with_a_lone_surrogate_comes_back_unchanged(self):
        with open(os.fsencode(self.folder) + b"/lone \xed\xa0\x80", "wb") as file:
            file.write(b"x")
        expected = self.contents()
        self.tal("commit", "-m", "A surrogate")
        self.assertEqual(self.read_json("ls")[0]["path"], "lone \ud800")
        self.assertEqual(self.restored(), expected)

    def test_names_that_are_no_utf8_are_refused_by_name(self):
        self.write("good", "1")
        # Stray bytes, and a pair of surrogates in three bytes each, which would come back as one.
        for name in (b"bad \xff", b"pair \xed\xa0\xbd\xed\xb8\x80"):
            path = os.fsencode(self.folder) + b"/" + name
            with open(path, "wb") as file:
                file.write(b"x")
            before = self.store()
            self.tal("commit", "-m", "Names", code=DIFFERS)
            self.assertIn(name.decode("ascii", "backslashreplace"), self.talk)
            self.assertEqual(self.store(), before)
            self.assertEqual(len(self.read_json("status")["not_utf8"]), 1)
            os.remove(path)

    def test_a_name_that_is_no_utf8_can_be_ignored(self):
        with open(os.fsencode(self.folder) + b"/bad\xff", "wb") as file:
            file.write(b"x")
        self.write(".talignore", b"bad*\n")
        self.tal("commit", "-m", "Without it")
        self.assertEqual(self.tal("ls"), ".talignore\n")

    def test_names_cannot_turn_the_text_around(self):
        names = {"a\u202etxt.exe": "a\\xe2\\x80\\xaetxt.exe", "b\u2066c": "b\\xe2\\x81\\xa6c",
                 "d\u2028e": "d\\xe2\\x80\\xa8e", "\u05d0": "\u05d0"}
        for name in names:
            self.write(name, "1")
        shown = self.tal("status").splitlines()[1:]
        self.assertEqual(shown, [f"added\t{text}" for text in sorted(names.values())])
        self.assertEqual({change["path"] for change in self.read_json("status")["changes"]}, set(names))

    def test_a_branch_in_brackets_is_one_name(self):
        self.write("a", "1")
        self.tal("commit", "-m", "One")
        self.tal("branch", "[a,b]")
        self.assertEqual(self.tal("diff", "[a,b]", "HEAD"), "")
        self.tal("copy", "../copy", "--branch", "[a,b]", "--branch", "master")
        self.assertEqual(len(self.read_json("branch", folder=self.scratch / "copy")), 2)

    def test_names_of_branches_come_back_unchanged(self):
        self.commit("First", a="1")
        names = ["a/b", "..", ".", "grün 😀", "UPPER", "upper", "new\nline", "x" * 300, " ", "-d"]
        for name in names:
            self.tal("branch", "--", name)
        self.assertEqual({b["name"] for b in self.read_json("branch")}, {*names, "master"})
        for name in names:
            self.tal("switch", "--", name)
            self.assertEqual(self.read_json("status")["branch"], name)
        self.tal("switch", "master")
        for name in names:
            self.tal("branch", "-d", "--", name)
        self.assertEqual([b["name"] for b in self.read_json("branch")], ["master"])
        self.tal("verify")

    def restored(self):
        """Returns what the store gives back in an empty folder."""
        other = self.scratch / "other"
        other.mkdir()
        (self.folder / ".vcs").rename(other / ".vcs")
        self.tal("switch", "--restore", "master", folder=other)
        return contents_of(other)


class NoFiles(TalTest):
    def setUp(self):
        super().setUp()
        self.tal("init")
        self.write("file", "1")

    def test_links_are_kept_and_not_followed(self):
        outside = self.scratch / "outside"
        outside.mkdir()
        (outside / "secret").write_text("s")
        targets = {"link": "file", "broken": "nowhere", "linked-folder": str(outside),
                   "sub/up": "../../outside/secret", "new\nline \\": "a\nb"}
        (self.folder / "sub").mkdir()
        for name, target in targets.items():
            (self.folder / name).symlink_to(target)
        self.tal("commit", "-m", "Links")
        kinds = {f["path"]: f.get("kind") for f in self.read_json("ls")}
        self.assertEqual(kinds, {"file": None, **{name: "link" for name in targets}})
        self.assertEqual(self.tal("cat", "sub/up"), "../../outside/secret")
        for name in targets:
            os.remove(self.folder / name)
        self.tal("switch", "--restore", "master")
        for name, target in targets.items():
            self.assertEqual(os.readlink(self.folder / name), target)
        self.assertEqual(self.read_json("status")["changes"], [])

    def test_the_name_that_the_history_needs_is_reserved(self):
        self.write(".talkinds", "x file\n")
        self.tal("commit", "-m", "The file")
        self.assertIn("skipped .talkinds (the name is reserved for the history)", self.talk)
        self.assertEqual(self.tal("ls"), "file\n")
        self.write("deep/.talkinds", "x")
        self.tal("commit", "-m", "Below")
        self.assertEqual(self.tal("ls"), "deep/.talkinds\nfile\n")

    def test_special_files_are_named_and_passed_over(self):
        os.mkfifo(self.folder / "pipe")
        server = socket.socket(socket.AF_UNIX)
        self.addCleanup(server.close)
        server.bind(str(self.folder / "socket"))
        self.tal("commit", "-m", "The file")
        for name in ("pipe", "socket"):
            self.assertIn("skipped " + name + " ", self.talk)
        self.assertEqual(self.tal("ls"), "file\n")
        skipped = {s["path"]: s["reason"] for s in self.read_json("status")["skipped"]}
        self.assertEqual(skipped, {"pipe": "pipe", "socket": "socket"})

    def test_the_store_of_another_history_is_passed_over(self):
        (self.folder / "inner").mkdir()
        self.tal("init", folder=self.folder / "inner")
        self.write("inner/file", "2")
        self.tal("commit", "-m", "Both files")
        self.assertEqual(self.tal("ls"), "file\ninner/file\n")

    def test_empty_folders_are_passed_over(self):
        (self.folder / "empty/er").mkdir(parents=True)
        self.tal("commit", "-m", "The file")
        self.assertEqual(self.tal("ls"), "file\n")


class Ignoring(TalTest):
    def setUp(self):
        super().setUp()
        self.tal("init")

    def test_patterns(self):
        self.write(".talignore", "# comment\n*.o\nbuild/\n/top\ndocs/*.tmp\n\nx[12]\n")
        for path in ("a.o", "deep/b.o", "build/x", "sub/build/y", "top", "sub/top", "docs/a.tmp",
                     "other/docs/a.tmp", "x1", "x3", "sub/buildings", "kept"):
            self.write(path, path)
        self.write("file-named/build", "a file, not a folder")
        self.tal("commit", "-m", "Some")
        self.assertEqual(self.tal("ls").split("\n")[:-1],
                         [".talignore", "file-named/build", "kept", "other/docs/a.tmp",
                          "sub/buildings", "sub/top", "x3"])

    def test_what_is_in_the_history_stays_there(self):
        self.write("old.o", "1")
        self.write("build/old", "1")
        self.tal("commit", "-m", "First")
        self.write(".talignore", "*.o\nbuild/\n")
        self.write("old.o", "2")
        self.write("new.o", "2")
        self.write("build/new", "2")
        self.write("build/deep/new", "2")
        changes = [c["path"] for c in self.read_json("status")["changes"]]
        self.assertEqual(changes, [".talignore", "old.o"])

    def test_a_comparison_knows_what_is_in_either_commit(self):
        self.write("old.o", "1")
        self.tal("commit", "-m", "With it")
        self.write(".talignore", "*.o\n")
        self.remove("old.o")
        self.write("kept", "1")
        self.tal("commit", "-m", "Without it")
        self.write("old.o", "2")
        self.assertEqual(self.tal("diff"), "")
        self.assertEqual(self.tal("diff", "--names", "HEAD~", code=DIFFERS),
                         "A\t.talignore\nA\tkept\nC\told.o\n")


class Json(TalTest):
    def test_texts_are_escaped(self):
        self.tal("init")
        text = "quote \" backslash \\ tab \t bell \a e\u0301 😀 </script>"
        self.write("a\"b\\c\n", "1")
        self.tal("commit", "-m", text)
        self.assertEqual(self.read_json("log")[0]["description"], text)
        self.assertEqual(self.read_json("ls")[0]["path"], "a\"b\\c\n")

    def test_every_reader_answers_in_json(self):
        self.tal("init")
        self.commit("First", a="1")
        self.commit("Second", b="2")
        for arguments, code in ((["status"], 0), (["log"], 0), (["log", "--all"], 0), (["show"], 0),
                                (["ls"], 0), (["cat", "a.txt"], 0), (["diff", "HEAD~"], 1),
                                (["branch"], 0), (["verify"], 0), (["stat"], 0), (["graph"], 0),
                                (["merge", "--dry-run", "HEAD~"], 0), (["merge", "HEAD~"], 0)):
            json.loads(self.tal(*arguments, "--json", code=code))


class ShortIds(TalTest):
    """A history of so many commits that some ids begin alike."""

    def setUp(self):
        super().setUp()
        self.tal("init")
        stream = "".join(
            f"commit refs/heads/master\ncommitter Ann <ann@example.org> {1700000000 + number} +0000\n"
            f"data {len(str(number))}\n{number}\nM 100644 inline f\ndata {len(str(number))}\n{number}\n"
            for number in range(600))
        (self.scratch / "stream").write_text(stream)
        self.tal("import-git", str(self.scratch / "stream"))
        self.versions = self.read_json("log", "master")

    def test_a_prefix_that_is_not_unique_lists_the_commits(self):
        ids = sorted(version["id"] for version in self.versions)
        alike = [(a, b) for a, b in zip(ids, ids[1:]) if a[:4] == b[:4]]
        self.assertNotEqual(alike, [])
        first, second = alike[0]
        self.tal("show", first[:4], code=DIFFERS)
        self.assertIn(first, self.talk)
        self.assertIn(second, self.talk)
        self.assertEqual(self.read_json("show", first[:12])["id"], first)

    def test_ids_that_are_shown_are_accepted(self):
        shown = self.tal("log", "--graph", "master").splitlines()
        self.assertEqual(len(shown), 600)
        for line, version in list(zip(shown, self.versions))[::150]:
            short = line.split()[1]
            self.assertGreaterEqual(len(short), 7)
            self.assertEqual(self.read_json("show", short)["id"], version["id"])


if __name__ == "__main__":
    unittest.main()
