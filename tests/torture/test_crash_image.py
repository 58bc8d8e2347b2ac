"""What the disks held at one moment of a move.

The worker is stopped, the images below both volumes are cloned, each as it is at that
moment, and the worker is killed. The clones are then mounted as after a power cut: all that
the file systems had not yet written to their devices is gone. It needs no help of the file
system, so it also cuts those that have no way of their own to be shut down.
"""
import fcntl
import os
import signal
import time

import pytest

from outcome import Round, pause_until
from volumes import syncfs

pytestmark = pytest.mark.root

FICLONE = 0x40049409


def state_of(pid):
    try:
        with open(f"/proc/{pid}/stat") as stat:
            return stat.read().rpartition(")")[2].split()[0]
    except FileNotFoundError:
        return "gone"


def threads_stand_still(pid):
    return all(state_of(f"{pid}/task/{thread}") in ("T", "gone")
               for thread in os.listdir(f"/proc/{pid}/task"))


def stop(pid, seconds=20):
    """False when the process had ended. Waits for calls into the kernel that are under way."""
    try:
        os.kill(pid, signal.SIGSTOP)
        end = time.monotonic() + seconds
        while not threads_stand_still(pid):
            if state_of(pid) in ("Z", "gone"):
                return False
            assert time.monotonic() < end, "the worker does not stop"
            time.sleep(0.001)
    except (ProcessLookupError, FileNotFoundError):
        return False
    return True


def clone(image):
    """Another file with what `image` holds at this moment."""
    copy = image.with_name(image.name + ".crash")
    with open(image, "rb") as source, open(copy, "wb") as target:
        fcntl.ioctl(target, FICLONE, source.fileno())
    return copy


def crash(volume, copy):
    """Mounts the copy of the image in the place of the image."""
    volume.unmount()
    copy.rename(volume.image)
    volume.mount()


@pytest.mark.parametrize("source,target", [("btrfs", "ext4"), ("ext4", "btrfs"),
                                           ("btrfs", "btrfs"), ("xfs", "ext4")])
def test_crash_image(make_volume, make_server, rounds, tally, source, target):
    # XFS clones a file in one step, while nobody writes to it.
    shelf = make_volume("xfs", "shelf", 1024)
    volumes = [make_volume(source, "src", 96, shelf=shelf.folder),
               make_volume(target, "dst", 96, shelf=shelf.folder)]
    shares = {"src": volumes[0].folder, "dst": volumes[1].folder}
    client = make_server(shares).client
    span = None
    for number, rng in rounds(3):
        span = span or Round(client, shares, f"{number}-calm", rng, True).seconds()
        this = Round(client, shares, number, rng, True)
        for volume in volumes:
            syncfs(volume.folder)
        begin = time.monotonic()
        task, pid = this.start()
        pause_until(begin + rng.uniform(0, span))
        running = stop(pid)
        tally["cut" if running else "cut after the end"] += 1
        span *= 1.03 if running else 0.9
        if rng.random() < 0.7:
            # The worst that can be: what was removed is gone for good.
            syncfs(volumes[0].folder)
        copies = [clone(volume.image) for volume in volumes]
        if running:
            os.kill(pid, signal.SIGKILL)
        this.end(task)
        for volume, copy in zip(volumes, copies):
            crash(volume, copy)
        this.check_after_cut(tally)
        this.complete()
