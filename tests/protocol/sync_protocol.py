#!/usr/bin/env python3
"""A model of two machines that sync one branch through a server that crashes.

Usage: sync_protocol.py [--mistake NAME]

Searches all orders of their steps, breadth first. A history is a tuple of edits, and its id follows
from it: an edit that is replayed on top of others becomes another version. Each machine makes two
edits, at any time. The steps of a sync, as in kit/sharing:

  read     the head of the remote
  replay   the local versions that the remote lacks go on top of that head. Then the local branch
           moves, on the machine's own disk.
  push     the remote's head moves, if it still is the one that was read; otherwise the sync begins
           again.

The server may crash before a push is committed, or after it and before its answer. The machine then
looks: if the head is the wished one or comes after it, the push has happened; if it is where it was,
the machine pushes again; otherwise the sync begins again. A machine may stop at any moment, and
begins with what is on its disk.

What must hold in each state: no history has an edit twice; all edits of a sync that has ended are in
the remote's history. And from each state some way leads to one in which all edits were made, and
both machines and the remote are equal.
"""

import argparse
import collections
import sys
from typing import NamedTuple

from store_protocol import Outcome, print_outcome, replaced

EDITS = (("a1", "a2"), ("b1", "b2"))

MISTAKES = {
    "local_moves_last": "the local branch moves after the push",
    "unknown_is_done": "a push without an answer is taken as done",
    "uncompared": "the remote's head moves wherever it is",
    "heads_move_later": "a push doesn't wait for the server's disk",
}


class Machine(NamedTuple):
    local: tuple = ()  # the history of the local branch
    edits: int = 0  # how many were made
    ended: int = 0  # how many a sync that has ended had, of both machines
    at: str = "idle"  # idle, replay, push, look
    expected: tuple = ()  # the head of the remote as it was read
    desired: tuple = ()


class State(NamedTuple):
    head: tuple = ()
    older: tuple = None  # what a crash of the server makes of the head, of a mistake
    machines: tuple = (Machine(), Machine())


def replayed(local, remote):
    """Puts the versions after the last common one on top of the remote's."""
    common = 0
    while common < min(len(local), len(remote)) and local[common] == remote[common]:
        common += 1
    return remote + local[common:]


class SyncModel:
    def __init__(self, mistake=None):
        self.mistake = mistake

    def steps(self, state):
        if state.older is not None:
            machines = tuple(machine._replace(at="look") if machine.at == "push" else machine
                             for machine in state.machines)
            yield "the server crashes", state._replace(head=state.older, older=None,
                                                       machines=machines)
        for index, machine in enumerate(state.machines):
            name = f"machine {index + 1}"
            for text, changed, others in self.machine_steps(state, index, machine):
                yield f"{name} {text}", state._replace(
                    machines=replaced(state.machines, index, changed), **others)

    def machine_steps(self, state, index, machine):
        idle = machine._replace(at="idle", expected=(), desired=())
        if machine.at == "idle":
            if machine.edits < len(EDITS[index]):
                yield "edits", machine._replace(
                    local=machine.local + (EDITS[index][machine.edits],),
                    edits=machine.edits + 1), {}
            yield "reads the head", machine._replace(at="replay", expected=state.head), {}
            return
        yield "stops", idle, {}
        if machine.at == "replay":
            desired = replayed(machine.local, machine.expected)
            local = machine.local if self.mistake == "local_moves_last" else desired
            yield "replays", machine._replace(at="push", local=local, desired=desired), {}
        elif machine.at == "push":
            yield from self.push(state, machine, idle)
        elif self.has_happened(state, machine):
            yield "finds its push", self.ended(idle, machine), {}
        elif state.head == machine.expected:
            yield "finds the head where it was", machine._replace(at="push"), {}
        else:
            yield "begins again", idle, {}

    def push(self, state, machine, idle):
        unknown = machine._replace(at="look")
        if self.mistake == "unknown_is_done":
            unknown = self.ended(idle, machine)
        yield "pushes, and the server crashes before", unknown, {}
        if state.head != machine.expected and self.mistake != "uncompared":
            yield "loses the race", idle, {}
            return
        if self.mistake == "heads_move_later":
            older = state.head if state.older is None else state.older
            yield "pushes", self.ended(idle, machine), {"head": machine.desired, "older": older}
            return
        moved = {"head": machine.desired}
        yield "pushes, and the server crashes after", unknown, moved
        yield "pushes", self.ended(idle, machine), moved

    @staticmethod
    def has_happened(state, machine):
        return state.head[:len(machine.desired)] == machine.desired

    @staticmethod
    def ended(idle, machine):
        return idle._replace(local=machine.desired, ended=len(machine.desired))

    def harm(self, state):
        for history in (state.head, *(machine.local for machine in state.machines)):
            if len(set(history)) < len(history):
                return f"an edit is there twice: {history}"
        for index, machine in enumerate(state.machines):
            if not set(machine.local[:machine.ended]) <= set(state.head):
                return f"the remote has lost an edit that machine {index + 1} has synced"
        return ""

    @staticmethod
    def is_equal(state):
        """Returns whether all was done."""
        heads = {state.head, *(machine.local for machine in state.machines)}
        return len(heads) == 1 and len(state.head) == sum(map(len, EDITS))


def search(model):
    """Visits every state, and ends at the first harm or at one that can't become equal."""
    begin = State()
    come_from = {begin: None}
    before = collections.defaultdict(list)
    queue = collections.deque(come_from)
    steps = 0

    def way_to(state):
        way = []
        while come_from[state] is not None:
            text, state = come_from[state]
            way.append(text)
        return tuple(reversed(way))

    while queue:
        state = queue.popleft()
        harm = model.harm(state)
        if harm:
            return Outcome(len(come_from), steps, harm, way_to(state))
        for text, following in model.steps(state):
            steps += 1
            before[following].append(state)
            if following not in come_from:
                come_from[following] = (text, state)
                queue.append(following)
    good = {state for state in come_from if model.is_equal(state)}
    queue = collections.deque(good)
    while queue:
        for state in before[queue.popleft()]:
            if state not in good:
                good.add(state)
                queue.append(state)
    for state in come_from:
        if state not in good:
            return Outcome(len(come_from), steps, "the machines never become equal", way_to(state))
    return Outcome(len(come_from), steps)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--mistake", choices=sorted(MISTAKES))
    outcome = search(SyncModel(parser.parse_args().mistake))
    return 1 if print_outcome("sync", outcome) else 0


if __name__ == "__main__":
    sys.exit(main())
