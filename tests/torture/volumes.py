"""Volumes of a test's own: made, cut off, brought back and removed again."""
import ctypes
import fcntl
import os
import pathlib
import shutil
import subprocess
import tempfile
import time

import pytest

from server import BUILD

SHUTDOWN = 0x8004587D  # _IOR('X', 125, uint32_t)
WITHOUT_LOG_FLUSH = 2
SMALLEST = {"xfs": 300, "btrfs": 128, "ext4": 16, "tmpfs": 1}  # MiB

libc = ctypes.CDLL(None, use_errno=True)


def run(*command):
    environment = dict(os.environ, PATH=os.environ["PATH"] + ":/usr/sbin:/sbin")
    done = subprocess.run(command, env=environment, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True)
    assert done.returncode == 0, f"{' '.join(command)}: {done.stdout}"
    return done.stdout


def syncfs(folder):
    fd = os.open(folder, os.O_RDONLY | os.O_DIRECTORY)
    try:
        assert libc.syncfs(fd) == 0, os.strerror(ctypes.get_errno())
    finally:
        os.close(fd)


def is_mounted(folder):
    with open("/proc/self/mounts") as mounts:
        return any(line.split()[1] == str(folder) for line in mounts)


class Volume:
    """A mounted file system on `folder`; its image lies on the `shelf`.

    Two kinds need no root: "folder" is just that, "shm" a folder in shared memory.
    "faulty" is one whose operations fail when `faults` says so.
    """

    def __init__(self, kind, folder, megabytes=0, options="", make=(),
                 shelf="/dev/shm"):
        self.kind, self.folder, self.image, self.faults = kind, folder, None, None
        self.options = options
        if kind == "shm":
            self.folder = pathlib.Path(tempfile.mkdtemp(prefix="fennox-torture-", dir="/dev/shm"))
            return
        folder.mkdir(parents=True)
        if kind == "folder":
            return
        if kind == "faulty":
            self.faults = Faults(folder)
            return
        size = f"{max(megabytes, SMALLEST[kind])}M"
        if kind == "tmpfs":
            run("mount", "-t", "tmpfs", "-o", f"size={size}", "tmpfs", str(folder))
            return
        handle, image = tempfile.mkstemp(prefix="fennox-torture-", dir=shelf)
        os.close(handle)
        self.image = pathlib.Path(image)
        os.truncate(image, int(size[:-1]) << 20)
        run(f"mkfs.{kind}", "-q", *make, image)
        self.mount()
        shutil.rmtree(folder / "lost+found", ignore_errors=True)

    def mount(self):
        run("mount", "-t", self.kind, "-o", "loop" + self.options, str(self.image),
            str(self.folder))

    def unmount(self, seconds=20):
        end = time.monotonic() + seconds
        while True:
            try:
                run("umount", str(self.folder))
                return
            except AssertionError:
                if time.monotonic() > end:
                    raise
                time.sleep(0.05)

    def root(self):
        """A descriptor of the root, to have in hand when the moment comes."""
        return os.open(self.folder, os.O_RDONLY | os.O_DIRECTORY)

    def remount(self):
        self.unmount()
        self.mount()

    def loop_name(self):
        device = os.stat(self.folder).st_dev
        link = f"/sys/dev/block/{os.major(device)}:{os.minor(device)}"
        return os.path.basename(os.readlink(link))

    def remove(self):
        if self.kind in ("folder", "shm"):
            shutil.rmtree(self.folder, ignore_errors=True)
            return
        if self.kind == "faulty":
            if self.faults:
                self.faults.end()
        elif is_mounted(self.folder):
            try:
                self.unmount()
            except AssertionError:
                run("umount", "-l", str(self.folder))
        if self.image:
            self.image.unlink(missing_ok=True)


def cut_power(root):
    """Ends the file system behind a descriptor of its root; what was not synced is gone."""
    fcntl.ioctl(root, SHUTDOWN, WITHOUT_LOG_FLUSH.to_bytes(4, "little"))


class Faults:
    """A folder in shared memory, mounted on `mount` by a program that lets operations fail."""

    def __init__(self, mount):
        self.process = None
        self.mount, self.control = mount, mount / ".fault"
        self.behind = pathlib.Path(tempfile.mkdtemp(prefix="fennox-torture-", dir="/dev/shm"))
        program = BUILD / "tests" / "faulty_folder"
        if not os.path.exists("/dev/fuse"):
            pytest.skip("needs FUSE")
        self.process = subprocess.Popen([program, self.behind, mount])
        end = time.monotonic() + 20
        while not is_mounted(mount):
            assert self.process.poll() is None and time.monotonic() < end, "the mount does not come"
            time.sleep(0.01)

    def set(self, operation, number, often, error):
        """Lets the `number`-th operation fail, "once", or "on" from there."""
        self.control.write_text(f"{operation} {number} {often} {error}")

    def none(self):
        self.control.write_text("none")

    def counts(self):
        """How many of each kind there were since the last `set` or `none`; "failed" among them."""
        pairs = (line.split() for line in self.control.read_text().splitlines())
        return {operation: int(count) for operation, count in pairs}

    def end(self):
        if self.process:
            if is_mounted(self.mount):
                run("umount", "-l", str(self.mount))
            self.process.wait(20)
        shutil.rmtree(self.behind, ignore_errors=True)
