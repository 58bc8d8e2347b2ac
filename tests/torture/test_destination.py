"""Destinations that are full or stop taking writes in mid-copy."""
import ctypes
import os
import time

import pytest

from outcome import Tree, complete, finished, pause_until, start
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
    source = make_volume("folder", "src")
    target = make_volume(kind, "dst", 48)
    client = make_server({"src": source.folder, "dst": target.folder}).client
    for number, rng in rounds(4):
        told = f"round {number}"
        tree = Tree(source.folder / str(number), target.folder / str(number), rng)
        tree.parents[1].mkdir(exist_ok=True)
        paths = f"/src/{number}/t", f"/dst/{number}"
        filler = fill(target.folder, rng.randrange(6 << 20))
        record = finished(client, start(client, *paths, move)[0])
        errors = record["data"].get("errors", [])
        tree.check_nothing_lost(move, told)
        tree.check_no_leftovers(told)
        tally["full" if errors else "fitted"] += 1
        if not errors:
            tree.check_done(move, told)
        client.wait(record["id"])
        filler.unlink()
        complete(client, tree, *paths, move, told)
        tree.remove()


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
    client = make_server({"src": source.folder, "dst": target.folder}).client
    span = 0.04
    for number, rng in rounds(3):
        told = f"round {number}"
        tree = Tree(source.folder / str(number), target.folder / str(number), rng)
        tree.parents[1].mkdir(exist_ok=True)
        syncfs(target.folder)
        paths = f"/src/{number}/t", f"/dst/{number}"
        begin = time.monotonic()
        task, _ = start(client, *paths, move)
        pause_until(begin + rng.uniform(0, span))
        assert stop_writes(target)
        record = finished(client, task)
        errors = record["data"].get("errors", [])
        span *= 1.2 if errors else 0.7
        tally["read-only" if errors else "too late"] += 1
        tree.check_nothing_lost(move, told)
        client.wait(task)
        allow_writes(target)
        complete(client, tree, *paths, move, told)
        tree.remove()
