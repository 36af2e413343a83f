#!/usr/bin/env python3
"""Measures the store on a PostgreSQL server of its own; prints the figures of docs/sharing.md.

Usage: postgres.py BUILD [--objects COUNT] [--rounds COUNT] [--filled FILES OBJECTS]
                   [--pushes COUNT]

BUILD is a build folder. --objects is the number of those that are saved and read, in so many rounds.
--filled is the size of the repository that is opened over a link with a delay; 0 leaves it out.
"""

import argparse
import pathlib
import resource
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent / "tests" / "support"))

from cutting_proxy import Proxy  # noqa: E402
from postgres_server import Server  # noqa: E402

WRITERS = 8
EDITS = 100
DELAY = 0.02


def commits_a_second(worker, connection, branches):
    """Lets eight processes save commits on so many branches."""
    name = f"{branches} branches"
    subprocess.run([worker, connection, name, "log"], check=True)
    start = time.monotonic()
    editors = [subprocess.Popen([worker, connection, name, "edit", f"p{number}", "0", str(EDITS),
                                 f"branch {number % branches}"], stdout=subprocess.DEVNULL)
               for number in range(WRITERS)]
    for editor in editors:
        if editor.wait() != 0:
            raise RuntimeError("a writer failed")
    return WRITERS * EDITS / (time.monotonic() - start)


def git(folder, *arguments, **options):
    subprocess.run(["git", "-C", str(folder), *arguments], check=True, **options)


def processor_seconds():
    """Returns the time of the processors in programs that have ended."""
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def push(histories, connection, rounds):
    """Pushes one history to the server, and by git to a bare repository, in turns."""
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        subprocess.run([histories, "local", folder / "store"], check=True)
        subprocess.run([histories, "import", folder / "stream"], check=True)
        git(folder, "init", "-q", "local")
        with open(folder / "stream", "rb") as stream:
            git(folder / "local", "fast-import", "--quiet", stdin=stream)
        for number in range(rounds):
            subprocess.run([histories, "push", connection, f"pushed {number}", folder / "store"],
                           check=True)
            git(folder, "init", "-q", "--bare", f"bare {number}")
            start = time.monotonic()
            before = processor_seconds()
            git(folder / "local", "push", "-q", folder / f"bare {number}", "master")
            print(f"git push {time.monotonic() - start:.2f} s, "
                  f"processors: {processor_seconds() - before:.2f} s", flush=True)


def round_trips(proxy):
    """Returns how many there were, without the farewell of the client, to which nobody answers."""
    time.sleep(10 * DELAY)
    return proxy.turns - 1


def far(server, program, *arguments):
    """Runs a program over a link with a delay; returns the number of its round trips."""
    with Proxy(server, delay=DELAY) as proxy:
        proxy.cut_at(None)
        command = [program, arguments[0], proxy.connection(), *arguments[1:]]
        subprocess.run(command, check=True)
        return round_trips(proxy)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--objects", type=int, default=26000)
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--filled", type=int, nargs=2, default=[100000, 1000000])
    parser.add_argument("--pushes", type=int, default=1)
    options = parser.parse_args()
    bench = options.build / "bench" / "talvcs_postgres_bench"
    histories = options.build / "bench" / "talvcs_postgres_histories"
    worker = options.build / "tests" / "stores" / "postgres" / "talvcs_postgres_worker"
    with Server({"fsync": "on", "shared_buffers": "512MB", "max_wal_size": "4GB"}) as server:
        server.make_database()
        connection = server.connection()
        subprocess.run([bench, connection, str(options.objects), str(options.rounds)], check=True)
        print("bytes of the tables, with their indexes:", server.sql(
            "SELECT sum(pg_total_relation_size(oid)) FROM pg_class WHERE relkind = 'r' AND "
            "relname ~ '^objects_'"))
        for branches in (1, WRITERS):
            rate = commits_a_second(worker, connection, branches)
            print(f"{WRITERS} writers on {branches} branches: {rate:.0f} commits a second")
        push(histories, connection, options.pushes)
        if options.filled[0]:
            subprocess.run([histories, "fill", connection, *map(str, options.filled)], check=True)
            server.sql("ANALYZE")
            alone = far(server, histories, "connect")
            turns = far(server, histories, "open")
            print(f"round trips: {alone} to connect, {turns - alone} to open and read a file")
        subprocess.run([worker, connection, "far", "log"], check=True)  # makes the repository
        with Proxy(server, delay=DELAY) as proxy:
            proxy.cut_at(None)
            start = time.monotonic()
            subprocess.run([worker, proxy.connection(), "far", "edit", "far", "0", "1"], check=True,
                           stdout=subprocess.DEVNULL)
            seconds = time.monotonic() - start
            print(f"one commit over 20 ms, with the connection: {seconds:.2f} s, "
                  f"{round_trips(proxy)} round trips")


if __name__ == "__main__":
    main()
