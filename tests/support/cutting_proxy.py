"""A proxy between a PostgreSQL client and its server, on Unix sockets."""

import os
import select
import shutil
import socket
import struct
import tempfile
import threading
import time

SOCKET = ".s.PGSQL.5432"


def connect(folder):
    """Connects to the server whose socket is in the folder."""
    to = socket.socket(socket.AF_UNIX)
    to.connect(os.path.join(folder, SOCKET))
    return to


class Proxy:
    """Passes messages on, can cut the connection after one of them, and can delay all.

    The messages of both directions are counted together. A cut ends both connections at once, so
    that what the server answers later is lost. It happens once; later connections work.
    """

    def __init__(self, server, delay=0.0):
        self.server = server
        self.delay = delay
        self.folder = tempfile.mkdtemp(prefix="talpx", dir="/tmp")
        self.lock = threading.Lock()
        self.messages = 0
        self.turns = 0  # how often the client began to send after the server
        self.cut_after = None
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(os.path.join(self.folder, SOCKET))
        os.chmod(self.folder, 0o755)
        os.chmod(os.path.join(self.folder, SOCKET), 0o777)
        self.listener.listen(64)

    def __enter__(self):
        threading.Thread(target=self.accept, daemon=True).start()
        return self

    def __exit__(self, *_):
        self.listener.close()
        shutil.rmtree(self.folder, ignore_errors=True)

    def connection(self, database="talvcs", user="postgres"):
        return f"host={self.folder} user={user} dbname={database}"

    def cut_at(self, message):
        """Counts from now on, and cuts after so many messages; never with none."""
        with self.lock:
            self.messages = 0
            self.turns = 0
            self.cut_after = message

    def accept(self):
        while True:
            try:
                client, _ = self.listener.accept()
            except OSError:
                return
            threading.Thread(target=self.serve, args=(client,), daemon=True).start()

    def serve(self, client):
        try:
            server = connect(self.server.folder)
        except OSError:
            client.close()
            return
        # Complete messages are passed on one by one. The first of a client has no type.
        pending = {client: b"", server: b""}
        is_first = True
        last = None
        try:
            while True:
                for source in select.select([client, server], [], [])[0]:
                    data = source.recv(1 << 16)
                    if not data:
                        return
                    target = server if source is client else client
                    if source is client and last is not client:
                        self.turns += 1
                    last = source
                    if self.delay:
                        time.sleep(self.delay / 2)
                    pending[source] += data
                    if self.delay and self.cut_after is None:
                        target.sendall(pending[source])
                        pending[source] = b""
                        continue
                    while True:
                        size = self.size_of(pending[source], source is client and is_first)
                        if size is None or len(pending[source]) < size:
                            break
                        is_first = is_first and source is not client
                        target.sendall(pending[source][:size])
                        pending[source] = pending[source][size:]
                        if self.is_cut():
                            return
        except OSError:
            return
        finally:
            client.close()
            server.close()

    @staticmethod
    def size_of(data, is_first):
        """Returns the size of the message at the beginning, or none if that isn't there yet."""
        skipped = 0 if is_first else 1
        if len(data) < skipped + 4:
            return None
        return skipped + struct.unpack_from("!I", data, skipped)[0]

    def is_cut(self):
        with self.lock:
            self.messages += 1
            return self.cut_after is not None and self.messages == self.cut_after
