#!/usr/bin/env python3
"""The model of store_protocol.py with a server that stops and starts again.

Usage: crash_protocol.py [--mistake NAME] [--crashes COUNT] [--no-reader] [GRAPH]

The server may crash between two steps, and within one: before or after the commit of its
transaction, so that the participant gets no answer and doesn't know. A crash loses:

  connections   a participant connects again and repeats its step; a writer knows that it did
  uploads       they don't wait for the disk. The log of the server has one order, so a crash takes
                the objects back to what they were before one of the last uploads, whichever

What has waited for the disk is there after a crash: heads, the begin of a pass, what was condemned
and the epoch, what was removed. As these commits come later in the log, all uploads before them are
on the disk too.

After a lost connection a writer

  write      checks first, in the same transaction, that all it has written and skipped is still
             there, and starts over if it isn't. Otherwise it could upload a live object whose
             contents are lost, and a later look would skip all that is below.
  move       checks the same. If the answer to a move was lost, it reads the branch first: the move
             may have happened.

What must hold, besides what store_protocol.py says: a branch is where the last acknowledged move
has put it, unless a move was sent without an answer; then it may be where that was to put it.
"""

import argparse
import sys
from typing import NamedTuple

from store_protocol import GRAPHS, LIVE, Cleaner, Model, Reader, Writer, print_outcome, replaced, search

MISTAKES = {
    "heads_move_later": "a move doesn't wait for the disk",
    "pass_begins_later": "the begin of a pass doesn't wait for the disk",
    "uploads_go_on": "an upload on a new connection doesn't check what was uploaded before",
    "move_unchecked": "a move on a new connection doesn't check what was uploaded before",
    "skipped_unchecked": "a check leaves out what was skipped",
    "written_not_saved": "a check lets what was written stay condemned",
    "unknown_is_done": "a move without an answer is taken as done",
    "unknown_is_undone": "a move without an answer is taken as failed",
}


class CrashState(NamedTuple):
    # As in the other model.
    objects: tuple
    new: frozenset
    heads: tuple
    writers: tuple
    cleaner: Cleaner = Cleaner()
    reader: Reader = Reader()
    is_pass: bool = False  # whether uploads count as made since the pass began
    # What the server may become in a crash, each as `stored` returns it.
    unsaved: frozenset = frozenset()
    # For each writer, whether it has the connection on which its save began, whether it has sent a
    # move without an answer, and the head of its branch after its last acknowledged move.
    connected: tuple = (True, True)
    sent: tuple = (False, False)
    acknowledged: tuple = (None, None)
    crashes: int = 0  # how many there were, if there is a limit


def stored(state):
    """Returns what is in the server's files."""
    return state.objects, state.new, state.heads, state.is_pass


def with_stored(state, values):
    objects, new, heads, is_pass = values
    return state._replace(objects=objects, new=new, heads=heads, is_pass=is_pass)


class CrashModel(Model):
    """All orders of steps and of any number of crashes, or of so many. Without `reads`, there is no
    reader."""

    def __init__(self, graph, mistake=None, reads=True, crashes=None):
        super().__init__(graph, mistake)
        self.reads = reads
        self.limit = crashes

    def beginnings(self):
        return [CrashState(*state, acknowledged=state.heads) for state in super().beginnings()]

    def steps(self, state):
        yield from self.crashes("the server crashes", state)
        for index in range(len(state.writers)):
            yield from self.writer_steps(state, index)
        for text, after in self.cleaner_steps(state):
            yield from self.cleaner_step(state, text, after)
        if self.reads:
            yield from self.reader_steps(state)

    # Crashes

    def crashes(self, text, state):
        """Yields what may become of a state in a crash."""
        if state.crashes == self.limit:
            return
        count = 0 if self.limit is None else state.crashes + 1
        connected = tuple(writer.at == "idle" for writer in state.writers)
        for values in {stored(state)} | state.unsaved:
            after = with_stored(state, values)._replace(unsaved=frozenset(), connected=connected,
                                                       crashes=count)
            if after != state:
                yield text, after

    # Writers

    def writer_steps(self, state, index):
        writer = state.writers[index]
        name = f"writer {index + 1}"
        desired = None if writer.at == "idle" else writer.commit
        if state.sent[index] and state.heads[index] == desired:
            yield f"{name} finds its branch moved", self.ended(state, index)
            return
        is_move = writer.at == "move" or writer.at == "idle" and state.heads[index] is not None
        if is_move:
            yield from self.moves_in_crash(state, index, f"the server crashes before {name} moves")
        for text, after in self.attempts(state, index, writer, name):
            if is_move and after.heads != state.heads:
                lost = state._replace(heads=after.heads, objects=after.objects)
                unsaved = self.unsaved_after_move(state)
                yield from self.moves_in_crash(lost._replace(unsaved=unsaved), index,
                                               f"the server crashes after {name} has moved")
                yield text, self.ended(after._replace(unsaved=unsaved), index)
            elif writer.at == "write" and stored(after) != stored(state):
                if not state.is_pass:
                    after = after._replace(new=state.new)
                after = after._replace(unsaved=state.unsaved | {stored(state)})
                lost = with_stored(state, stored(after))._replace(unsaved=after.unsaved)
                yield from self.crashes(f"the server crashes after {text}", lost)
                yield text, after
            else:
                yield text, after

    def attempts(self, state, index, writer, name):
        """Yields the steps of a writer, with the checks of one that has lost its connection."""

        def after(changed, **others):
            return state._replace(writers=replaced(state.writers, index, changed),
                                  connected=replaced(state.connected, index, True),
                                  sent=replaced(state.sent, index, False), **others)

        checked = state
        if not state.connected[index] and writer.at == "write" and writer.is_current:
            if self.mistake != "uploads_go_on":
                objects = self.renewed(state.objects, writer)
                if objects is None:
                    yield self.start_over(writer, name, after)
                    return
                checked = state._replace(objects=objects,
                                         connected=replaced(state.connected, index, True))
        elif not state.connected[index] and writer.at == "move":
            if self.mistake != "move_unchecked":
                unsure = writer._replace(is_current=False)
                checked = state._replace(writers=replaced(state.writers, index, unsure))
        for text, following in super().writer_steps(checked, index):
            if text.endswith("starts over"):
                following = after(following.writers[index])
            yield text, following

    def renewed(self, objects, writer):
        renewed = super().renewed(objects, writer)
        return objects if renewed and self.mistake == "written_not_saved" else renewed

    def unsaved_after_move(self, state):
        is_later = self.mistake == "heads_move_later"
        return state.unsaved | {stored(state)} if is_later else frozenset()

    def moves_in_crash(self, state, index, text):
        """Yields what becomes of a move that was sent, and not answered."""
        writer = state.writers[index]
        if self.mistake == "unknown_is_done":
            desired = None if writer.at == "idle" else writer.commit
            state = self.ended(state, index)
            state = state._replace(acknowledged=replaced(state.acknowledged, index, desired))
        elif self.mistake == "unknown_is_undone":
            state = state._replace(writers=replaced(state.writers, index, Writer()))
        else:
            state = state._replace(sent=replaced(state.sent, index, True))
        yield from self.crashes(text, state)

    @staticmethod
    def ended(state, index):
        """Returns a state in which the writer knows that its move has happened."""
        return state._replace(writers=replaced(state.writers, index, Writer()),
                              connected=replaced(state.connected, index, True),
                              sent=replaced(state.sent, index, False),
                              acknowledged=replaced(state.acknowledged, index, state.heads[index]))

    # The cleaner, whose transactions wait for the disk

    def cleaner_step(self, state, text, after):
        if after.cleaner.at == "list" and state.cleaner.at == "idle":
            is_later = self.mistake == "pass_begins_later"
            unsaved = state.unsaved | {stored(state)} if is_later else frozenset()
            yield text, after._replace(is_pass=True, unsaved=unsaved)
        elif state.cleaner.at == "condemn":
            # Without the answer, the cleaner condemns again what is unmarked then.
            lost = after._replace(cleaner=state.cleaner, new=state.new, unsaved=frozenset())
            yield from self.crashes("the server crashes after the cleaner has condemned", lost)
            yield text, after._replace(is_pass=False, unsaved=frozenset())
        elif after.objects != state.objects:
            yield text, after._replace(unsaved=frozenset())
        else:
            yield text, after

    # What must hold

    def harm(self, state):
        for index, (head, acknowledged) in enumerate(zip(state.heads, state.acknowledged)):
            if not state.sent[index] and head != acknowledged:
                return f"writer {index + 1} knows {acknowledged} as its head, which is {head}"
        return super().harm(state)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--mistake", choices=sorted(MISTAKES))
    parser.add_argument("--crashes", type=int)
    parser.add_argument("--no-reader", action="store_true")
    parser.add_argument("graph", nargs="?", choices=GRAPHS, default="pair")
    arguments = parser.parse_args()
    model = CrashModel(arguments.graph, arguments.mistake, not arguments.no_reader,
                       arguments.crashes)
    return 1 if print_outcome(arguments.graph, search(model)) else 0


if __name__ == "__main__":
    sys.exit(main())
