#!/usr/bin/env python3
"""Runs a program with a PostgreSQL server of its own.

Usage: with_server.py PROGRAM ARGUMENT...

TALVCS_POSTGRES in the program's environment is the connection to an empty database.
"""

import os
import subprocess
import sys

from postgres_server import Server


def main():
    with Server() as server:
        server.make_database()
        environment = dict(os.environ, TALVCS_POSTGRES=server.connection())
        return subprocess.run(sys.argv[1:], env=environment, check=False).returncode


if __name__ == "__main__":
    sys.exit(main())
