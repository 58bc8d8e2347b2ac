"""One real server of each kind, and a fennoxd that has all of them as remote mounts.

Where the tests ask for no real mount, a server's own folder stands for it: what the module
does through the mount and what it streams end up in the same place, and bytes are compared
there. Each folder is a file system of its own where the user may mount one; else moves
between them are renames."""
import os
import pathlib
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path += [str(HERE.parent / "e2e"), str(HERE.parent / "servers")]

from dropbox import DropboxServer  # noqa: E402
from ftp import FtpServer  # noqa: E402
from server import Server  # noqa: E402
from sftp import SftpServer  # noqa: E402
from throwaway import NotHere  # noqa: E402
from webdav import WebdavServer  # noqa: E402

MAKERS = {
    "sftp": SftpServer,
    "ftp": FtpServer,
    "ftps": lambda root: FtpServer(root, tls=True),
    "webdav": WebdavServer,
    "dropbox": DropboxServer,
}
KINDS = ["local", *MAKERS]
MOUNTABLE = [kind for kind in MAKERS if kind != "dropbox"]  # by the server itself
REMOTE = list(MAKERS)
NO_PERMISSION, NO_SPACE, UNREACHABLE, REMOTE_IO = 407, 463, 2109, 2114


def run(*command):
    return subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0


class Stage:
    """Folders and servers; open() starts a fennoxd on them."""

    def __init__(self, place, kinds=KINDS):
        self.place, self.servers, self.missing = place, {}, {}
        self.open_servers, self.mounted = [], []
        for kind in kinds:
            self.folder(kind).mkdir()
            self.own_volume(kind)
            if kind in MAKERS:
                try:
                    self.servers[kind] = MAKERS[kind](self.folder(kind)).start()
                except NotHere as reason:
                    self.missing[kind] = str(reason)

    def own_volume(self, kind):
        if run("mount", "-t", "tmpfs", "-o", "mode=755", "none", self.folder(kind)):
            self.mounted.append(self.folder(kind))

    def folder(self, kind):
        return self.place / kind

    def uri(self, kind, path):
        return f"/local/{path}" if kind == "local" else f"{kind}://{kind}/{path}"

    def remote(self, kind, name=None, **more):
        """The [[remote]] table of one kind; `more` wins over what reaches the server."""
        more.setdefault("connect_timeout", 2)  # also how long a lost server is tried again
        return self.servers[kind].remote(name or kind, more.pop("mount", self.folder(kind)), **more)

    def open(self, name, config="", remotes=None):
        """A running fennoxd with a state folder of its own."""
        own = self.place / name
        (own / "state").mkdir(parents=True)
        tables = remotes if remotes is not None else [self.remote(kind) for kind in self.servers]
        server = Server(own / "state", {"local": self.folder("local")},
                        config="".join(tables) + config)
        self.open_servers.append(server.start())
        return server.client

    def close(self):
        for server in self.open_servers:
            server.process.terminate()  # they take their time side by side
        for server in self.open_servers:
            server.stop()
        for server in self.servers.values():
            server.close()
        for folder in self.mounted:
            run("umount", folder)


def write(root, files):
    for name, content in files.items():
        path = os.path.join(os.fsencode(root), os.fsencode(name))
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(content)


def content(root):
    """Bytes by relative name; hidden leftovers would show too."""
    found = {}
    for folder, _, files in os.walk(root):
        for name in files:
            if name.startswith(".davfs.tmp"):
                continue  # Apache's own, of a process that was killed
            path = os.path.join(folder, name)
            with open(path, "rb") as file:
                found[os.path.relpath(path, root)] = file.read()
    return found


def assert_same(root, files):
    found = content(root)
    assert found.keys() == files.keys()
    wrong = [(name, len(found[name]), len(files[name])) for name in files if found[name] != files[name]]
    assert not wrong, wrong


def wait_for(condition, what, seconds=60):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if condition():
            return
        time.sleep(0.01)
    raise AssertionError(f"not within {seconds} s: {what}")


def moved_some(client, task, megabytes=3):
    """Waits until the task is in the middle of its data; gives its worker's pid."""
    pid = client.wait_record(task, lambda r: r["data"] and r["data"]["status"] == "PROCESSING")["data"]["pid"]

    def moved():
        with open(f"/proc/{pid}/io") as file:
            counters = dict(line.split(": ") for line in file)
        return int(counters["rchar"]) + int(counters["wchar"]) > megabytes << 20

    wait_for(moved, "the task moves data")
    return pid
