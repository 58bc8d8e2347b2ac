"""Destinations that are full or stop taking writes in mid-copy."""
import ctypes
import os
import time

import pytest

from outcome import Round, pause_until
from volumes import libc, syncfs

pytestmark = pytest.mark.root

MS_RDONLY, MS_REMOUNT = 1, 32


def fill(folder, leave):
    """Takes all room of the volume but about `leave` bytes."""
    filler = folder / "filler"
    size = os.statvfs(folder).f_bfree * os.statvfs(folder).f_frsize - leave
    with open(filler, "wb", buffering=0) as file:
        while size > 0:
            try:
                os.posix_fallocate(file.fileno(), 0, size)
                break
            except OSError:
                size -= 256 << 10  # the file system needs some for itself
    return filler


@pytest.mark.parametrize("move", [False, True], ids=["copy", "move"])
@pytest.mark.parametrize("kind", ["tmpfs", "ext4", "xfs"])
def test_full(make_volume, make_server, rounds, tally, kind, move):
    source, target = make_volume("folder", "src"), make_volume(kind, "dst", 48)
    shares = {"src": source.folder, "dst": target.folder}
    client = make_server(shares).client
    for number, rng in rounds(4):
        this = Round(client, shares, number, rng, move)
        filler = fill(target.folder, rng.randrange(6 << 20))
        errors = this.end()["data"].get("errors", [])
        this.check_nothing_lost()
        this.tree.check_no_leftovers(this.told)
        tally["full" if errors else "fitted"] += 1
        if not errors:
            this.tree.check_done(move, this.told)
        filler.unlink()
        this.complete()


def stop_writes(volume, seconds=2):
    """Makes the volume read-only: by its own error handling, or by a remount between two writes."""
    if volume.kind == "ext4":
        trigger = f"/sys/fs/ext4/{volume.loop_name()}/trigger_fs_error"
        with open(trigger, "w") as file:
            file.write("1")
        return True
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if libc.mount(None, os.fsencode(volume.folder), None,
                      ctypes.c_ulong(MS_REMOUNT | MS_RDONLY), None) == 0:
            return True
    return False


def allow_writes(volume):
    if volume.kind == "ext4":
        volume.remount()
    else:
        assert libc.mount(None, os.fsencode(volume.folder), None, ctypes.c_ulong(MS_REMOUNT),
                          None) == 0


@pytest.mark.parametrize("move", [False, True], ids=["copy", "move"])
@pytest.mark.parametrize("kind", ["tmpfs", "ext4"])
def test_read_only(make_volume, make_server, rounds, tally, kind, move):
    source = make_volume("folder", "src")
    target = make_volume(kind, "dst", 96, ",errors=remount-ro" if kind == "ext4" else "")
    shares = {"src": source.folder, "dst": target.folder}
    client = make_server(shares).client
    span = 0.04
    for number, rng in rounds(3):
        this = Round(client, shares, number, rng, move)
        syncfs(target.folder)
        begin = time.monotonic()
        task, _ = this.start()
        pause_until(begin + rng.uniform(0, span))
        assert stop_writes(target)
        errors = this.end(task)["data"].get("errors", [])
        span *= 1.2 if errors else 0.7
        tally["read-only" if errors else "too late"] += 1
        this.check_nothing_lost()
        allow_writes(target)
        this.complete()
