"""Loss of power during a save of an archive: at each call, unsynced writes are dropped, kept or reordered.

strace records what a save does to the files of a folder, and a model of the medium replays it. Bytes of a file
are kept once the file was synced, names in the folder once the folder was. Of other bytes, pieces of 512 are
there or not, independently; of other names, the first changes are there.
"""

import os
import random
import re
import shutil
import unittest

from system_calls import SavingProgram, can_trace, folder_in_memory, run

CALLS = "openat,close,fcntl,dup,write,pwrite64,ftruncate,fsync,fdatasync,rename,renameat,renameat2,unlink,unlinkat"
PIECE = 512
SEEDS = int(os.environ.get("POWER_LOSS_SEEDS", "4"))
NAME = "document.tal"


class File:
    """The bytes that are on the medium, and the writes that may be."""

    def __init__(self, kept=b""):
        self.kept = kept
        self.pending = []

    def content(self, survives):
        """Returns the bytes with those pieces of pending writes for which `survives` returns true."""
        content = bytearray(self.kept)
        for position, written in self.pending:
            if written is None:
                if survives():
                    content[position:] = bytes(max(0, position - len(content)))
                continue
            for start in range(0, len(written), PIECE):
                piece = written[start:start + PIECE]
                if survives():
                    end = position + start + len(piece)
                    content.extend(bytes(max(0, end - len(content))))
                    content[position + start:end] = piece
        return bytes(content)

    def sync(self):
        self.kept = self.content(lambda: True)
        self.pending = []


class Medium:
    """A folder as a loss of power leaves it."""

    def __init__(self, folder, files):
        self.folder = folder
        self.kept = {name: File(content) for name, content in files.items()}
        self.pending = []  # changes of names: functions of the files by their names
        self.opened = {}

    def names(self, count=None):
        """Returns the files by their names after so many of the pending changes, or all."""
        names = dict(self.kept)
        for change in self.pending[:count]:
            change(names)
        return names

    def outcomes(self):
        """Yields what may be in the folder after a loss of power now, as contents by names."""
        for count in range(len(self.pending) + 1):
            names = self.names(count)
            for seed in range(-2, SEEDS):
                choices = random.Random(seed)
                survives = {-2: lambda: False, -1: lambda: True}.get(seed, lambda: choices.random() < 0.5)
                yield {name: file.content(survives) for name, file in names.items()}

    def replay(self, call, arguments, result):
        """Does what one call did."""
        texts = [bytes(int(digit, 16) for digit in text.split("\\x")[1:])
                 for text in re.findall(r'"((?:\\x[0-9a-f]{2})*)"', arguments)]
        first = arguments.split(",")[0]
        number = int(first) if first.isdigit() else None
        if call == "openat":
            self.open(os.fsdecode(texts[0]), arguments, result)
        elif call in ("fcntl", "dup"):
            if call == "dup" or "F_DUPFD" in arguments:
                self.opened[result] = self.opened.get(number)
        elif call == "close":
            self.opened.pop(number, None)
        elif call in ("rename", "renameat", "renameat2"):
            source, target = (os.path.basename(os.fsdecode(text)) for text in texts)
            self.pending.append(lambda names: names.update({target: names.pop(source)}))
        elif call in ("unlink", "unlinkat"):
            removed = os.path.basename(os.fsdecode(texts[0]))
            self.pending.append(lambda names: names.pop(removed))
        elif self.opened.get(number) is None:
            return
        elif call == "pwrite64":
            position = int(arguments.rsplit(",", 1)[1])
            self.opened[number].pending.append((position, texts[0][:result]))
        elif call == "ftruncate":
            self.opened[number].pending.append((int(arguments.rsplit(",", 1)[1]), None))
        elif call in ("fsync", "fdatasync"):
            self.sync(self.opened[number])
        else:
            raise ValueError(f"{call}({arguments}) isn't expected")

    def open(self, path, arguments, result):
        if path == self.folder and "O_TMPFILE" not in arguments:
            self.opened[result] = self
        elif os.path.dirname(path) == self.folder:
            name = os.path.basename(path)
            if name not in self.names():
                made = File()
                self.pending.append(lambda names: names.update({name: made}))
            self.opened[result] = self.names()[name]
        else:
            self.opened[result] = None

    def sync(self, target):
        if target is self:
            self.kept = self.names()
            self.pending = []
        else:
            target.sync()


@unittest.skipUnless(can_trace(), "strace isn't there or may not trace")
class PowerLoss(unittest.TestCase):
    def setUp(self):
        self.holder = folder_in_memory(self)
        self.folder = os.path.join(self.holder, "documents")
        self.file = os.path.join(self.folder, NAME)
        trace = os.path.join(self.holder, "trace")
        self.program = SavingProgram(self, self.file, self.folder, trace)
        os.mkdir(self.folder)
        self.assertEqual(self.program.act("old").returncode, 0)
        self.old = self.program.describe()
        with open(self.file, "rb") as document:
            self.content = document.read()
        saved = run("strace", "-qq", "-xx", "-s", "100000000", "-o", trace, "-e", f"trace={CALLS}",
                    self.program.program, self.file, "new")
        self.assertEqual(saved.returncode, 0, saved.stderr)
        self.new = self.program.describe()
        self.assertNotEqual(self.old, self.new)
        with open(trace, encoding="utf-8") as lines:
            calls = [re.match(r"(\w+)\((.*)\)\s+= (-?\d+)", line) for line in lines]
        self.calls = [(call[1], call[2], int(call[3])) for call in calls if call and int(call[3]) >= 0]
        self.described = {}

    def losses(self, calls):
        """Yields the number of calls before a loss of power, and what may be in the folder then."""
        medium = Medium(self.folder, {NAME: self.content})
        for number, call in enumerate(calls):
            for outcome in medium.outcomes():
                yield number, outcome
            medium.replay(*call)
        for outcome in medium.outcomes():
            yield len(calls), outcome

    def start_with(self, outcome):
        shutil.rmtree(self.folder)
        os.mkdir(self.folder)
        for name, content in outcome.items():
            with open(os.path.join(self.folder, name), "wb") as file:
                file.write(content)

    def describe(self, outcome):
        """Returns the state of the document. Other files in the folder have no part in it."""
        document = outcome.get(NAME)
        if document not in self.described:
            self.start_with(outcome)
            self.described[document] = self.program.describe() if document is not None else "missing"
        return self.described[document]

    def test_a_save_leaves_the_state_before_or_the_new_one(self):
        count, states, rests = 0, set(), {}
        for number, outcome in self.losses(self.calls):
            state = self.describe(outcome)
            self.assertIn(state, (self.old, self.new), f"before call {number}")
            if number == len(self.calls):
                self.assertEqual(state, self.new, "after the save")
            count += 1
            states.add(state)
            rests[tuple(sorted((name, len(content)) for name, content in outcome.items()))] = outcome
        self.assertEqual(states, {self.old, self.new})
        self.assertGreater(count, 100)
        print(f"{count} losses of power before {len(self.calls) + 1} calls, {len(rests)} different folders")
        for outcome in list(rests.values())[::max(1, len(rests) // 16)]:
            self.start_with(outcome)
            self.assertEqual(self.program.act("new").returncode, 0)
            self.assertEqual(self.program.describe(), self.new)
            self.assertEqual(os.listdir(self.folder), [NAME])

    def test_the_model_notices_a_sync_that_is_left_out(self):
        syncs = [index for index, call in enumerate(self.calls) if call[0] in ("fsync", "fdatasync")]
        self.assertGreaterEqual(len(syncs), 2)
        for left_out in syncs:
            calls = [call for index, call in enumerate(self.calls) if index != left_out]
            states = [(number, self.describe(outcome)) for number, outcome in self.losses(calls)]
            damaged = any(state not in (self.old, self.new) for _, state in states)
            lost = any(number == len(calls) and state != self.new for number, state in states)
            self.assertTrue(damaged or lost, left_out)


if __name__ == "__main__":
    unittest.main()
