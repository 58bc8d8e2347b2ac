"""The real stack: a server of its own on a free port, driven over HTTP."""
import contextlib
import json
import os
import pathlib
import re
import select
import signal
import subprocess
import tempfile
import time
import urllib.parse

import clients
from peers import BUILD
from volumes import undisturbed

API = "/webapi/TAVO.Fennox.CopyMove?version=3&method="


RUNS = b'"finished":false'


class Refused(RuntimeError):
    """The server did not do what it was asked for."""


def data_of(body):
    answer = json.loads(body)
    if not answer["success"]:
        raise Refused(str(answer["error"]))
    return answer.get("data")


def newest_worker(server):
    """Process id of the worker that a server has started last; 0 when none is left.

    The task's record says that, too. But who asks for one of ten thousand sources keeps a
    processor busy while the worker begins.
    """
    newest = 0
    for name in os.listdir("/proc"):
        if not name.isdigit() or int(name) <= max(server, newest):
            continue
        with contextlib.suppress(FileNotFoundError, ProcessLookupError):
            stat = pathlib.Path(f"/proc/{name}/stat").read_text("ascii", "replace")
            state, _, _, session = stat.rpartition(")")[2].split()[:4]
            if "(fennoxd)" in stat and session == name and state != "Z":
                newest = int(name)
    return newest


class WorkerEnd:
    """Pauses that the end of a task's worker cuts short, so that few questions see it in time."""

    def __init__(self, pid):
        self.descriptor = None
        if pid:
            with contextlib.suppress(ProcessLookupError):
                self.descriptor = os.pidfd_open(pid)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.descriptor is not None:
            os.close(self.descriptor)

    def wait(self, seconds):
        if self.descriptor is None:
            time.sleep(0.0005)  # only the record's last words are awaited
        else:
            # Each question takes processor time from the task that is measured.
            select.select([self.descriptor], [], [], max(seconds, 0.01))


class Client:
    """One connection that is kept open, so that only the call itself is measured."""

    def __init__(self, server, port, token):
        """`server` is the process id of the one that listens at `port`."""
        self.server = server
        self.port = port
        self.authorization = f"Bearer {token}"
        self.connection = clients.Connection(port)
        self.latest = time.monotonic()

    def ask(self, request):
        """The body of the answer."""
        if time.monotonic() - self.latest > 1:
            self.connection.close()  # the server may be about to; the next request opens it anew
        try:
            return self.connection.ask(request)[1]
        except RuntimeError as reason:
            raise Refused(str(reason)) from reason
        finally:
            self.latest = time.monotonic()

    def post(self, method, **params):
        """The bytes of a call of the plug-in."""
        return clients.post(self.port, API + method, json.dumps(params), self.authorization)

    def call(self, method, **params):
        return data_of(self.ask(self.post(method, **params)))

    def host(self, name, **query):
        path = f"/host/{name}?" + urllib.parse.urlencode(query)
        return data_of(self.ask(clients.get(self.port, path, self.authorization)))

    def start(self, sources, dest, **params):
        return self.call("start", path=sources, dest_folder_path=[dest], **params)["taskid"]

    def wait(self, task, watch=None):
        """Asks until the answer that says finished; raises unless the task did everything.

        `watch` is called with the worker's process id, first at once, then between questions.
        """
        begin = time.monotonic()
        request = self.post("status", taskid=task)
        worker = newest_worker(self.server)
        with WorkerEnd(worker) as end:
            if watch:
                watch(worker)
            end.wait(0)
            while RUNS in (body := self.ask(request)):
                if watch:
                    watch(worker)
                end.wait(min((time.monotonic() - begin) / 10, 0.02 if watch else 0.1))
        status = data_of(body)
        if status["progress"] != 1 or status.get("errors"):
            raise Refused(f"the task failed: {str(status)[:500]}")
        return status

    def run(self, sources, dest, watch=None, **params):
        """Seconds from the start request to the answer that says finished; see `wait`."""
        request = self.post("start", path=sources, dest_folder_path=[dest], **params)
        begin = time.perf_counter()
        self.wait(data_of(self.ask(request))["taskid"], watch)
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
        client = Client(process.pid, int(found[1]), file.read().strip())
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
