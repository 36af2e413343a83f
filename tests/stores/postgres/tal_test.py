"""The program tal on a PostgreSQL server, which is started for the whole program."""

import os
import unittest

from support import TalTest

HOST, USER, DATABASE = (part.partition("=")[2] for part in os.environ["TALVCS_POSTGRES"].split())
PLACE = f"postgresql://{USER}@/{DATABASE}?host={HOST}#tal"


class OnServer(TalTest):
    def test_a_clean_up_leaves_others_time_to_read_what_they_have_begun(self):
        self.tal("init")
        self.commit("First", a="1")
        self.tal("remote", PLACE)
        self.tal("switch", "-c", "topic")
        self.commit("Aside", b="2")
        self.tal("push")
        aside = self.read_json("log", "-n", "1")[0]["id"]
        self.tal("switch", "master")
        self.tal("push")
        lazy = self.scratch / "lazy"
        self.tal("clone", PLACE, str(lazy), "--lazy")
        self.tal("branch", "-d", "topic", folder=lazy)
        self.tal("gc", folder=lazy)
        self.assertIn("freed 0 B, 0 objects; a clean-up frees the rest of it after a day",
                      self.talk)
        other = self.scratch / "other"
        self.tal("clone", PLACE, str(other), "--lazy")
        self.assertIn("Aside", self.tal("show", aside, folder=other))


if __name__ == "__main__":
    unittest.main()
