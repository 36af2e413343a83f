"""The index of the folder: what is unchanged isn't read, and no change is missed."""

import os
import shutil
import subprocess
import unittest

from support import DIFFERS, PROGRAM, TalTest
from tracing import can_trace


class Index(TalTest):
    def setUp(self):
        super().setUp()
        self.tal("init")
        for number in range(20):
            self.write(f"d{number % 3}/f{number}", f"content {number}\n")
            os.utime(self.folder / f"d{number % 3}/f{number}", ns=(10**18, 10**18))
        self.tal("commit", "-m", "First")
        self.index = self.folder / ".vcs/tal-index"

    def changes(self):
        return [(c["change"], c["path"]) for c in self.read_json("status")["changes"]]

    def opened(self, *arguments):
        """Returns the names of the files in the folder that a command opened for reading."""
        trace = self.scratch / "trace"
        subprocess.run(["strace", "-f", "-qq", "-o", trace, "-e", "trace=openat", PROGRAM, *arguments],
                       cwd=self.folder, env=self.environment, capture_output=True, check=False)
        return {line.split('"')[1] for line in trace.read_text().splitlines()
                if '"f' in line and "ENOENT" not in line}

    @unittest.skipUnless(can_trace(), "strace isn't there or may not trace")
    def test_unchanged_files_are_not_read(self):
        self.environment["ASAN_OPTIONS"] = "detect_leaks=0"
        self.tal("status")
        self.assertEqual(self.opened("status"), set())
        self.write("d1/f1", "other")
        self.assertEqual(self.opened("status"), {"f1"})
        self.assertEqual(self.opened("diff", "--names"), set())  # it is known to differ

    @unittest.skipUnless(can_trace(), "strace isn't there or may not trace")
    def test_a_switch_reads_only_files_that_it_replaces(self):
        self.environment["ASAN_OPTIONS"] = "detect_leaks=0"
        self.tal("switch", "-c", "topic")
        self.write("d1/f1", "other")
        self.tal("commit", "-m", "Other")
        self.tal("status")
        self.assertEqual(self.opened("switch", "master"), {"f1"})
        self.assertEqual(self.read("d1/f1"), b"content 1\n")
        self.assertEqual(self.changes(), [])

    def test_a_switch_reads_a_file_that_has_changed_since(self):
        self.tal("switch", "-c", "topic")
        self.write("d1/f1", "other")
        self.tal("commit", "-m", "Other")
        self.tal("status")
        former = os.stat(self.folder / "d1/f1")
        self.write("d1/f1", "OTHER")
        os.utime(self.folder / "d1/f1", ns=(former.st_atime_ns, former.st_mtime_ns))
        self.tal("switch", "master", code=DIFFERS)
        self.assertEqual(self.read("d1/f1"), b"OTHER")

    @unittest.skipUnless(can_trace(), "strace isn't there or may not trace")
    def test_a_file_that_cannot_be_read_does_not_count_as_unchanged(self):
        self.environment["ASAN_OPTIONS"] = "detect_leaks=0"
        self.write("d1/f1", "other")
        for arguments in (["status"], ["commit", "-m", "Other"], ["stash"]):
            result = subprocess.run(
                ["strace", "-f", "-qq", "-o", "/dev/null", "-P", "f1", "-e",
                 "inject=openat:error=EACCES", PROGRAM, *arguments],
                cwd=self.folder, env=self.environment, capture_output=True, check=False)
            self.assertEqual(result.returncode, DIFFERS, arguments)
            self.assertIn(b'tal: cannot read "d1/f1": Permission denied\n', result.stderr)
        self.assertEqual((self.folder / "d1/f1").read_text(), "other")

    def test_a_change_of_the_same_size_and_time_is_found(self):
        self.tal("status")
        self.write("d0/f0", "CONTENT 0\n")
        os.utime(self.folder / "d0/f0", ns=(10**18, 10**18))
        self.assertEqual(self.changes(), [("changed", "d0/f0")])
        self.assertEqual(self.changes(), [("changed", "d0/f0")])

    def test_a_change_within_a_tick_of_the_clock_is_found(self):
        for number in range(60):
            self.write("d1/f1", f"before {number:3}")
            self.tal("commit", "-m", "Same size")
            self.write("d1/f1", f"after- {number:3}")
            self.assertEqual(self.changes(), [("changed", "d1/f1")])

    def test_another_file_under_the_name_is_found(self):
        self.tal("status")
        self.write("d1/new", "CONTENT 1\n")
        os.utime(self.folder / "d1/new", ns=(10**18, 10**18))
        os.rename(self.folder / "d1/new", self.folder / "d1/f1")
        self.assertEqual(self.changes(), [("changed", "d1/f1")])

    def test_a_file_that_is_written_back_is_unchanged(self):
        self.write("d1/f1", "other")
        self.assertEqual(self.changes(), [("changed", "d1/f1")])
        self.write("d1/f1", "content 1\n")
        self.assertEqual(self.changes(), [])

    def test_a_damaged_index_is_made_anew(self):
        self.write("d2/f2", "other")
        self.remove("d0/f3")
        expected = self.changes()
        whole = self.index.read_bytes()
        damaged = [whole[:position] + bytes([whole[position] ^ 1]) + whole[position + 1:]
                   for position in range(0, len(whole), 61)]
        for content in (*damaged, whole[:-1], whole[:40], whole + b"x", b"", b"TALINDEX"):
            self.index.write_bytes(content)
            self.assertEqual(self.changes(), expected)
            self.assertEqual(len(self.index.read_bytes()), len(whole))
        self.index.unlink()
        self.assertEqual(self.changes(), expected)
        self.index.unlink()
        self.index.mkdir()
        self.assertEqual(self.changes(), expected)

    def test_the_index_of_another_folder_is_harmless(self):
        other = self.scratch / "other"
        shutil.copytree(self.folder, other)
        (other / "d1/f1").write_text("CONTENT 1\n", encoding="ascii")
        os.utime(other / "d1/f1", ns=(10**18, 10**18))
        self.assertEqual([c["path"] for c in self.read_json("status", folder=other)["changes"]],
                         ["d1/f1"])

    def test_every_command_that_moves_the_head_keeps_it_right(self):
        self.tal("switch", "-c", "topic")
        self.write("d1/f1", "topic")
        self.remove("d0/f0")
        self.tal("commit", "-m", "On the topic")
        for arguments in (["switch", "master"], ["switch", "topic"], ["undo"], ["redo"],
                          ["switch", "master"], ["merge", "topic"], ["revert", "HEAD"]):
            self.tal(*arguments)
            self.assertEqual(self.changes(), [], arguments)
        self.write("d1/f1", "mine")
        self.assertEqual(self.tal("diff", "--names", "topic", code=DIFFERS),
                         "A\td0/f0\nC\td1/f1\n")
        self.tal("stash")
        self.assertEqual(self.changes(), [])
        self.tal("stash", "pop")
        self.assertEqual(self.changes(), [("changed", "d1/f1")])

    def test_a_folder_that_cannot_be_written_is_read_all_the_same(self):
        self.write("d1/f1", "other")
        self.index.unlink()
        before = os.stat(self.folder / ".vcs").st_mode
        os.chmod(self.folder / ".vcs", 0o555)
        self.addCleanup(os.chmod, self.folder / ".vcs", before)
        self.assertEqual(self.changes(), [("changed", "d1/f1")])


if __name__ == "__main__":
    unittest.main()
