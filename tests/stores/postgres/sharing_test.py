#!/usr/bin/env python3
"""Programs that share a repository on a server, while programs, connections and servers fail.

WORKER is the program worker.cpp. With TALVCS_LONG_TESTS=1 in the environment the counts are those of
docs/reliability.md, and the tests of a standby and of five minutes of clean-up run as well.
"""

import collections
import os
import random
import subprocess
import sys
import threading
import time
import unittest

from cutting_proxy import Proxy
from postgres_server import Server

WORKER = os.environ["WORKER"]
IS_LONG = bool(os.environ.get("TALVCS_LONG_TESTS"))
PROCESSES = 8
EDITS = 100 if IS_LONG else 4
SEED = int(os.environ.get("TALVCS_SEED", random.randrange(1 << 30)))

server = None


def setUpModule():
    global server
    print(f"seed {SEED}", file=sys.stderr)
    # What doesn't wait for the disk stays in memory for long, so that a crash loses it.
    settings = {"wal_writer_delay": "10000"} | ({"fsync": "on"} if IS_LONG else {})
    server = Server(settings).__enter__()
    server.make_database()


def tearDownModule():
    server.__exit__(None, None, None)


def start(connection, *arguments):
    return subprocess.Popen([WORKER, connection, *map(str, arguments)], text=True,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE)


def run(connection, *arguments):
    """Returns the exit code, and what was printed and complained about."""
    process = start(connection, *arguments)
    out, err = process.communicate(timeout=600)
    return process.returncode, out, err


class Editor(threading.Thread):
    """Saves the edits NAME.0 to NAME.COUNT-1 by processes, of which any may fail or be killed."""

    def __init__(self, connection, repository, name, count):
        super().__init__()
        self.connection, self.repository = connection, repository
        self.editor, self.count = name, count
        self.acknowledged = []
        self.failures = []
        self.process = None
        self.start()

    def run(self):
        while True:
            # After a failure the history says what has happened.
            code, out, err = run(self.connection, self.repository, "log")
            if code != 0:
                self.failures.append(err)
                if len(self.failures) > 100:
                    return
                time.sleep(0.1)
                continue
            done = out.split()
            first = sum(1 for message in done if message.startswith(self.editor + "."))
            if first >= self.count:
                return
            self.process = start(self.connection, self.repository, "edit", self.editor, first,
                                 self.count - first)
            out, err = self.process.communicate()
            self.acknowledged += out.split()
            if err:
                self.failures.append(err)

    def kill(self):
        if self.process is not None:
            self.process.kill()


class Sharing(unittest.TestCase):
    def setUp(self):
        self.repository = self.id().rsplit(".", maxsplit=1)[-1]
        self.random = random.Random(SEED)
        self.assertEqual(run(server.connection(), self.repository, "log")[0], 0)

    def log(self, connection=None):
        code, out, err = run(connection or server.connection(), self.repository, "log")
        self.assertEqual(code, 0, err)
        return out.split()

    def edit_by_all(self, connection, disturb, count=EDITS, processes=PROCESSES):
        """Lets processes edit while `disturb` is called again and again with the editors."""
        editors = [Editor(connection, self.repository, f"p{number}", count)
                   for number in range(processes)]
        while any(editor.is_alive() for editor in editors):
            disturb(editors)
        failures = [failure for editor in editors for failure in editor.failures]
        history = self.log(connection)
        wanted = sorted(f"p{number}.{edit}" for number in range(processes)
                        for edit in range(count))
        twice = [edit for edit, times in collections.Counter(history).items() if times > 1]
        self.assertEqual(twice, [], failures)
        self.assertEqual(sorted(history), wanted, failures)
        for editor in editors:
            self.assertLessEqual(set(editor.acknowledged), set(history))
        return failures

    def test_history_is_read_in_one_round_trip(self):
        self.assertEqual(run(server.connection(), self.repository, "edit", "p", 0, 40)[0], 0)
        with Proxy(server) as proxy:
            proxy.cut_at(None)
            self.assertEqual(len(self.log(proxy.connection())), 40)
            # The connection, the session, the heads, the history; and the client's farewell, which
            # the proxy may see later.
            self.assertIn(proxy.turns, (4, 5))

    def test_edits_of_eight_processes_are_all_in_the_history(self):
        failures = self.edit_by_all(server.connection(), lambda editors: time.sleep(0.05))
        self.assertEqual(failures, [])

    def test_killed_processes_lose_and_double_nothing(self):
        kills = 0

        def kill(editors):
            nonlocal kills
            time.sleep(self.random.uniform(0.0, 0.1))
            self.random.choice(editors).kill()
            kills += 1

        self.edit_by_all(server.connection(), kill)
        self.assertGreater(kills, 0)

    def test_killed_server_loses_and_doubles_nothing(self):
        kills = 0

        def crash(_):
            nonlocal kills
            time.sleep(self.random.uniform(0.2, 1.5) if IS_LONG else 0.3)
            if kills < (20 if IS_LONG else 2):
                server.crash()
                server.start()
                kills += 1

        self.edit_by_all(server.connection(), crash, processes=PROCESSES if IS_LONG else 3)
        self.assertGreater(kills, 0)

    def test_save_that_a_crash_has_cut_in_two_is_whole(self):
        lost = 0
        for number in range(20):
            name = f"{self.repository}.{number}"
            process = subprocess.Popen([WORKER, server.connection(), self.repository, "resume", name],
                                       text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
            self.assertEqual(process.stdout.readline(), "written\n")
            server.crash()
            server.start()
            out, _ = process.communicate("\n")
            self.assertEqual(process.returncode, 0)
            self.assertIn(out, ("Busy 2\n", "Done 0\n"))
            server.crash()
            server.start()
            counted = run(server.connection(), self.repository, "count", name, 2)
            self.assertEqual(counted[1], "2\n")
            lost += out == "Busy 2\n"
            if lost >= (10 if IS_LONG else 1):
                return
        self.fail("no crash has lost anything")

    def test_heads_wait_for_the_disk_whatever_the_role_has_set(self):
        connection = server.connection() + " options='-c synchronous_commit=off'"
        for number in range(10 if IS_LONG else 2):
            self.assertEqual(run(connection, self.repository, "edit", "p", number, 1)[0], 0)
            server.crash()
            server.start()
            self.assertEqual(len(self.log()), number + 1)

    # Cut connections

    def test_each_cut_of_a_save_saves_once(self):
        done = []

        def check(number, code, _, err):
            self.assertTrue(code == 0 or err.startswith("Unknown"), err)
            done.append(f"cut.{number}")
            self.assertEqual(self.log().count(f"cut.{number}"), 1, f"message {number}: {err}")

        with_cuts(self, 1 if IS_LONG else 4, check, lambda number: ("edit", "cut", number, 1))
        self.assertEqual(sorted(edit for edit in self.log() if edit != "cut.0"), sorted(done))

    def test_each_cut_of_a_read_reads_all(self):
        run(server.connection(), self.repository, "edit", "old", 0, 5)
        wanted = self.log()

        def check(number, code, out, err):
            self.assertEqual((code, out.split()), (0, wanted), f"message {number}: {err}")

        with_cuts(self, 1 if IS_LONG else 11, check, lambda _: ("log",))

    def test_each_cut_of_a_large_write_writes_all(self):
        objects = 300  # so many are copied into the table

        def check(number, code, _, err):
            self.assertEqual(code, 0, f"message {number}: {err}")
            counted = run(server.connection(), self.repository, "count", f"large.{number}", objects)
            self.assertEqual(counted[1], f"{objects}\n", f"message {number}")

        with_cuts(self, 1 if IS_LONG else 3, check,
                  lambda number: ("garbage", f"large.{number}", objects))

    def test_each_cut_of_an_upload_in_the_background_uploads_all(self):
        objects = 900  # three lists, each of which is copied into the table

        def check(number, code, _, err):
            self.assertTrue(code == 0 or err.startswith("Unknown"), f"message {number}: {err}")
            counted = run(server.connection(), self.repository, "count", f"upload.{number}", objects)
            self.assertEqual(counted[1], f"{objects}\n", f"message {number}")

        with_cuts(self, 1 if IS_LONG else 13, check,
                  lambda number: ("upload", f"upload.{number}", objects))

    def test_each_cut_of_a_clean_up_leaves_the_history_whole(self):
        run(server.connection(), self.repository, "edit", "old", 0, 5)
        wanted = self.log()
        run(server.connection(), self.repository, "garbage", "a", 10)

        def check(number, code, _, err):
            self.assertEqual(code, 0, f"message {number}: {err}")
            self.assertEqual(self.log(), wanted)
            run(server.connection(), self.repository, "garbage", "a", 10)

        with_cuts(self, 1 if IS_LONG else 20, check, lambda _: ("clean", 0))

    # A clean-up all the time

    def test_clean_up_beside_writers_and_readers_leaves_no_hole(self):
        end = time.monotonic() + (300 if IS_LONG else 2)
        counts = collections.Counter()
        problems = []

        def repeat(name, *arguments):
            while time.monotonic() < end and not problems:
                code, _, err = run(server.connection(), self.repository, *arguments)
                counts[name] += 1
                if code != 0:
                    problems.append((name, code, err))

        # The writers save the same contents again and again, on branches that come and go.
        works = [("writer", "churn", f"branch {number}", 20) for number in range(4)]
        works += [("reader", "read", 10), ("reader", "read", 10), ("cleaner", "clean", 1500 if IS_LONG else 500)]
        threads = [threading.Thread(target=repeat, args=work) for work in works]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(problems, [])
        self.assertEqual(run(server.connection(), self.repository, "read", 1)[0], 0)
        print(f"{self.repository}: {dict(counts)}", file=sys.stderr)
        self.assertGreater(counts["cleaner"], 1)


def with_cuts(test, stride, check, arguments):
    """Runs a command once for some of its messages, after which the connection is cut."""
    with Proxy(server) as proxy:
        proxy.cut_at(None)
        code, _, err = run(proxy.connection(), test.repository, *arguments(0))
        test.assertEqual(code, 0, err)
        messages = proxy.messages
        for number in range(1, messages + 1, stride):
            proxy.cut_at(number)
            check(number, *run(proxy.connection(), test.repository, *arguments(number)))
    print(f"{test.repository}: cuts in {messages} messages, every {stride}", file=sys.stderr)
    test.assertGreater(messages, 20)


class Standby(unittest.TestCase):
    """A primary that dies in the middle of saves, and a standby that takes over."""

    def check_round(self):
        with Server() as primary:
            primary.make_database()
            with Server(copy_of=primary) as standby:
                primary.sql("ALTER SYSTEM SET synchronous_standby_names = 'standby'", "postgres")
                primary.sql("SELECT pg_reload_conf()", "postgres")
                connection = (f"host={primary.folder},{standby.folder} user=postgres "
                              "dbname=talvcs target_session_attrs=read-write")
                editors = [Editor(connection, "shared", f"p{name}", EDITS) for name in range(4)]
                time.sleep(1.0)
                primary.crash()
                standby.run("pg_ctl", "promote", "-D", standby.data)
                for editor in editors:
                    editor.join()
                history = run(standby.connection(), "shared", "log")[1].split()
                self.assertEqual(sorted(history), sorted(
                    f"p{name}.{edit}" for name in range(4) for edit in range(EDITS)))
                for editor in editors:
                    self.assertLessEqual(set(editor.acknowledged), set(history))

    def wait_for_standby(self, primary):
        """Waits until a transaction on the primary waits for the standby."""
        waiting = "SELECT count(*) FROM pg_stat_activity WHERE wait_event = 'SyncRep'"
        for _ in range(600):
            if primary.sql(waiting, "postgres") != "0":
                return
            time.sleep(0.05)
        self.fail("no transaction waits for the standby")

    def test_edit_found_after_a_crash_is_acknowledged_when_the_standby_has_it(self):
        with Server() as primary:
            primary.make_database()
            with Server(copy_of=primary) as standby:
                primary.sql("ALTER SYSTEM SET synchronous_standby_names = 'standby'", "postgres")
                primary.sql("SELECT pg_reload_conf()", "postgres")
                self.assertEqual(run(primary.connection(), "found", "edit", "p", 0, 1)[0], 0)
                standby.crash()
                editor = start(primary.connection(), "found", "edit", "p", 1, 1)
                self.wait_for_standby(primary)
                primary.crash()
                primary.start()
                for _ in range(100):
                    if len(run(primary.connection(), "found", "log")[1].split()) == 2:
                        break
                    time.sleep(0.1)
                else:
                    self.fail("the server has lost the edit")
                self.wait_for_standby(primary)
                self.assertIsNone(editor.poll(), "it has acknowledged what no standby has")
                standby.start()
                self.assertEqual(editor.communicate(timeout=60)[0], "p.1\n")

    def test_acknowledged_edits_outlive_the_primary(self):
        for _ in range(5):
            self.check_round()


# Two servers take too long for every run.
if not IS_LONG:
    del Standby


if __name__ == "__main__":
    unittest.main()
