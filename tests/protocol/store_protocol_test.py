#!/usr/bin/env python3
"""Searches the protocol of stores on a server, and checks that planted mistakes are found.

With TALVCS_LONG_TESTS=1 in the environment, the larger graph is searched as well, and a reader beside
a server that crashes. CRASH_SEARCH in the environment is the program of crash_search.cpp.
"""

import os
import subprocess
import unittest

import crash_protocol
import sync_protocol
from store_protocol import MISTAKES, Model, search

# For each mistake, the number of steps of the shortest way to harm, and the last of them.
WAYS = {
    "move_before_upload": (1, "writer 1 moves its branch to 2"),
    "no_epoch": (8, "the cleaner removes 0"),
    "no_rereading": (8, "the cleaner removes 0"),
    "late_write_lives": (15, "the cleaner removes 0"),
    "live_are_listed": (20, "the cleaner removes 0"),
    "new_are_spared": (15, "the cleaner removes 0"),
    "skipped_unchecked": (8, "the cleaner removes 0"),
    "condemned_counts": (8, "the cleaner removes 0"),
    "insert_before_saving": (16, "writer 1 moves its branch to 2"),
    "heads_are_trusted": (10, "the cleaner removes 0"),
    "no_grace": (7, "the cleaner removes 2"),
}
CRASH_WAYS = {
    "heads_move_later": (2, "the server crashes"),
    "pass_begins_later": (14, "the cleaner removes 0"),
    "uploads_go_on": (9, "the server crashes after writer 2 has moved"),
    "move_unchecked": (7, "writer 1 moves its branch to 1"),
    "skipped_unchecked": (8, "the cleaner removes 0"),
    "written_not_saved": (11, "the cleaner removes 0"),
    "unknown_is_done": (2, "the server crashes before writer 2 moves"),
    "unknown_is_undone": (2, "the server crashes after writer 2 has moved"),
}
SYNC_WAYS = {
    "local_moves_last": (12, "machine 2 pushes, and the server crashes after"),
    "unknown_is_done": (4, "machine 1 pushes, and the server crashes before"),
    "uncompared": (7, "machine 2 pushes, and the server crashes after"),
    "heads_move_later": (5, "the server crashes"),
}


# For each graph, the numbers of states and of steps between them. The larger one takes half a minute.
SIZES = {"chain": (158490, 577935)}
if os.environ.get("TALVCS_LONG_TESTS"):
    SIZES["fork"] = (806683, 3181063)

# The same with crashes of the server, with a reader or without.
CRASH_SIZES = {False: (123202, 729841)}
if os.environ.get("TALVCS_LONG_TESTS"):
    CRASH_SIZES[True] = (241592, 1411531)

# What the faster program finds: the same, and graphs of three objects.
FAST_CRASH_SIZES = {
    ("pair", "--no-reader"): (123202, 729841),
    ("pair",): (241592, 1411531),
    ("chain", "--no-reader"): (1277302, 9193459),
}
if os.environ.get("TALVCS_LONG_TESTS"):
    FAST_CRASH_SIZES |= {
        ("chain",): (2108110, 14249081),
        ("fork", "--no-reader"): (2200399, 12847281),
        ("fork",): (10492505, 62990325),
    }


class StoreProtocol(unittest.TestCase):
    def test_no_order_of_steps_does_harm(self):
        for graph, size in SIZES.items():
            with self.subTest(graph):
                outcome = search(Model(graph))
                self.assertEqual(outcome.harm, "", outcome.way)
                self.assertEqual((outcome.states, outcome.steps), size)

    def test_every_planted_mistake_is_found(self):
        self.check_ways(WAYS, MISTAKES, lambda mistake: search(Model("chain", mistake)))

    def check_ways(self, ways, mistakes, search_with):
        self.assertEqual(sorted(ways), sorted(mistakes))
        for mistake, (length, last) in ways.items():
            with self.subTest(mistake):
                outcome = search_with(mistake)
                self.assertNotEqual(outcome.harm, "")
                self.assertEqual((len(outcome.way), outcome.way[-1]), (length, last))

    def test_no_crash_of_the_server_does_harm(self):
        for reads, size in CRASH_SIZES.items():
            with self.subTest(reads=reads):
                outcome = search(crash_protocol.CrashModel("pair", reads=reads))
                self.assertEqual(outcome.harm, "", outcome.way)
                self.assertEqual((outcome.states, outcome.steps), size)

    def test_no_crash_of_the_server_does_harm_to_three_objects(self):
        for arguments, (states, steps) in FAST_CRASH_SIZES.items():
            with self.subTest(arguments):
                found = subprocess.run([os.environ["CRASH_SEARCH"], *arguments], text=True,
                                       stdout=subprocess.PIPE, check=False)
                self.assertEqual(found.stdout, f"{arguments[0]}: {states} states, {steps} steps\n")
                self.assertEqual(found.returncode, 0)

    def test_every_mistake_about_a_crash_is_found(self):
        self.check_ways(CRASH_WAYS, crash_protocol.MISTAKES, lambda mistake: search(
            crash_protocol.CrashModel("pair", mistake, reads=False)))

    def test_syncs_make_machines_equal_after_any_crash(self):
        outcome = sync_protocol.search(sync_protocol.SyncModel())
        self.assertEqual(outcome.harm, "", outcome.way)
        self.assertEqual((outcome.states, outcome.steps), (21844, 96656))

    def test_every_mistake_of_a_sync_is_found(self):
        self.check_ways(SYNC_WAYS, sync_protocol.MISTAKES, lambda mistake: sync_protocol.search(
            sync_protocol.SyncModel(mistake)))


if __name__ == "__main__":
    unittest.main()
