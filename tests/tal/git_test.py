"""Histories that go to git and come from git: every file of every commit, and hostile streams."""

import hashlib
import os
import pathlib
import subprocess
import unittest

from support import DIFFERS, PROGRAM, USAGE, TalTest, blob_id

GIT_ENVIRONMENT = {
    "PATH": os.environ["PATH"], "HOME": "/nonexistent", "GIT_CONFIG_NOSYSTEM": "1", "TZ": "UTC",
    "GIT_AUTHOR_NAME": "Ann", "GIT_AUTHOR_EMAIL": "ann@example.org",
    "GIT_COMMITTER_NAME": "Carl", "GIT_COMMITTER_EMAIL": "carl@example.org",
    "GIT_AUTHOR_DATE": "1700000000 +0130", "GIT_COMMITTER_DATE": "1700000009 +0000",
}


def packed_id(kind, data):
    return hashlib.sha256(b"%s %d\0" % (kind, len(data)) + data).hexdigest()


def tree_id(entries):
    """Returns the id of a tree of (name, kind, id), worked out apart from the program."""
    modes = {"blob": "100644 blob ", "tree": "40000 tree "}
    records = (f"{modes[kind]}{name}\0{number}" for name, kind, number in sorted(entries))
    return packed_id(b"tree", "".join(records).encode())


def commit_id(tree, message, parent="", person="Ann <ann@example.org> 1700000000 +0130"):
    parent_line = f"parent {parent}\n" if parent else ""
    text = f"tree {tree}\n{parent_line}author {person}\ncommitter {person}\n\n{message}\n"
    return packed_id(b"commit", text.encode())


class GitTest(TalTest):
    def setUp(self):
        super().setUp()
        self.repository = self.scratch / "git"
        self.git("init", "--quiet", "--initial-branch=main", folder=self.make("git"))

    def make(self, name):
        (self.scratch / name).mkdir()
        return self.scratch / name

    def git(self, *arguments, folder=None, data=None, **more):
        environment = dict(GIT_ENVIRONMENT, **more)
        return subprocess.run(["git", *arguments], cwd=folder or self.repository, input=data,
                              env=environment, capture_output=True, check=True).stdout

    def git_commit(self, message, files, **more):
        for path, content in files.items():
            target = self.repository / path
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_bytes(content)
        self.git("add", "--all")
        self.git("commit", "--quiet", "--allow-empty", "-m", message, **more)

    def exported(self, *options):
        return self.git("fast-export", "--all", "--use-done-feature", "--signed-tags=strip", *options)

    def import_stream(self, stream, code=0):
        return self.tal("import-git", code=code, answers=stream)

    def back_to_git(self, name="back", folder=None):
        """Exports the folder's history to a new repository, which git checks, and returns it."""
        target = self.make(name)
        self.git("init", "--quiet", "--bare", "--initial-branch=main", folder=target)
        stream = self.run_tal("export-git", folder=folder).stdout
        self.git("fast-import", "--quiet", folder=target, data=stream)
        self.git("fsck", "--full", "--strict", folder=target)
        return target

    def trees(self, folder, ref):
        """Returns the modes, ids and paths of all files of all commits that the ref reaches."""
        commits = self.git("rev-list", "--topo-order", ref, folder=folder).split()
        return [self.git("ls-tree", "-r", "-z", commit.decode(), folder=folder) for commit in commits]

    def log(self, folder, ref):
        return self.git("log", "--topo-order", "--date=raw", "--format=%an|%ae|%ad|%B|%T", ref,
                        folder=folder)


class Import(GitTest):
    def test_gives_the_ids_of_the_format(self):
        self.git_commit("First\n\nwith a body", {"a.txt": b"one\n", "dir/b.txt": b"two\n"})
        self.git_commit("Second", {"a.txt": b"three\n"})
        self.tal("init")
        self.import_stream(self.exported())
        folder = tree_id([("b.txt", "blob", blob_id(b"two\n"))])
        first = tree_id([("a.txt", "blob", blob_id(b"one\n")), ("dir", "tree", folder)])
        second = tree_id([("a.txt", "blob", blob_id(b"three\n")), ("dir", "tree", folder)])
        parent = commit_id(first, "First\n\nwith a body")
        self.assertEqual(self.head("HEAD~1"), parent)
        self.assertEqual(self.head("main"), commit_id(second, "Second", parent))
        self.assertEqual(self.contents(), {b"a.txt": b"three\n", b"dir/b.txt": b"two\n"})

    def test_makes_a_merge_a_commit_on_the_first_parent_that_remembers_the_other(self):
        self.git_commit("base", {"a": b"1"})
        self.git("switch", "--quiet", "-c", "topic")
        self.git_commit("topic", {"b": b"2"})
        self.git("switch", "--quiet", "main")
        self.git_commit("main", {"c": b"3"})
        self.git("merge", "--quiet", "--no-ff", "-m", "both", "topic")
        self.tal("init")
        self.import_stream(self.exported())
        tree = tree_id([(name, "blob", blob_id(content))
                        for name, content in (("a", b"1"), ("b", b"2"), ("c", b"3"))])
        message = f"both\n\nWorkspace: merges={self.head('topic')}"
        self.assertEqual(self.head("main"), commit_id(tree, message, self.head("HEAD~1")))
        # The head that was merged counts: there is nothing left to merge.
        self.assertIn("nothing", self.tal("merge", "topic") + self.talk)

    def test_keeps_the_files_of_a_folder_that_takes_the_place_of_a_file(self):
        """git writes them before it removes or renames the file, and loses them when it reads that."""
        text = b"".join(b"line %d\n" % number for number in range(50))
        self.git_commit("files", {"a": b"1", "b": text, "c": b"3", "link": b"4"})
        (self.repository / "b").chmod(0o755)
        self.git_commit("executable", {})
        for name in ("a", "b", "link"):
            (self.repository / name).unlink()
        (self.repository / "moved").write_bytes(text)
        (self.repository / "moved").chmod(0o755)
        self.git_commit("folders", {"a/deep/er": b"5", "b/in": b"6", "link/in": b"7"})
        for name in ("a/deep/er", "b/in"):
            (self.repository / name).unlink()
        for name in ("a/deep", "a", "b"):
            (self.repository / name).rmdir()
        self.git_commit("files again", {"a": b"8", "b": b"9"})
        for number, options in enumerate(([], ["-M"], ["-C", "-C"], ["--full-tree"])):
            folder = self.make(f"folder{number}")
            self.tal("init", folder=folder)
            self.tal("import-git", folder=folder, answers=self.exported(*options))
            back = self.back_to_git(f"back{number}", folder)
            self.assertEqual(self.trees(back, "main"), self.trees(self.repository, "main"), options)

    def test_a_file_moves_into_the_folder_that_takes_its_place_and_back(self):
        text = b"".join(b"line %d\n" % number for number in range(50))
        self.git_commit("file", {"a": text})
        (self.repository / "a").unlink()
        self.git_commit("into the folder", {"a/in": text, "a/other": b"1"})
        (self.repository / "a/in").unlink()
        (self.repository / "a/other").unlink()
        (self.repository / "a").rmdir()
        self.git_commit("back", {"a": text})
        stream = self.exported("-M")
        self.assertIn(b"R a a/in\n", stream)
        self.assertIn(b"R a/in a\n", stream)
        self.tal("init")
        self.import_stream(stream)
        self.assertEqual(self.trees(self.back_to_git(), "main"), self.trees(self.repository, "main"))

    def test_a_file_that_was_removed_does_not_give_way_again(self):
        """Other programs than git write such changes."""
        self.tal("init")
        self.import_stream(
            b"blob\nmark :1\ndata 1\nx\n"
            b"commit refs/heads/main\nmark :2\ncommitter A <a@b> 1 +0000\ndata 1\na\n"
            b"M 100644 :1 a\nM 100644 :1 keep\n\n"
            b"commit refs/heads/main\nmark :3\ncommitter A <a@b> 2 +0000\ndata 1\nb\n"
            b"D a\nM 100644 :1 a/b\nD a\n\n")
        self.assertEqual(self.contents(), {b"keep": b"x"})

    def test_keeps_what_only_a_merge_reaches_under_a_tag(self):
        self.git_commit("base", {"a": b"1"})
        self.git("switch", "--quiet", "-c", "topic")
        self.git_commit("topic", {"b": b"2"})
        self.git("switch", "--quiet", "main")
        self.git("merge", "--quiet", "--no-ff", "-m", "both", "topic")
        self.git("branch", "--quiet", "-D", "topic")
        self.tal("init")
        self.import_stream(self.exported())
        self.assertIn("merged/", self.tal("tag"))
        back = self.back_to_git()
        self.assertEqual(self.git("for-each-ref", "--format=%(refname)", folder=back),
                         b"refs/heads/main\n")
        self.assertEqual(self.log(back, "main"), self.log(self.repository, "main"))

    def test_a_later_stream_continues_the_branches(self):
        self.git_commit("one", {"a": b"1"})
        self.tal("init")
        self.import_stream(self.exported())
        first = self.head()
        self.git_commit("two", {"a": b"2"})
        self.import_stream(self.exported())
        self.assertEqual(self.head("HEAD~1"), first)
        self.assertEqual(self.read("a"), b"2")

    def test_an_input_that_cannot_be_read_is_no_empty_stream(self):
        self.tal("init")
        with open("/proc/self/mem", "rb") as unreadable:
            result = subprocess.run([PROGRAM, "import-git"], cwd=self.folder, stdin=unreadable,
                                    env=self.environment, capture_output=True, check=False)
        self.assertEqual(result.returncode, DIFFERS, result.stderr)
        self.assertIn(b"can't be read further", result.stderr)

    def test_refuses_to_drop_versions_of_a_branch(self):
        self.git_commit("one", {"a": b"1"})
        self.tal("init")
        self.import_stream(self.exported())
        self.write("mine", "x")
        self.tal("commit", "-m", "mine")
        mine = self.head()
        self.git_commit("two", {"a": b"2"})
        self.import_stream(self.exported(), code=DIFFERS)
        self.assertIn("main has versions that the stream lacks", self.talk)
        self.assertEqual(self.head(), mine)

    def test_reads_every_form_of_the_format(self):
        stream = (b"feature done\noption git quiet\nprogress hello\n"
                  b"blob\nmark :1\noriginal-oid 11\ndata <<END\none\ntwo\nEND\n"
                  b"reset refs/heads/main\n"
                  b"commit refs/heads/main\nmark :2\nauthor A <a@b> 5 -0730\ncommitter C <c@d> 6 +0000\n"
                  b"data 2\nm\nM 644 :1 \"q\\303\\266\\\"\\n\"\nM 755 inline run\ndata 3\nsh\n\n"
                  b"M 120000 inline link\ndata 3\nrun\nM 160000 0000000000000000000000000000000000000001 sub\n"
                  b"C run copies/run\nR link moved\n\n"
                  b"commit refs/heads/main\ncommitter  <c@d> 7 +0000\ndata 0\nfrom refs/heads/main^0\n"
                  b"D run\nM 100644 inline copies\ndata 1\nx\ncheckpoint\n"
                  b"tag v1\nfrom :2\ntagger T <t@u> 1 +0000\ndata 5\nhello\n"
                  b"reset refs/notes/commits\nfrom :2\n\ndone\n")
        self.tal("init")
        self.import_stream(stream)
        self.assertIn("1 link to another repository left out", self.talk)
        self.assertIn("refs/notes/commits", self.talk)
        name = "q\u00f6\"\n"
        self.assertEqual(set(self.contents()), {name.encode(), b"copies"})
        self.assertEqual(os.readlink(self.folder / "moved"), "run")
        self.assertEqual(self.read_json("show", "HEAD")["author"], "")
        kinds = b"x copies/run\nl moved\nx run\n"
        tree = tree_id([(".talkinds", "blob", blob_id(kinds)),
                        ("copies", "tree", tree_id([("run", "blob", blob_id(b"sh\n"))])),
                        ("moved", "blob", blob_id(b"run")), ("run", "blob", blob_id(b"sh\n")),
                        (name, "blob", blob_id(b"one\ntwo\n"))])
        self.assertEqual(self.head("v1"), commit_id(tree, "m", person="A <a@b> 5 -0730"))

    def test_a_hostile_stream_leaves_the_store_as_it_was(self):
        self.commit("mine", file="x")
        before = self.store()
        head = b"commit refs/heads/x\ncommitter C <c@d> 6 +0000\ndata 1\nm"
        put = b"\nM 100644 inline "
        streams = {
            "no command": b"rm -rf\n",
            "data is cut": b"blob\ndata 99999999999999\nx",
            "no size": b"blob\ndata -1\n",
            "no end of data": b"blob\ndata <<X\nabc\n",
            "done is missing": b"feature done\nblob\ndata 1\nx",
            "feature": b"feature import-marks=/etc/passwd\n",
            "no committer": b"commit refs/heads/x\ndata 1\nm",
            "author": b"commit refs/heads/x\ncommitter nobody\ndata 1\nm",
            "time of 33 bits": b"commit refs/heads/x\ncommitter C <c@d> 4294967296 +0000\ndata 1\nm",
            "zero in message": b"commit refs/heads/x\ncommitter C <c@d> 6 +0000\ndata 3\na\0b",
            "encoding": b"commit refs/heads/x\ncommitter C <c@d> 6 +0000\nencoding latin1\ndata 1\nm",
            "unknown mark": head + b"\nfrom :9\n",
            "unknown blob": head + b"\nM 100644 :7 a\n",
            "blob by id": head + b"\nM 100644 1234567890123456789012345678901234567890 a\n",
            "mode": head + b"\nM 040000 inline a\ndata 1\nx",
            "absolute path": head + put + b"/etc/passwd\ndata 1\nx",
            "parent folder": head + put + b"a/../../b\ndata 1\nx",
            "store": head + put + b".vcs/journal\ndata 1\nx",
            "store below": head + put + b"a/.vcs/journal\ndata 1\nx",
            "kinds": head + put + b".talkinds\ndata 1\nx",
            "no UTF-8": head + put + b"\"\\377\"\ndata 1\nx",
            "zero": head + put + b"\"a\\000b\"\ndata 1\nx",
            "open quote": head + put + b"\"a\ndata 1\nx",
            "empty path": head + put + b"\ndata 1\nx",
            "copy of nothing": head + b"\nC a b\n",
            "copy into itself": head + put + b"a/b\ndata 1\nx\nC a a/b/c\n",
            "tag without commit": b"tag v\ntagger T <t@u> 1 +0000\ndata 1\nx",
            "name of a branch": head.replace(b"heads/x", b"heads/\xff"),
        }
        for name, stream in streams.items():
            with self.subTest(name):
                self.import_stream(stream, code=DIFFERS)
                self.assertRegex(self.talk, r"line \d+: |nothing was imported")
                self.assertEqual(self.store(), before)
        self.assertEqual(self.contents(), {b"file.txt": b"x"})
        self.tal("import-git", "missing", code=USAGE)

    def commit(self, message, **files):
        self.tal("init")
        super().commit(message, **files)


class Export(GitTest):
    def test_gives_git_every_file_of_every_commit(self):
        self.tal("init")
        self.commit("first", one="1", two="2")
        self.write("dir/deep/three", "3")
        self.write("run", "#!/bin/sh\n")
        (self.folder / "run").chmod(0o755)
        os.symlink("run", self.folder / "link")
        self.tal("commit", "-m", "second")
        self.tal("tag", "v1")
        self.tal("switch", "-c", "topic")
        self.remove("one.txt")
        (self.folder / "run").chmod(0o644)
        self.tal("commit", "-m", "third")
        self.tal("switch", "master")
        self.write("two.txt", "other")
        self.tal("commit", "-m", "fourth")
        self.tal("merge", "topic")
        back = self.back_to_git()
        refs = self.git("for-each-ref", "--format=%(refname)", folder=back).decode().split()
        self.assertEqual(refs, ["refs/heads/master", "refs/heads/topic", "refs/tags/v1"])
        for ref in ("master", "topic", "v1"):
            for path in (file["path"] for file in self.read_json("ls", "-r", ref)):
                kept = self.run_tal("cat", path, "-r", ref).stdout
                self.assertEqual(self.git("cat-file", "blob", f"{ref}:{path}", folder=back), kept)
        self.assertIn(b"120000 blob", self.git("ls-tree", "master", "link", folder=back))
        self.assertIn(b"100755 blob", self.git("ls-tree", "v1", "run", folder=back))
        self.assertIn(b"100644 blob", self.git("ls-tree", "master", "run", folder=back))
        parents = self.git("log", "-1", "--format=%P", "master", folder=back).split()
        self.assertEqual(parents[1], self.git("rev-parse", "topic", folder=back).strip())

    def test_replaces_what_git_refuses(self):
        self.tal("init")
        for path in (".git/config", "%2Egit", "a/.GIT ", "git~1", "q\"\\\t\n", "\u00fc"):
            self.write(path, path)
        self.tal("commit", "-m", "names", "--author", "A>b")
        names = {"a b": "a%20b", "a%20b": "a%2520b", "x..y": "x.%2Ey", "HEAD~": "HEAD%7E",
                 "end.lock": "end%2Elock", "@": "%40", "\u00fc": "\u00fc"}
        made = []
        for name in names:
            if self.run_tal("branch", name).returncode == 0:
                made.append(name)
        back = self.back_to_git()
        listed = self.git("for-each-ref", "--format=%(refname:lstrip=2)", "refs/heads", folder=back)
        self.assertEqual(set(listed.decode().split()), {"master", *(names[name] for name in made)})
        self.assertIn("a b", made)
        paths = self.git("ls-tree", "-r", "-z", "--name-only", "master", folder=back)
        self.assertEqual(set(paths.decode().split("\0")[:-1]),
                         {"%2Egit/config", "%252Egit", "a/%2EGIT ", "%67it~1", "q\"\\\t\n", "\u00fc"})
        self.assertEqual(self.git("log", "-1", "--format=%an|%ae", "master", folder=back),
                         b"A)b|ann@example.org\n")
        self.tal("export-git", "-o", "out")
        self.assertIn(".git/config is %2Egit/config in git", self.talk)

    def test_an_empty_history_is_an_empty_stream(self):
        self.tal("init")
        self.assertEqual(self.tal("export-git"), "feature done\ndone\n")

    def test_the_same_history_gives_the_same_bytes(self):
        self.tal("init")
        self.commit("first", one="1")
        self.assertEqual(self.run_tal("export-git").stdout, self.run_tal("export-git").stdout)


class RoundTrip(GitTest):
    def test_the_history_of_this_project_comes_back(self):
        """Its trees, messages and authors: the newest commits, or with TAL_TEST_GIT_COMMITS=all every one.
        Without a repository around it, this folder is the history."""
        project = os.path.dirname(os.path.abspath(__file__))
        try:
            top = self.git("rev-parse", "--show-toplevel", folder=project).decode().strip()
        except subprocess.CalledProcessError:
            top = str(self.repository)
            self.git_commit("all", {path.name: path.read_bytes() for path in pathlib.Path(project).glob("*.py")})
        commits = os.environ.get("TAL_TEST_GIT_COMMITS", "40")
        shallow = ["clone", "--quiet", "--bare", "--depth", commits, "file://" + top]
        if commits == "all":
            shallow = ["clone", "--quiet", "--bare", top]
        source = self.scratch / "project"
        self.git(*shallow, str(source), folder=self.scratch)
        self.git("update-ref", "refs/heads/checked", "HEAD", folder=source)
        stream = self.git("fast-export", "--use-done-feature", "refs/heads/checked", folder=source)
        self.tal("init")
        self.import_stream(stream)
        back = self.back_to_git()
        self.assertEqual(self.log(back, "checked"), self.log(source, "checked"))
        for here, there in zip(self.trees(back, "checked")[::9], self.trees(source, "checked")[::9]):
            self.assertEqual(here, there)
        self.assertIn("nothing changed", self.tal("status"))


if __name__ == "__main__":
    unittest.main()
