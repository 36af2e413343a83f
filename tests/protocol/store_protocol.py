#!/usr/bin/env python3
"""A model of how writers, readers and a cleaner share one repository on a server.

Usage: store_protocol.py [--mistake NAME] [GRAPH...]

Searches all orders of their steps, breadth first, and prints how many states there are. Each step is
one transaction of the server. A participant may stop for ever after any step, so a crash needs no
step of its own. With --mistake it plants that mistake and prints the shortest way to the harm. The
graphs are ways in which three objects may name each other; without any, all are searched.

The store, as in stores/postgres:

  object     absent, live or condemned. A condemned object can be read, but doesn't count as there
             for a writer that looks, and goes after a grace.
  epoch      a number of the repository, raised whenever objects are condemned. A lease is the epoch
             that a writer has seen when it first looked. Here each writer has a flag instead of the
             number: its lease is current, or it isn't.

A writer looks for its objects from the top down, and skips all that is below a live one. It uploads
the rest from the bottom up and then moves its branch.

  write      With a current lease the object is live afterwards, even if it was condemned. With an old
             lease a new object is condemned from the beginning, and a condemned one stays so.
  move       With an old lease everything is checked again: what was uploaded becomes live if it is
             still there, and what was skipped must be live. Otherwise the writer starts over.

The cleaner begins a pass, lists all objects, condemned ones too, reads the heads and marks what they reach. Then one
transaction reads the heads again, marks what has come, raises the epoch and condemns what is
unmarked among the listed objects and those uploaded since the pass began. Writes and moves wait for
that transaction. Condemned objects are removed one by one.

A reader reads a head, then what it reaches, one object after another. The grace is longer than a
read: an object isn't removed while a reader goes on that began before it was condemned.

What must hold in each state: all that a head reaches is live; all that a live object reaches is live;
no reader misses an object.
"""

import argparse
import collections
import sys
from typing import NamedTuple

ABSENT, LIVE, CONDEMNED = "absent", "live", "condemned"

# For each object, the objects that it names directly; an object comes after those that it names. And
# the commits among them, which branches may name.
GRAPHS = {
    "pair": (((), (0,)), (1,)),  # a tree, a commit with it
    "chain": (((), (0,), (1,)), (2,)),  # a blob, a tree with it, a commit with the tree
    "fork": (((), (0,), (0,)), (1, 2)),  # a blob, and two commits with it
}

MISTAKES = {
    "move_before_upload": "a writer moves the head, then uploads",
    "no_epoch": "a move doesn't check whether the lease is old",
    "no_rereading": "objects are condemned without reading the heads again",
    "late_write_lives": "a write with an old lease makes a live object",
    "live_are_listed": "the cleaner lists live objects only, so one that is saved later is left out",
    "new_are_spared": "what was uploaded since the pass began is not condemned",
    "skipped_unchecked": "a move with an old lease doesn't check what was skipped",
    "condemned_counts": "a look counts condemned objects as there",
    "insert_before_saving": "a write inserts what is absent first, and saves it in a second step",
    "heads_are_trusted": "what the heads reached before the save began is skipped without a look",
    "no_grace": "condemned objects are removed while a reader may still need them",
}


class Writer(NamedTuple):
    at: str = "idle"  # idle, trust (of a mistake), look, write, save (of a mistake), move
    commit: int = -1  # the object that the branch is to name
    stack: tuple = ()  # objects to look for, the next one last
    missing: frozenset = frozenset()  # objects to upload
    written: frozenset = frozenset()
    skipped: frozenset = frozenset()
    is_current: bool = False  # whether the lease is of the epoch of now
    trusted: frozenset = frozenset()  # of a mistake


class Cleaner(NamedTuple):
    at: str = "idle"  # idle, list, mark, condemn, remove
    listed: frozenset = frozenset()
    marked: frozenset = frozenset()


class Reader(NamedTuple):
    stack: tuple = ()  # objects to read, the next one last
    kept: frozenset = frozenset()  # objects that were condemned during this read


class State(NamedTuple):
    objects: tuple
    new: frozenset  # objects uploaded since the pass began
    heads: tuple  # for each writer's branch the object, or none
    writers: tuple
    cleaner: Cleaner = Cleaner()
    reader: Reader = Reader()


def replaced(values, index, value):
    return values[:index] + (value,) + values[index + 1:]


class Model:
    def __init__(self, graph, mistake=None):
        self.children, self.commits = GRAPHS[graph]
        self.mistake = mistake
        self.reach = []
        for index, children in enumerate(self.children):
            self.reach.append(frozenset({index}).union(*(self.reach[child] for child in children)))

    def beginnings(self):
        """Returns an empty repository, one with a branch, and one with a branch's remains."""
        count = len(self.children)
        idle = (Writer(), Writer())
        commit = self.commits[0]
        there = tuple(LIVE if index in self.reach[commit] else ABSENT for index in range(count))
        return [
            State((ABSENT,) * count, frozenset(), (None, None), idle),
            State(there, frozenset(), (None, commit), idle),
            State(there, frozenset(), (None, None), idle),
        ]

    def steps(self, state):
        """Yields each step that is possible, as a text and the state after it."""
        for index in range(len(state.writers)):
            yield from self.writer_steps(state, index)
        yield from self.cleaner_steps(state)
        yield from self.reader_steps(state)

    # Writers

    def writer_steps(self, state, index):
        writer = state.writers[index]
        name = f"writer {index + 1}"

        def after(changed, **others):
            return state._replace(writers=replaced(state.writers, index, changed), **others)

        if writer.at == "idle":
            if state.heads[index] is not None:
                yield f"{name} removes its branch", state._replace(
                    heads=replaced(state.heads, index, None))
                return
            for commit in self.commits:
                if self.mistake == "move_before_upload":
                    moved = Writer("write", commit, missing=self.reach[commit], is_current=True)
                    yield f"{name} moves its branch to {commit}", after(
                        moved, heads=replaced(state.heads, index, commit))
                    continue
                if self.mistake == "heads_are_trusted":
                    yield f"{name} reads the heads", after(
                        Writer("trust", commit, trusted=self.reached(state.heads)))
                    continue
                yield f"{name} begins a save of {commit}", after(
                    Writer("look", commit, stack=(commit,), is_current=True))
        elif writer.at == "trust":
            begun = writer._replace(at="look", stack=(writer.commit,), is_current=True)
            yield f"{name} begins a save of {writer.commit}", after(begun)
        elif writer.at == "look":
            yield self.look(state, writer, name, after)
        elif writer.at == "write":
            wanted = min(writer.missing)
            yield f"{name} uploads {wanted}", self.write(state, writer, wanted, after)
        elif writer.at == "save":
            wanted = min(writer.missing)
            yield f"{name} saves {wanted}", self.save(state, writer, wanted, after)
        elif writer.at == "move":
            yield self.move(state, writer, index, name, after)

    def look(self, state, writer, name, after):
        *rest, wanted = writer.stack
        there = {LIVE} if self.mistake != "condemned_counts" else {LIVE, CONDEMNED}
        if wanted in writer.trusted:
            changed = writer
        elif state.objects[wanted] in there:
            changed = writer._replace(skipped=writer.skipped | {wanted})
        else:
            changed = writer._replace(missing=writer.missing | {wanted})
            rest += self.children[wanted]
        changed = changed._replace(stack=tuple(rest))
        if not rest:
            changed = changed._replace(at="write" if changed.missing else "move")
        return f"{name} looks for {wanted}", after(changed)

    def write(self, state, writer, wanted, after):
        """Uploads one object, in one transaction."""
        if self.mistake == "insert_before_saving":
            changed = writer._replace(at="save")
            if state.objects[wanted] != ABSENT:
                return after(changed)
            what = LIVE if writer.is_current else CONDEMNED
            return after(changed, objects=replaced(state.objects, wanted, what),
                         new=state.new | {wanted})
        objects, new = state.objects, state.new
        lives = writer.is_current or self.mistake == "late_write_lives"
        if objects[wanted] == ABSENT:
            objects = replaced(objects, wanted, LIVE if lives else CONDEMNED)
            new = new | {wanted}
        elif objects[wanted] == CONDEMNED and lives:
            objects = replaced(objects, wanted, LIVE)
        return after(self.uploaded(writer, wanted), objects=objects, new=new)

    def save(self, state, writer, wanted, after):
        """The second half of a write, of a mistake."""
        objects = state.objects
        if objects[wanted] == CONDEMNED and writer.is_current:
            objects = replaced(objects, wanted, LIVE)
        return after(self.uploaded(writer, wanted), objects=objects)

    def uploaded(self, writer, wanted):
        missing = writer.missing - {wanted}
        if missing:
            at = "write"
        elif self.mistake == "move_before_upload":
            return Writer()
        else:
            at = "move"
        return writer._replace(at=at, missing=missing, written=writer.written | {wanted})

    def move(self, state, writer, index, name, after):
        objects = state.objects
        if not writer.is_current and self.mistake != "no_epoch":
            objects = self.renewed(objects, writer)
            if objects is None:
                return self.start_over(writer, name, after)
        return f"{name} moves its branch to {writer.commit}", after(
            Writer(), objects=objects, heads=replaced(state.heads, index, writer.commit))

    def renewed(self, objects, writer):
        """Returns the objects after a check of all that the save relies on; none if some is gone."""
        are_there = all(objects[wanted] != ABSENT for wanted in writer.written)
        are_live = all(objects[wanted] == LIVE for wanted in writer.skipped)
        if not are_there or not (are_live or self.mistake == "skipped_unchecked"):
            return None
        return tuple(LIVE if wanted in writer.written else what
                     for wanted, what in enumerate(objects))

    @staticmethod
    def start_over(writer, name, after):
        return f"{name} starts over", after(
            Writer("look", writer.commit, stack=(writer.commit,), is_current=True))

    # The cleaner

    def cleaner_steps(self, state):
        cleaner = state.cleaner
        if cleaner.at == "idle":
            yield "the cleaner begins a pass", state._replace(
                new=frozenset(), cleaner=Cleaner("list"))
        elif cleaner.at == "list":
            listed = frozenset(index for index, what in enumerate(state.objects)
                               if what == LIVE or what == CONDEMNED and self.mistake != "live_are_listed")
            yield "the cleaner lists the objects", state._replace(cleaner=Cleaner("mark", listed))
        elif cleaner.at == "mark":
            yield "the cleaner marks", state._replace(
                cleaner=Cleaner("condemn", cleaner.listed, self.reached(state.heads)))
        elif cleaner.at == "condemn":
            yield "the cleaner condemns", self.condemn(state)
        else:
            for index, what in enumerate(state.objects):
                is_kept = index in state.reader.kept and self.mistake != "no_grace"
                if what == CONDEMNED and not is_kept:
                    yield f"the cleaner removes {index}", state._replace(
                        objects=replaced(state.objects, index, ABSENT))
            yield "the cleaner ends", state._replace(cleaner=Cleaner())

    def condemn(self, state):
        cleaner = state.cleaner
        marked = cleaner.marked
        if self.mistake != "no_rereading":
            marked = marked | self.reached(state.heads)
        seen = cleaner.listed if self.mistake == "new_are_spared" else cleaner.listed | state.new
        condemned = frozenset(index for index in seen - marked if state.objects[index] == LIVE)
        objects = tuple(CONDEMNED if index in condemned else what
                        for index, what in enumerate(state.objects))
        reader = state.reader
        if reader.stack:
            reader = reader._replace(kept=reader.kept | condemned)
        writers = tuple(writer._replace(is_current=False) for writer in state.writers)
        return state._replace(objects=objects, writers=writers, reader=reader, new=frozenset(),
                              cleaner=Cleaner("remove"))

    def reached(self, heads):
        return frozenset().union(*(self.reach[head] for head in heads if head is not None))

    # The reader

    def reader_steps(self, state):
        reader = state.reader
        if not reader.stack:
            for head in sorted(set(state.heads) - {None}):
                yield f"the reader reads the head {head}", state._replace(reader=Reader((head,)))
            return
        *rest, wanted = reader.stack
        if state.objects[wanted] == ABSENT:
            return  # the harm of this state
        rest += self.children[wanted]
        kept = reader.kept if rest else frozenset()
        yield f"the reader reads {wanted}", state._replace(reader=Reader(tuple(rest), kept))

    # What must hold

    def harm(self, state):
        """Returns what is wrong in the state, or none."""
        for head in set(state.heads) - {None}:
            if any(state.objects[index] == ABSENT for index in self.reach[head]):
                return f"the head {head} reaches an object that is gone"
        if state.reader.stack and state.objects[state.reader.stack[-1]] == ABSENT:
            return f"the reader misses {state.reader.stack[-1]}"
        if self.mistake is not None:
            return None  # the harm itself is to be found, not how it begins
        if any(state.objects[index] != LIVE for index in self.reached(state.heads)):
            return "a head reaches an object that isn't live"
        for index, what in enumerate(state.objects):
            if what == LIVE and any(state.objects[below] != LIVE for below in self.reach[index]):
                return f"the live object {index} names one that isn't"
        return None


class Outcome(NamedTuple):
    states: int
    steps: int
    harm: str = ""
    way: tuple = ()


def search(model):
    """Visits every state, the nearest ones first, and ends at the first harm."""
    come_from = {state: None for state in model.beginnings()}
    queue = collections.deque(come_from)
    steps = 0
    while queue:
        state = queue.popleft()
        harm = model.harm(state)
        if harm:
            way = []
            while come_from[state] is not None:
                text, state = come_from[state]
                way.append(text)
            return Outcome(len(come_from), steps, harm, tuple(reversed(way)))
        for text, following in model.steps(state):
            steps += 1
            if following not in come_from:
                come_from[following] = (text, state)
                queue.append(following)
    return Outcome(len(come_from), steps)


def print_outcome(name, outcome):
    """Prints what a search has found. Returns whether that is a harm."""
    print(f"{name}: {outcome.states} states, {outcome.steps} steps")
    for number, text in enumerate(outcome.way, 1):
        print(f"  {number}. {text}")
    if outcome.harm:
        print(f"  harm: {outcome.harm}")
    return bool(outcome.harm)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--mistake", choices=sorted(MISTAKES))
    parser.add_argument("graphs", nargs="*", choices=[[], *GRAPHS], default=[], metavar="GRAPH")
    arguments = parser.parse_args()
    is_harmed = False
    for graph in arguments.graphs or GRAPHS:
        is_harmed |= print_outcome(graph, search(Model(graph, arguments.mistake)))
    return 1 if is_harmed else 0


if __name__ == "__main__":
    sys.exit(main())
