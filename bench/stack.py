"""The real stack: a server of its own on a free port, driven over HTTP."""
import contextlib
import http.client
import json
import os
import pathlib
import re
import signal
import subprocess
import tempfile
import time
import urllib.parse

from peers import BUILD
from volumes import undisturbed

API = "/webapi/TAVO.Fennox.CopyMove?version=3&method="


class Refused(RuntimeError):
    """The server did not do what it was asked for."""


class Client:
    """One connection that is kept open, so that only the call itself is measured."""

    def __init__(self, port, token):
        self.port = port
        self.connection = http.client.HTTPConnection("127.0.0.1", port, timeout=120)
        self.latest = time.monotonic()
        self.headers = {"Authorization": f"Bearer {token}", "Content-Type": "application/json"}

    def request(self, verb, path, body=None):
        if time.monotonic() - self.latest > 1:
            self.connection.close()  # the server may be about to; the next request opens it anew
        self.connection.request(verb, path, body, self.headers)
        response = self.connection.getresponse()
        text = response.read()
        self.latest = time.monotonic()
        if response.status != 200:
            raise Refused(f"HTTP {response.status} for {path}")
        answer = json.loads(text)
        if not answer["success"]:
            raise Refused(f"{path}: {answer['error']}")
        return answer.get("data")

    def call(self, method, **params):
        return self.request("POST", API + method, json.dumps(params))

    def host(self, name, **query):
        return self.request("GET", f"/host/{name}?" + urllib.parse.urlencode(query))

    def start(self, sources, dest, **params):
        return self.call("start", path=sources, dest_folder_path=[dest], **params)["taskid"]

    def wait(self, task, pause=0.001, watch=None):
        """Polls until the answer that says finished; raises unless the task did everything."""
        while True:
            status = self.call("status", taskid=task)
            if status["finished"]:
                break
            if watch:
                watch()
            time.sleep(pause)
            # The questions of a long task must not take the processor from it.
            pause = min(pause * 1.2, 0.005)
        if status["progress"] != 1 or status.get("errors"):
            raise Refused(f"the task failed: {str(status)[:500]}")
        return status

    def run(self, sources, dest, started=None, watch=None, pause=0.001, **params):
        """Seconds from the start request to the answer that says finished.

        `started` is called with the task's id, `watch` between the questions.
        """
        begin = time.perf_counter()
        task = self.start(sources, dest, **params)
        if started:
            started(task)
        self.wait(task, pause, watch)
        return time.perf_counter() - begin


@contextlib.contextmanager
def server(shares, extra=""):
    """A running server with the folders {name: path} as shares; yields its client."""
    if not (BUILD / "fennoxd").exists():
        raise SystemExit(f"{BUILD}/fennoxd is missing: run scripts/build, or set FENNOX_BUILD")
    with tempfile.TemporaryDirectory(prefix="fennox-bench-state-") as state:
        config = pathlib.Path(state) / "fennox.toml"
        config.write_text(
            f'[server]\nlisten = "127.0.0.1:0"\nstate = "{state}/state"\n'
            # Nobody asks as often as a benchmark.
            "[limits]\nrequests_per_second = 100000\n"
            + "".join(f'[[share]]\nname = "{name}"\npath = "{path}"\nread = ["*"]\n'
                      f'write = ["*"]\n' for name, path in shares.items())
            + extra, encoding="utf-8")
        os.mkdir(f"{state}/state")
        log = open(f"{state}/log", "w+b")
        # A session of its own: Ctrl-C is ours, the server is ended in order.
        process = subprocess.Popen([BUILD / "fennoxd", "--config", config], text=True,
                                   stdout=subprocess.PIPE, stderr=log, start_new_session=True)
        try:
            yield connect(process, log, f"{state}/state/token")
        finally:
            with undisturbed():
                end(process)
                log.close()


def connect(process, log, token_file):
    line = process.stdout.readline()
    found = re.search(r"http://127\.0\.0\.1:(\d+)/", line)
    if not found:
        log.seek(0)
        raise Refused(f"the server did not start: {log.read().decode(errors='replace')[-500:]}")
    with open(token_file, encoding="utf-8") as file:
        client = Client(int(found[1]), file.read().strip())
    client.host("whoami")  # the first request finds everything loaded
    return client


def end(process):
    process.send_signal(signal.SIGTERM)
    try:
        process.wait(20)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()
    process.stdout.close()
