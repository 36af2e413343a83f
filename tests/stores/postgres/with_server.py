#!/usr/bin/env python3
"""Runs a program with a PostgreSQL server of its own.

Usage: with_server.py PROGRAM ARGUMENT...

In the program's environment, TALVCS_POSTGRES is the connection to an empty database.
TALVCS_POSTGRES_TLS is one by TCP and TLS that lacks the authority, and TALVCS_POSTGRES_CERTIFICATES
a folder with the certificate of the server, server.crt, and that of nobody, other.crt.
"""

import os
import shutil
import subprocess
import sys
import tempfile

from postgres_server import Server


def make_certificate(folder, name):
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
         "-nodes", "-days", "2", "-subj", "/CN=localhost", "-addext",
         "subjectAltName=DNS:localhost", "-keyout", os.path.join(folder, f"{name}.key"), "-out",
         os.path.join(folder, f"{name}.crt")], check=True, stderr=subprocess.DEVNULL)


def loopback():
    """Returns an address of this machine alone, which no other process takes."""
    number = os.getpid()
    return f"127.{64 + (number >> 16 & 63)}.{number >> 8 & 255}.{number & 255}"


def main():
    with tempfile.TemporaryDirectory() as folder:
        for name in ("server", "other"):
            make_certificate(folder, name)
        server = Server({"listen_addresses": loopback(), "ssl": "on",
                         "ssl_cert_file": os.path.join(folder, "server.crt"),
                         "ssl_key_file": os.path.join(folder, "server.key")})
        os.chmod(folder, 0o755)
        if os.geteuid() == 0:
            shutil.chown(os.path.join(folder, "server.key"), server.user)
        with server:
            server.make_database()
            environment = dict(
                os.environ, TALVCS_POSTGRES=server.connection(),
                TALVCS_POSTGRES_TLS=f"hostaddr={loopback()} host=localhost user=postgres "
                "dbname=talvcs sslmode=verify-full",
                TALVCS_POSTGRES_CERTIFICATES=folder)
            return subprocess.run(sys.argv[1:], env=environment, check=False).returncode


if __name__ == "__main__":
    sys.exit(main())
