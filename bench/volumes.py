"""File systems made fresh for each measurement: loop mounts on files in memory or on disk."""
import contextlib
import mmap
import os
import pathlib
import shlex
import shutil
import signal
import subprocess
import tempfile
import time

# ext4 would otherwise go on initialising itself in the background while it is measured.
MAKE = {
    "ext4": ["mkfs.ext4", "-q", "-F", "-m", "0", "-E", "lazy_itable_init=0,lazy_journal_init=0"],
    # Copies of data; that blocks can be shared is measured for itself.
    "xfs": ["mkfs.xfs", "-q", "-f", "-m", "reflink=0"],
    "xfs, shared": ["mkfs.xfs", "-q", "-f", "-m", "reflink=1"],
}


@contextlib.contextmanager
def undisturbed():
    """Keeps Ctrl-C and a termination waiting until the block has ended."""
    held = {signal.SIGINT, signal.SIGTERM, signal.SIGHUP}
    before = signal.pthread_sigmask(signal.SIG_BLOCK, held)
    try:
        yield
    finally:
        signal.pthread_sigmask(signal.SIG_SETMASK, before)


def run(*command):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True)
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(done.args)}: {done.stderr.strip()}")


def settle(path):
    """Writes out what the file system at `path` still holds back."""
    run("sync", "-f", path)


def read_all(path):
    """Brings a tree into the page cache."""
    subprocess.run(f"find {shlex.quote(str(path))} -type f -print0 | xargs -0 -r cat >/dev/null",
                   shell=True, check=True)


def touch_free_memory(size):
    """Uses so many bytes of memory and gives them back. The host of a virtual machine takes
    free memory away after some seconds, and who uses it first again would pay for that."""
    mmap.mmap(-1, min(max(size, mmap.PAGESIZE), 6 << 30),
              flags=mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS | mmap.MAP_POPULATE).close()


@contextlib.contextmanager
def held_back_writes():
    """What is written stays in memory meanwhile. Else the system writes data that takes longer than
    some seconds, or more than a tenth of the memory, out at the same time and on the same processors:
    a long run would be measured with that, and a short one without."""
    limits = {"dirty_background_ratio": "70", "dirty_ratio": "80",
              "dirty_expire_centisecs": "360000"}
    files = {pathlib.Path("/proc/sys/vm", name): value for name, value in limits.items()}
    before = {file: file.read_text() for file in files}
    try:
        for file, value in files.items():
            file.write_text(value)
        yield
    finally:
        for file, value in before.items():
            file.write_text(value)


def drop_caches():
    os.sync()
    pathlib.Path("/proc/sys/vm/drop_caches").write_text("3\n", encoding="ascii")


def bytes_read(path):
    """What the device below the file system at `path` has read so far."""
    device = os.stat(path).st_dev
    words = pathlib.Path(f"/sys/dev/block/{os.major(device)}:{os.minor(device)}/stat").read_text()
    return int(words.split()[2]) * 512


class Workshop:
    """Folders for images and mount points; everything in them is gone afterwards.

    With a `disk`, images of templates made with on_disk lie there.
    """

    def __init__(self, backing, disk=None):
        self.backing, self.disk = backing, disk
        self.images = self.disk_images = self.mounts = None

    def __enter__(self):
        with undisturbed():
            self.images = pathlib.Path(tempfile.mkdtemp(prefix="fennox-bench-", dir=self.backing))
            self.mounts = pathlib.Path(tempfile.mkdtemp(prefix="fennox-bench-"))
            if self.disk:
                self.disk_images = pathlib.Path(
                    tempfile.mkdtemp(prefix="fennox-bench-", dir=self.disk))
        return self

    def __exit__(self, *_):
        with undisturbed():
            # Mounts that are still there belong to a failed clean-up: never delete through them.
            for place in self.mounts.iterdir():
                unmount(place)
                place.rmdir()
            self.mounts.rmdir()
            shutil.rmtree(self.images)
            if self.disk_images:
                shutil.rmtree(self.disk_images)

    def template(self, name, fs, size, fill=None, options=(), on_disk=False):
        """An image with what `fill(mount point)` puts there, to be mounted as fresh copies."""
        # Two copies of one XFS are mounted side by side only without a look at their ids.
        kind = "nouuid" if fs.startswith("xfs") else "template"
        image = (self.disk_images if on_disk else self.images) / f"{name}.{kind}"
        with open(image, "wb") as file:
            file.truncate(size)
        run(*MAKE[fs], *options, image)
        if fill:
            with self._mounted(image, f"{name}-template") as place:
                fill(place)
        return image

    @contextlib.contextmanager
    def volume(self, template, name):
        """A fresh copy of the template, mounted."""
        image = template.with_name(name + template.suffix + "-copy")
        try:
            run("cp", "--sparse=always", template, image)
            with self._mounted(image, name) as place:
                yield place
        finally:
            with undisturbed():
                image.unlink(missing_ok=True)

    @contextlib.contextmanager
    def _mounted(self, image, name):
        place = self.mounts / name
        with undisturbed():
            place.mkdir()
            try:
                nouuid = ",nouuid" if ".nouuid" in image.name else ""
                run("mount", "-o", "loop" + nouuid, image, place)
            except RuntimeError:
                place.rmdir()
                raise
        try:
            yield place
        finally:
            with undisturbed():
                unmount(place)
                place.rmdir()


def unmount(place, seconds=10):
    """A worker that was just ended may keep the mount busy for a moment."""
    end = time.monotonic() + seconds
    while os.path.ismount(place):
        lazy = ["-l"] if time.monotonic() > end else []
        if subprocess.run(["umount", *lazy, str(place)], capture_output=True).returncode != 0:
            time.sleep(0.1)
