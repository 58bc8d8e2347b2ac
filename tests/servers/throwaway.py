"""What the throw-away servers have in common: a free port, a folder for their own
files, a process that is ended with its sessions, and a command line."""
import argparse
import contextlib
import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time


class NotHere(RuntimeError):
    """The server cannot run on this machine."""


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def run(*command):
    subprocess.run(command, check=True, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)


def make_certificate(folder):
    """server.pem and server.key for 127.0.0.1, known to nobody else."""
    run("/usr/bin/openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
        "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2", "-subj", "/CN=127.0.0.1",
        "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", folder / "server.key",
        "-out", folder / "server.pem")


def descendants(pid):
    """Pids of the processes below `pid`."""
    children = {}
    for entry in os.listdir("/proc"):
        if entry.isdigit():
            try:
                parent = int(pathlib.Path(f"/proc/{entry}/stat").read_text().rpartition(")")[2].split()[1])
            except (OSError, IndexError):
                continue  # it has ended
            children.setdefault(parent, []).append(int(entry))
    found, waiting = [], [pid]
    while waiting:
        below = children.get(waiting.pop(), [])
        found += below
        waiting += below
    return found


def kill(pid, number=signal.SIGKILL):
    try:
        os.kill(pid, number)
    except ProcessLookupError:
        pass


class ThrowAwayServer:
    """Serves `root` on a loopback port from start() to stop(), or inside a `with`."""

    protocol = ""
    program = ""      # what must be installed
    greeting = b""    # how a server that takes connections begins to talk; may be empty
    preforks = False  # its processes are there before any connection, and stay

    def __init__(self, root):
        self.root = pathlib.Path(root).resolve()
        self.own = None        # configuration, keys
        self.process = None
        self.port = 0

    # For the server kinds: writes the configuration and gives the command.
    def command(self):
        raise NotImplementedError

    # Runs once in `self.own`, before the first command.
    def prepare(self):
        pass

    # Keys of the [[remote]] that reaches it.
    def settings(self):
        raise NotImplementedError

    def start(self):
        """Starts it; again on the same port after a stop, as a server that came back."""
        if not os.access(self.program, os.X_OK):
            raise NotHere(f"{self.program} is not installed")
        if self.own is None:
            self.own = pathlib.Path(tempfile.mkdtemp(prefix="fennox-server-"))
            self.prepare()
        for _ in range(20):
            self.port = self.port or free_port()
            self.process = subprocess.Popen(self.command(), stdin=subprocess.DEVNULL,
                                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            if self._greets():
                return self
            self.stop()
            self.port = 0
        raise NotHere(f"{self.program} does not come up")

    def _greets(self):
        end = time.monotonic() + 20
        while time.monotonic() < end and self.process.poll() is None:
            try:
                with socket.create_connection(("127.0.0.1", self.port), 5) as probe:
                    if probe.recv(len(self.greeting)) == self.greeting:
                        break
            except OSError:
                pass
            time.sleep(0.02)
        else:
            return False
        # The probe counts as a connection until its session has gone.
        while not self.preforks and self.sessions() and time.monotonic() < end:
            time.sleep(0.01)
        return self.process.poll() is None

    def sessions(self):
        return descendants(self.process.pid) if self.process else []

    def end_sessions(self):
        """Breaks the connections that stand; the server goes on."""
        for pid in self.sessions():
            kill(pid)

    @contextlib.contextmanager
    def hanging(self):
        """Inside, it takes connections and answers nothing."""
        pids = [self.process.pid, *self.sessions()]
        for pid in pids:
            kill(pid, signal.SIGSTOP)
        try:
            yield
        finally:
            for pid in pids:
                kill(pid, signal.SIGCONT)

    @contextlib.contextmanager
    def away(self):
        """Inside, it does not run."""
        self.stop()
        try:
            yield
        finally:
            self.start()

    def stop(self):
        """Ends it, mid-transfer or not, with no good-bye."""
        if self.process is None:
            return
        if self.process.poll() is None:
            kill(self.process.pid, signal.SIGSTOP)  # no new session while they are ended
            self.end_sessions()
            self.process.kill()
        self.process.wait()
        self.process = None

    def close(self):
        self.stop()
        if self.own:
            shutil.rmtree(self.own, ignore_errors=True)
            self.own = None

    def __enter__(self):
        return self.start()

    def __exit__(self, *_):
        self.close()

    def remote(self, name, mount, path=None, **more):
        """The [[remote]] table, as text, of a mount of the server's folder."""
        values = {"name": name, "protocol": self.protocol, "host": "127.0.0.1", "port": self.port,
                  **self.settings(), "path": str(path or self.root), "mount": str(mount), **more}
        # JSON's texts, numbers and lists are TOML's too.
        return "[[remote]]\n" + "".join(f"{k} = {json.dumps(str(v) if isinstance(v, pathlib.Path) else v)}\n"
                                        for k, v in values.items())


def arguments(description):
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("--root", required=True, help="folder to serve")
    return parser


def serve(server):
    """Runs it until standard input closes or a SIGTERM comes. One line of JSON on
    standard output says how to reach it."""
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    try:
        with server:
            answer = {"protocol": server.protocol, "host": "127.0.0.1", "port": server.port,
                      "pid": server.process.pid, "root": server.root, **server.settings()}
            print(json.dumps(answer, default=str), flush=True)
            sys.stdin.buffer.read()
    except NotHere as reason:
        sys.exit(str(reason))
