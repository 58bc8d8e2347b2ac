"""A throw-away server and a client for it."""
import http.client
import json
import os
import pathlib
import re
import signal
import subprocess
import time
import urllib.parse

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("FENNOX_BUILD", ROOT / "build" / "dev"))
API = "TAVO.Fennox.CopyMove"


class Answer(dict):
    """An envelope, with the HTTP status and headers beside it."""

    def __init__(self, status, headers, body):
        super().__init__(json.loads(body) if body and body[:1] == b"{" else {})
        self.status, self.headers, self.body = status, headers, body

    @property
    def data(self):
        assert self.get("success") is True, self
        return self.get("data")

    @property
    def code(self):
        assert self.get("success") is False, self
        return self["error"]["code"]

    @property
    def detail(self):
        return self["error"].get("detail")


class Client:
    def __init__(self, port, token):
        self.port, self.token = port, token

    def request(self, method, path, body=None, headers=None):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=90)
        headers = dict(headers or {})
        if self.token:
            headers.setdefault("Authorization", "Bearer " + self.token)
        try:
            connection.request(method, path, body, headers)
            response = connection.getresponse()
            return Answer(response.status, response.headers, response.read())
        finally:
            connection.close()

    def call(self, method, version=3, **params):
        return self.request("POST", f"/webapi/{API}?version={version}&method={method}",
                            json.dumps(params), {"Content-Type": "application/json"})

    def host(self, name, **query):
        return self.request("GET", f"/host/{name}?" + urllib.parse.urlencode(query))

    def start(self, sources, dest, **params):
        version = params.pop("version", 3)
        return self.call("start", version, path=sources, dest_folder_path=dest, **params)

    def status(self, task, version=3):
        return self.call("status", version, taskid=task)

    def run(self, sources, dest, **params):
        """Starts a task and returns the "status" data that reports its end."""
        return self.wait(self.start(sources, dest, **params).data["taskid"])

    def wait(self, task, seconds=120):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            data = self.status(task).data
            if data["finished"]:
                return data
            time.sleep(0.01)
        raise AssertionError("the task did not finish")

    def record(self, task):
        return self.host("task", id=task).data

    def wait_record(self, task, wanted, seconds=60):
        """The raw record once `wanted` holds for it; a finished one stays in place."""
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            record = self.record(task)
            if wanted(record):
                return record
            time.sleep(0.01)
        raise AssertionError(f"the record never got there: {record}")


class Server:
    """fennoxd on a state folder of its own. `config` is TOML text without [server]."""

    def __init__(self, state, shares=None, config=None, auth=""):
        self.state, self.shares, self.config, self.auth = state, shares or {}, config, auth
        self.listen = "127.0.0.1:0"
        self.log = state.parent / "log"
        self.process = None

    def arguments(self):
        arguments = [str(BUILD / "fennoxd"), "--log-stderr"]
        if self.config is None:
            for name, path in self.shares.items():
                arguments += ["--share", f"{name}={path}"]
            return arguments + ["--state", str(self.state), "--listen", self.listen]
        file = self.state.parent / "fennox.toml"
        shares = "".join(f'[[share]]\nname = "{n}"\npath = "{p}"\nread = ["*"]\nwrite = ["*"]\n'
                         for n, p in self.shares.items())
        file.write_text(f'[server]\nlisten = "{self.listen}"\nstate = "{self.state}"\n{self.auth}\n'
                        + shares + self.config)
        return arguments + ["--config", str(file)]

    def start(self):
        with open(self.log, "ab") as log:
            self.process = subprocess.Popen(self.arguments(), stdout=subprocess.PIPE, stderr=log,
                                            text=True)
        line = self.process.stdout.readline()
        found = re.search(r"https?://127\.0\.0\.1:(\d+)/\n", line)
        assert found, f"no address in {line!r}; log: {self.log.read_text()}"
        token = self.state / "token"
        self.port, self.token = int(found[1]), token.read_text().strip() if token.exists() else None
        self.client = Client(self.port, self.token)
        return self

    def stop(self):
        if self.process and self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
            assert self.process.wait(20) in (0, -signal.SIGTERM), self.log.read_text()
        if self.process:
            self.process.stdout.close()
        self.process = None

    def log_text(self):
        return self.log.read_text(errors="replace")

    def wait_log(self, text, seconds=10):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            if text in self.log_text():
                return True
            time.sleep(0.02)
        return False


def children(pid):
    return [int(child) for child in pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()]


def environment(server, **more):
    """What programs need to reach the server as its user."""
    return dict(os.environ, FENNOX_URL=f"http://127.0.0.1:{server.port}", FENNOX_TOKEN=server.token or "", **more)


def fennox(server, *arguments, **options):
    return subprocess.run([BUILD / "fennox", *arguments], env=options.pop("env", None) or environment(server),
                          text=True, capture_output=True, timeout=120, **options)


def command_line_alone(server, home):
    """fennox as somebody runs it who has not logged in, with settings of its own in `home`."""
    alone = environment(server, XDG_CONFIG_HOME=str(home))
    del alone["FENNOX_TOKEN"]
    return lambda *arguments, **options: fennox(server, *arguments, env=alone, **options)
