"""Files that commands put into the folder: deep ones, those of folders that others change meanwhile,
and how they get there on systems that lack a call. strace makes calls fail, and stops the program."""

import os
import shutil
import signal
import subprocess
import time
import unittest

from support import DIFFERS, DONE, PROGRAM, TalTest
from tracing import can_trace

NEEDS_TRACING = unittest.skipUnless(can_trace(), "strace isn't there or may not trace")
NO_CALL = "inject=openat2:error=ENOSYS"


class TwoVersions(TalTest):
    """The branch "topic" has other texts than "master", which the folder is at."""

    def make_versions(self, before, after):
        self.environment["ASAN_OPTIONS"] = (
            self.environment.get("ASAN_OPTIONS", "") + ":detect_leaks=0")
        self.tal("init")
        self.fill(before)
        self.tal("commit", "-m", "First")
        self.tal("switch", "-c", "topic")
        for path in set(before) - set(after):
            self.remove(path)
        self.fill(after)
        self.tal("commit", "-m", "On the topic")
        self.tal("switch", "master")
        self.assertEqual(self.texts(), before)

    def fill(self, texts):
        for path, text in texts.items():
            self.write(path, text)

    def texts(self, folder=None):
        found = {}
        for top, names, files in os.walk(folder or self.folder):
            if ".vcs" in names:
                names.remove(".vcs")
            for name in files:
                path = os.path.join(top, name)
                with open(path, encoding="utf-8") as file:
                    found[os.path.relpath(path, folder or self.folder)] = file.read()
        return found

    def traced(self, injection, *arguments):
        return subprocess.run(
            ["strace", "-f", "-qq", "-o", self.scratch / "trace", "-e", "trace=openat2", "-e",
             injection, PROGRAM, *arguments],
            cwd=self.folder, env=self.environment, capture_output=True, check=False)


class Switches(TwoVersions):
    BEFORE = {"a": "1", "d/b": "1", "d/e/c": "1", "gone/f/g": "1", "x": "1"}
    AFTER = {"a": "2", "d/b": "2", "d/e/c": "2", "new/h/i": "2", "x/y": "2"}

    def test_folders_come_and_go_with_their_files(self):
        self.make_versions(self.BEFORE, self.AFTER)
        self.tal("switch", "topic")
        self.assertEqual(self.texts(), self.AFTER)
        self.assertFalse((self.folder / "gone").exists())
        self.assertEqual(self.read_json("status")["changes"], [])

    @NEEDS_TRACING
    def test_a_system_without_the_call_for_whole_paths_gets_the_same(self):
        self.make_versions(self.BEFORE, self.AFTER)
        result = self.traced(NO_CALL, "switch", "topic")
        self.assertEqual(result.returncode, DONE, result.stderr)
        self.assertEqual(self.texts(), self.AFTER)
        self.assertIn("(INJECTED)", (self.scratch / "trace").read_text())
        status = self.traced(NO_CALL, "status")
        self.assertIn(b"nothing changed", status.stdout)

    def test_paths_longer_than_a_call_takes_are_written(self):
        deep = "/".join("d%02d" % number + "x" * 90 for number in range(60))
        self.assertGreater(len(deep), 4096)
        self.make_versions({"a": "1"}, {"a": "2"})
        self.make_deep(deep, "1")
        self.tal("commit", "-m", "Deep")
        self.tal("switch", "-c", "deeper")
        self.make_deep(deep, "2")
        self.tal("commit", "-m", "Deeper")
        self.tal("switch", "master")
        self.assertEqual(self.tal("cat", deep + "/f"), "1")
        self.assertEqual(self.read_json("status")["changes"], [])
        self.tal("switch", "topic")
        self.assertEqual(sorted(os.listdir(self.folder)), [".vcs", "a"])

    def make_deep(self, path, text):
        """Writes a file in a folder whose path is too long for one call."""
        at = os.open(self.folder, os.O_RDONLY)
        for name in path.split("/"):
            try:
                os.mkdir(name, dir_fd=at)
            except FileExistsError:
                pass
            inner = os.open(name, os.O_RDONLY, dir_fd=at)
            os.close(at)
            at = inner
        file = os.open("f", os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o666, dir_fd=at)
        os.write(file, text.encode())
        os.close(file)
        os.close(at)

    def test_few_open_files_suffice_for_many_folders(self):
        before = {f"{number % 7}/{number}/e/f": "1" for number in range(60)}
        self.make_versions(before, {path: "2" for path in before})
        script = "ulimit -n 24; exec \"$0\" \"$@\""
        result = subprocess.run(["sh", "-c", script, PROGRAM, "switch", "topic"], cwd=self.folder,
                                env=self.environment, capture_output=True, check=False)
        self.assertEqual(result.returncode, DONE, result.stderr)
        self.assertEqual(set(self.texts().values()), {"2"})

    def test_a_file_in_place_of_a_folder_is_kept(self):
        self.make_versions({"d/b": "1"}, {"d/b": "2"})
        shutil.rmtree(self.folder / "d")
        self.write("d", "mine")
        self.tal("switch", "topic", code=DIFFERS)
        self.assertEqual(self.texts(), {"d": "mine"})


class Links(TwoVersions):
    def setUp(self):
        super().setUp()
        self.make_versions({"d/a": "1", "d/b": "1"}, {"d/a": "2", "d/b": "2"})
        self.outside = self.scratch / "outside"
        self.outside.mkdir()
        for name in ("a", "b"):
            (self.outside / name).write_text("1")

    def move_away(self):
        """Puts a link to a folder outside in place of a folder."""
        os.rename(self.folder / "d", self.scratch / "moved")
        (self.folder / "d").symlink_to(self.outside)

    def check_outside(self, result):
        self.assertEqual(result.returncode, DIFFERS, result.stderr)
        self.assertEqual(self.texts(self.outside), {"a": "1", "b": "1"})

    def test_a_link_in_place_of_a_folder_is_not_followed(self):
        self.move_away()
        self.check_outside(self.run_tal("switch", "topic"))

    @NEEDS_TRACING
    def test_a_link_is_not_followed_component_by_component(self):
        self.move_away()
        self.check_outside(self.traced(NO_CALL, "switch", "topic"))

    def stop_after_the_first_file(self):
        """Starts a switch, which has stopped itself when this returns its number."""
        trace = self.scratch / "trace"
        trace.write_text("")
        self.process = subprocess.Popen(
            ["strace", "-f", "-qq", "-o", trace, "-e", "trace=renameat", "-e",
             "inject=renameat:signal=SIGSTOP:when=1", PROGRAM, "switch", "topic"],
            cwd=self.folder, env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        until = time.monotonic() + 60
        while "stopped by SIGSTOP" not in trace.read_text():
            self.assertLess(time.monotonic(), until, trace.read_text())
            time.sleep(0.01)
        return int(trace.read_text().split()[0])

    @NEEDS_TRACING
    def test_a_link_that_comes_between_two_files_is_not_followed(self):
        number = self.stop_after_the_first_file()
        self.assertEqual(self.texts(), {"d/a": "2", "d/b": "1"})
        self.move_away()
        os.kill(number, signal.SIGCONT)
        error = self.process.communicate()[1]
        self.assertEqual(self.process.returncode, DIFFERS, error)
        self.assertEqual(self.texts(self.outside), {"a": "1", "b": "1"})
        self.assertEqual(self.texts(self.scratch / "moved"), {"a": "2", "b": "1"})


if __name__ == "__main__":
    unittest.main()
