"""A headless Chromium, driven by chromedriver with the standard library alone."""

import base64
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import tempfile
import urllib.request

FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync",
         "--disable-dev-shm-usage", "--hide-scrollbars"]


class Browser:
    """Use it in a `with` statement: it ends the browser and removes its files."""

    def __init__(self, width=1180, height=780):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="tal-browser-"))
        self.log = self.folder / "log"
        with self.log.open("wb") as log:
            self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=log, stderr=log,
                                           cwd=self.folder, start_new_session=True)
        try:
            self.address = f"http://127.0.0.1:{self.find_port()}"
            arguments = [*FLAGS, f"--user-data-dir={self.folder / 'user'}",
                         f"--window-size={width},{height}"]
            wanted = {"goog:chromeOptions": {"args": arguments}, "goog:loggingPrefs": {"browser": "ALL"}}
            made = self.call("POST", "/session", {"capabilities": {"alwaysMatch": wanted}})
            self.address += "/session/" + made["sessionId"]
        except BaseException:
            self.end()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *failure):
        self.end()

    def end(self):
        if self.driver.poll() is None:
            try:
                self.call("DELETE", "")
            except OSError:
                pass
            os.killpg(self.driver.pid, signal.SIGTERM)
            self.driver.wait()
        shutil.rmtree(self.folder, ignore_errors=True)

    def find_port(self):
        """Waits for the line with which chromedriver says that it has started."""
        while self.driver.poll() is None:
            found = re.search(rb"started successfully on port (\d+)", self.log.read_bytes())
            if found:
                return int(found.group(1))
        raise RuntimeError(self.log.read_text("utf-8", "replace"))

    def call(self, method, path, content=None):
        data = None if content is None else json.dumps(content).encode()
        request = urllib.request.Request(self.address + path, data, method=method,
                                         headers={"Content-Type": "application/json"})
        opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        with opener.open(request, timeout=60) as answer:
            return json.load(answer)["value"]

    def open(self, path):
        self.call("POST", "/url", {"url": pathlib.Path(path).absolute().as_uri()})

    def run(self, script, *arguments):
        """Runs a script as the body of a function and returns its result."""
        return self.call("POST", "/execute/sync", {"script": script, "args": list(arguments)})

    def command(self, name, **parameters):
        return self.call("POST", "/goog/cdp/execute", {"cmd": name, "params": parameters})

    def use_colours(self, scheme):
        """Makes the page see the user's wish for "light" or "dark" colours."""
        self.command("Emulation.setEmulatedMedia",
                     features=[{"name": "prefers-color-scheme", "value": scheme}])

    def use_scripts(self, enabled):
        self.command("Emulation.setScriptExecutionDisabled", value=not enabled)

    def resize(self, width, height):
        self.call("POST", "/window/rect", {"width": width, "height": height})

    def messages(self):
        """Returns what the browser complained about since the last call."""
        return [entry["message"] for entry in self.call("POST", "/se/log", {"type": "browser"})]

    def screenshot(self, path):
        pathlib.Path(path).write_bytes(base64.b64decode(self.call("GET", "/screenshot")))
