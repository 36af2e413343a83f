"""A PostgreSQL server of a test's own, in a temporary folder and on a Unix socket only."""

import ctypes
import glob
import os
import pwd
import shutil
import signal
import subprocess
import tempfile
import time

PR_SET_PDEATHSIG = 1
SETTINGS = {
    "listen_addresses": "''",
    "fsync": "off",
    "max_connections": "60",
    "shared_buffers": "'64MB'",
    "log_min_messages": "fatal",
    "autovacuum_naptime": "5",
}


def program(name):
    """Returns the path of a program of the newest server that is installed."""
    found = sorted(glob.glob(f"/usr/lib/postgresql/*/bin/{name}"),
                   key=lambda path: int(path.split("/")[4]))
    path = found[-1] if found else shutil.which(name)
    if path is None:
        raise FileNotFoundError(f"{name} is missing: install the Debian package postgresql")
    return path


def end_with_parent():
    """Lets the system end this process when the one that started it ends, however it does."""
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGQUIT)


class Server:
    """A server that runs inside of a `with` statement.

    It isn't run by the superuser, as PostgreSQL refuses that: the user postgres takes its place.
    """

    def __init__(self, settings=None, copy_of=None):
        self.user = "postgres" if os.geteuid() == 0 else pwd.getpwuid(os.geteuid()).pw_name
        # Short, as the path of a socket must be.
        self.folder = tempfile.mkdtemp(prefix="talpg", dir="/tmp")
        self.data = os.path.join(self.folder, "data")
        self.settings = SETTINGS | (settings or {})
        self.process = None
        self.copy_of = copy_of

    def __enter__(self):
        if os.geteuid() == 0:
            shutil.chown(self.folder, self.user)
        try:
            if self.copy_of is None:
                self.run("initdb", "-D", self.data, "-A", "trust", "-U", "postgres", "-N",
                         "--no-instructions", "--locale=C.UTF-8", "-E", "UTF8")
            else:
                self.run("pg_basebackup", "-D", self.data, "-R", "-X", "stream", "-c", "fast", "-d",
                         self.copy_of.connection("postgres") + " application_name=standby")
            self.start()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        if self.process is not None:
            self.stop(signal.SIGQUIT)
        shutil.rmtree(self.folder, ignore_errors=True)

    def as_user(self):
        return {"user": self.user, "group": self.user, "extra_groups": []} \
            if os.geteuid() == 0 else {}

    def run(self, name, *arguments):
        result = subprocess.run([program(name), *arguments], cwd=self.folder, text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False,
                                **self.as_user())
        if result.returncode != 0:
            raise RuntimeError(f"{name} failed:\n{result.stdout}")

    def start(self):
        """Starts the server and waits until it answers."""
        arguments = [program("postgres"), "-D", self.data, "-k", self.folder]
        for name, value in self.settings.items():
            arguments += ["-c", f"{name}={value.strip(chr(39))}"]
        with open(os.path.join(self.folder, "log"), "ab") as log:
            self.process = subprocess.Popen(arguments, cwd=self.folder, stdin=subprocess.DEVNULL,
                                            stdout=log, stderr=log, preexec_fn=end_with_parent,
                                            **self.as_user())
        for _ in range(600):
            ready = subprocess.run([program("pg_isready"), "-q", "-h", self.folder], check=False)
            if ready.returncode == 0:
                return
            if self.process.poll() is not None:
                break
            time.sleep(0.05)
        with open(os.path.join(self.folder, "log"), encoding="utf-8", errors="replace") as log:
            raise RuntimeError("the server does not start:\n" + log.read()[-3000:])

    def stop(self, how=signal.SIGINT):
        """Ends the server: at once, or with SIGKILL as a crash does."""
        self.process.send_signal(how)
        self.process.wait()
        self.process = None

    def crash(self):
        """Kills the server and all of its processes."""
        children = subprocess.run(["ps", "-o", "pid=", "--ppid", str(self.process.pid)], text=True,
                                  stdout=subprocess.PIPE, check=False).stdout.split()
        self.stop(signal.SIGKILL)
        for child in children:
            try:
                os.kill(int(child), signal.SIGKILL)
            except ProcessLookupError:
                pass

    def connection(self, database="talvcs", user="postgres"):
        return f"host={self.folder} user={user} dbname={database}"

    def make_database(self, name="talvcs"):
        self.sql(f"CREATE DATABASE {name}", "postgres")

    def sql(self, text, database="talvcs", user="postgres"):
        """Runs statements and returns what they print."""
        result = subprocess.run(
            [program("psql"), "-X", "-q", "-A", "-t", "-v", "ON_ERROR_STOP=1",
             self.connection(database, user)], input=text, text=True, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, check=False)
        if result.returncode != 0:
            raise RuntimeError(result.stdout)
        return result.stdout.strip()
