"""Volumes that lose their power while a move between them runs.

The file systems are shut down without writing their logs, so all that was not
synced is gone when they are mounted again. A neighbour who syncs files of its
own makes the journal go out at moments that the mover did not choose.
"""
import contextlib
import os
import threading
import time

import pytest

from outcome import Round, pause_until
from volumes import cut_power, syncfs

pytestmark = pytest.mark.root


@contextlib.contextmanager
def neighbour(folder, rng):
    """Writes and syncs a file of its own now and then."""
    stop = threading.Event()
    pauses = [rng.uniform(0, 0.02) for _ in range(1000)]

    def work():
        with contextlib.suppress(OSError):
            with open(folder / "neighbour", "wb", buffering=0) as file:
                for pause in pauses:
                    if stop.wait(pause):
                        return
                    file.write(b"some more")
                    os.fsync(file.fileno())

    thread = threading.Thread(target=work)
    thread.start()
    try:
        yield
    finally:
        stop.set()
        thread.join()


def cut_while_moving(this, delay, victims, quiet, rng):
    """The record of a move whose volumes were cut off, in that order, after `delay`."""
    roots = [volume.root() for volume in victims]
    try:
        with contextlib.nullcontext() if quiet else neighbour(victims[-1].folder, rng):
            begin = time.monotonic()
            task, _ = this.start()
            pause_until(begin + delay)
            for root in roots:
                cut_power(root)
            record = this.end(task)
    finally:
        for root in roots:
            os.close(root)
    for volume in victims:
        volume.remount()
    return record


@pytest.mark.parametrize("both", [False, True], ids=["destination", "both"])
@pytest.mark.parametrize("source,target", [("ext4", "xfs"), ("xfs", "ext4"), ("ext4", "ext4")])
def test_power_cut(make_volume, make_server, rounds, tally, source, target, both):
    volumes = [make_volume(source, "src", 96), make_volume(target, "dst", 96)]
    shares = {"src": volumes[0].folder, "dst": volumes[1].folder}
    client = make_server(shares).client
    span = None
    for number, rng in rounds(2):
        span = span or Round(client, shares, f"{number}-calm", rng, True).seconds()
        this = Round(client, shares, number, rng, True)
        for volume in volumes:
            syncfs(volume.folder)
        victims = rng.sample(volumes, 2) if both else [volumes[1]]
        record = cut_while_moving(this, rng.uniform(0, span), victims, rng.random() < 0.5, rng)
        late = not record["data"].get("errors")
        span *= 0.9 if late else 1.03
        tally["cut after the end" if late else "cut"] += 1
        this.check_after_cut(tally)
        this.complete()


@pytest.mark.parametrize("kind", ["ext4", "xfs"])
def test_an_overwritten_file_is_old_or_new_after_a_power_cut(make_volume, make_server, rounds,
                                                             tally, kind):
    source, target = make_volume("folder", "src"), make_volume(kind, "dst", 96)
    client = make_server({"src": source.folder, "dst": target.folder}).client
    old, new = b"old content" * 1000, b"the new content" * 1000
    torn = []
    for _ in rounds(1):
        (source.folder / "f").write_bytes(new)
        (target.folder / "f").write_bytes(old)
        syncfs(target.folder)
        client.run(["/src/f"], "/dst", overwrite=True)
        root = target.root()
        with open(target.folder / "neighbour", "wb") as file:
            os.fsync(file.fileno())
        cut_power(root)
        os.close(root)
        target.remount()
        found = (target.folder / "f").read_bytes()
        tally["new" if found == new else "old" if found == old else "torn"] += 1
        if found not in (old, new):
            torn.append(f"{len(found)} bytes {found[:8]!r}")
    assert torn == []
