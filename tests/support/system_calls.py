"""Saves in which one system call is the last, or fails: each that has to do with files, in turn.

strace injects the faults. A test that uses this needs the program that SAVE_STATES names: it takes a
path and what to do there, a state to save or "describe". With CALL_STEP=1 in the environment, actions
that have `STEP` get a fault at each call too, otherwise at each fifth.
"""

import collections
import os
import re
import subprocess
import tempfile

from tracing import can_trace

__all__ = ["STEP", "SavingProgram", "can_trace", "folder_in_memory", "run"]

CALLS = "%file,%desc"
STEP = int(os.environ.get("CALL_STEP", "5"))
MEMORY = "/dev/shm"  # folders there need no medium


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, check=False, timeout=60)


def folder_in_memory(case):
    """Returns a new folder that is removed after the test."""
    place = MEMORY if os.access(MEMORY, os.W_OK) else None
    holder = tempfile.TemporaryDirectory(prefix="talvcs-calls-", dir=place)
    case.addCleanup(holder.cleanup)
    return holder.name


class SavingProgram:
    """The program, at work on the store at `path`. `folder` is what its calls there name."""

    def __init__(self, case, path, folder, trace):
        self.case = case
        self.program = os.environ["SAVE_STATES"]
        self.path = path
        self.folder = folder
        self.trace = trace

    def act(self, what):
        return run(self.program, self.path, what)

    def describe(self):
        return self.act("describe").stdout.strip()

    def save(self, *injection, action="new", calls=CALLS):
        return run("strace", "-qq", "-o", self.trace, "-e", f"trace={calls}", *injection,
                   self.program, self.path, action)

    def calls(self, start, action="new"):
        """Yields the name and number of each call of an action from the first on the store."""
        start()
        self.case.assertEqual(self.save(action=action).returncode, 0)
        counts = collections.Counter()
        begun = False
        with open(self.trace, encoding="utf-8", errors="replace") as trace:
            for line in trace:
                name = re.match(r"\w+", line)
                if not name:
                    continue
                counts[name.group()] += 1
                begun = begun or self.folder in line
                if begun:
                    yield name.group(), counts[name.group()]

    def inject(self, start, injection, action="new", step=1):
        """Acts once for each call, or each `step`th, with the fault in it. `start` restores the state before.

        Yields what was done and whether the save ended well.
        """
        for name, number in list(self.calls(start, action))[::step]:
            if name == "close" and "error" in injection:
                continue  # strace would leave the file open, and what is locked with it
            what = f"{injection} at {name} number {number}"
            start()
            result = self.save("-e", f"inject={name}:{injection}:when={number}", action=action, calls=name)
            if injection == "signal=KILL":
                self.case.assertEqual(result.returncode, -9, what)
            else:
                failed = result.returncode == 1 and result.stderr
                self.case.assertTrue(result.returncode == 0 or failed,
                                     f"{what}: {result.returncode}")
            yield what, result.returncode == 0
