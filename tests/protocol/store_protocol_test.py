#!/usr/bin/env python3
"""Searches the protocol of stores on a server, and checks that planted mistakes are found.

With TALVCS_LONG_TESTS=1 in the environment, the larger graph is searched as well.
"""

import os
import unittest

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
    "no_grace": (7, "the cleaner removes 2"),
}


# For each graph, the numbers of states and of steps between them. The larger one takes half a minute.
SIZES = {"chain": (158490, 577935)}
if os.environ.get("TALVCS_LONG_TESTS"):
    SIZES["fork"] = (806683, 3181063)


class StoreProtocol(unittest.TestCase):
    def test_no_order_of_steps_does_harm(self):
        for graph, size in SIZES.items():
            with self.subTest(graph):
                outcome = search(Model(graph))
                self.assertEqual(outcome.harm, "", outcome.way)
                self.assertEqual((outcome.states, outcome.steps), size)

    def test_every_planted_mistake_is_found(self):
        self.assertEqual(sorted(WAYS), sorted(MISTAKES))
        for mistake, (length, last) in WAYS.items():
            with self.subTest(mistake):
                outcome = search(Model("chain", mistake))
                self.assertNotEqual(outcome.harm, "")
                self.assertEqual((len(outcome.way), outcome.way[-1]), (length, last))


if __name__ == "__main__":
    unittest.main()
