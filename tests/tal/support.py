"""What the tests of the program tal share: a folder for each test, and a way to run the program."""

import hashlib
import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

PROGRAM = os.environ["TAL"]
DONE, DIFFERS, USAGE, DAMAGED = 0, 1, 2, 3


def scratch_parent():
    """Returns where the folders of the tests lie: in memory, if there is room, as thousands of files
    are made and removed."""
    memory = "/dev/shm"
    if "TMPDIR" in os.environ or not os.access(memory, os.W_OK):
        return None
    room = os.statvfs(memory)
    return memory if room.f_bavail * room.f_frsize > 1 << 29 else None


class TalTest(unittest.TestCase):
    """Runs the program in `self.folder`, which is empty at first."""

    def setUp(self):
        self.scratch = pathlib.Path(tempfile.mkdtemp(prefix="tal-test-", dir=scratch_parent()))
        self.addCleanup(shutil.rmtree, self.scratch, ignore_errors=True)
        self.folder = self.scratch / "folder"
        self.folder.mkdir()
        self.environment = {
            "PATH": os.environ["PATH"],
            "LC_ALL": "C.UTF-8",
            "TZ": "UTC",
            "TAL_AUTHOR": "Ann",
            "TAL_EMAIL": "ann@example.org",
        }
        for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS", "LD_LIBRARY_PATH"):
            if name in os.environ:
                self.environment[name] = os.environ[name]

    def run_tal(self, *arguments, folder=None, answers=b""):
        """Runs the program and returns what came of it, whatever that is."""
        return subprocess.run([PROGRAM, *arguments], cwd=folder or self.folder, input=answers,
                              env=self.environment, capture_output=True, check=False)

    def run_limited(self, *arguments, blocks=8, folder=None):
        """Runs the program, which can't write a file of more than that many blocks of 512 bytes."""
        script = f"trap '' XFSZ; ulimit -f {blocks}; exec \"$0\" \"$@\""
        return subprocess.run(["sh", "-c", script, PROGRAM, *arguments], cwd=folder or self.folder,
                              env=self.environment, capture_output=True, check=False)

    def tal(self, *arguments, code=DONE, folder=None, answers=b""):
        """Runs the program, expects the exit code and returns the output."""
        result = self.run_tal(*arguments, folder=folder, answers=answers)
        self.assertEqual(result.returncode, code, f"{arguments}: {result.stdout} {result.stderr}")
        self.talk = result.stderr.decode("utf-8", "backslashreplace")
        return result.stdout.decode("utf-8", "backslashreplace")

    def read_json(self, *arguments, code=DONE, folder=None):
        return json.loads(self.tal(*arguments, "--json", code=code, folder=folder))

    def write(self, path, content):
        target = self.folder / path
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(content if isinstance(content, bytes) else content.encode())

    def read(self, path):
        return (self.folder / path).read_bytes()

    def remove(self, path):
        (self.folder / path).unlink()

    def commit(self, message, **files):
        """Writes files, whose names are given without their ".txt", and commits."""
        for name, content in files.items():
            self.write(name + ".txt", content)
        self.tal("commit", "-m", message)

    def head(self, branch="HEAD"):
        return self.read_json("show", branch)["id"]

    def contents(self):
        """Returns the bytes of all files of the folder, by path."""
        return contents_of(self.folder)

    def store(self):
        """Returns the bytes of all files of the store, by path, but the files that readers may write."""
        top = self.folder / ".vcs"
        return {str(path.relative_to(top)): path.read_bytes() for path in top.rglob("*")
                if path.is_file() and path.name not in ("lock", "readers", "tal-lock", "tal-index")}


def contents_of(folder):
    result = {}
    for directory, names, files in os.walk(os.fsencode(folder)):
        if b".vcs" in names:
            names.remove(b".vcs")
        for name in files:
            path = os.path.join(directory, name)
            if not os.path.islink(path):
                with open(path, "rb") as file:
                    result[os.path.relpath(path, os.fsencode(folder))] = file.read()
    return result


def blob_id(content):
    """Returns the id of a blob, worked out apart from the program."""
    return hashlib.sha256(b"blob %d\0" % len(content) + content).hexdigest()
