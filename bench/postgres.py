#!/usr/bin/env python3
"""Measures the store on a PostgreSQL server of its own; prints the figures of docs/sharing.md.

Usage: postgres.py BENCH WORKER [COUNT]

BENCH and WORKER are talvcs_postgres_bench and talvcs_postgres_worker. COUNT is a number of objects.
"""

import pathlib
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent / "tests" / "support"))

from cutting_proxy import Proxy  # noqa: E402
from postgres_server import Server  # noqa: E402

WRITERS = 8
EDITS = 100


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


def main():
    bench, worker = sys.argv[1:3]
    count = sys.argv[3] if len(sys.argv) > 3 else "26000"
    with Server({"fsync": "on", "shared_buffers": "512MB", "max_wal_size": "4GB"}) as server:
        server.make_database()
        connection = server.connection()
        subprocess.run([bench, connection, count], check=True)
        print("bytes of the tables, with their indexes:", server.sql(
            "SELECT sum(pg_total_relation_size(oid)) FROM pg_class WHERE relkind = 'r' AND "
            "relname ~ '^objects_'"))
        for branches in (1, WRITERS):
            rate = commits_a_second(worker, connection, branches)
            print(f"{WRITERS} writers on {branches} branches: {rate:.0f} commits a second")
        with Proxy(server, delay=0.02) as proxy:
            proxy.cut_at(None)
            start = time.monotonic()
            subprocess.run([worker, proxy.connection(), "far", "edit", "far", "0", "1"], check=True,
                           stdout=subprocess.DEVNULL)
            seconds = time.monotonic() - start
            print(f"one commit over 20 ms, with the connection: {seconds:.2f} s, "
                  f"{proxy.turns} round trips")


if __name__ == "__main__":
    main()
