"""Volumes of a test's own: made, cut off, brought back and removed again."""
import ctypes
import fcntl
import os
import pathlib
import shutil
import subprocess
import tempfile
import time

SHUTDOWN = 0x8004587D  # _IOR('X', 125, uint32_t)
WITHOUT_LOG_FLUSH = 2
SMALLEST = {"xfs": 300, "btrfs": 128, "ext4": 16, "tmpfs": 1}  # MiB

libc = ctypes.CDLL(None, use_errno=True)


def run(*command):
    environment = dict(os.environ, PATH=os.environ["PATH"] + ":/usr/sbin:/sbin")
    done = subprocess.run(command, env=environment, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True)
    assert done.returncode == 0, f"{' '.join(command)}: {done.stdout}"


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
    """A mounted file system on `folder`.

    Two kinds need no root: "folder" is just that, "shm" a folder in shared memory.
    """

    def __init__(self, kind, folder, megabytes=0, options=""):
        self.kind, self.folder, self.image = kind, folder, None
        self.options = options
        if kind == "shm":
            self.folder = pathlib.Path(tempfile.mkdtemp(prefix="fennox-torture-", dir="/dev/shm"))
            return
        folder.mkdir(parents=True)
        if kind == "folder":
            return
        size = f"{max(megabytes, SMALLEST[kind])}M"
        if kind == "tmpfs":
            run("mount", "-t", "tmpfs", "-o", f"size={size}", "tmpfs", str(folder))
            return
        handle, image = tempfile.mkstemp(prefix="fennox-torture-", dir="/dev/shm")
        os.close(handle)
        self.image = pathlib.Path(image)
        os.truncate(image, int(size[:-1]) << 20)
        run(f"mkfs.{kind}", "-q", image)
        self.mount()
        shutil.rmtree(folder / "lost+found", ignore_errors=True)

    @property
    def can_be_cut(self):
        return self.kind in ("ext4", "xfs")

    def mount(self):
        run("mount", "-t", self.kind, "-o", "loop" + self.options, str(self.image),
            str(self.folder))

    def unmount(self, seconds=20):
        end = time.monotonic() + seconds
        while True:
            try:
                return run("umount", str(self.folder))
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
        if is_mounted(self.folder):
            try:
                self.unmount()
            except AssertionError:
                run("umount", "-l", str(self.folder))
        if self.image:
            self.image.unlink(missing_ok=True)


def cut_power(root):
    """Ends the file system behind a descriptor of its root; what was not synced is gone."""
    fcntl.ioctl(root, SHUTDOWN, WITHOUT_LOG_FLUSH.to_bytes(4, "little"))
