"""Folders that are swapped for symbolic links, over and over, while tasks run in them."""
import contextlib
import ctypes
import os
import shutil
import threading

import pytest

from outcome import finished
from trees import describe
from volumes import libc

RENAME_EXCHANGE = 2
AT_FDCWD = -100
SECRET = b"SECRET: nobody outside may read this"


def exchange(a, b):
    if libc.renameat2(AT_FDCWD, os.fsencode(a), AT_FDCWD, os.fsencode(b), RENAME_EXCHANGE) != 0:
        raise OSError(ctypes.get_errno(), "renameat2")


@contextlib.contextmanager
def swapping(folder, link, rng):
    """While the block runs, the two change places; afterwards the folder is a folder again."""
    stop = threading.Event()
    pauses = [rng.choice([0, 0, 0.0002, 0.001]) for _ in range(64)]
    swaps = 0

    def work():
        nonlocal swaps
        with contextlib.suppress(FileNotFoundError):
            while not stop.wait(pauses[swaps % 64]):
                exchange(folder, link)
                swaps += 1

    thread = threading.Thread(target=work)
    thread.start()
    try:
        yield lambda: swaps
    finally:
        stop.set()
        thread.join()
        if folder.is_symlink() and link.exists():
            exchange(folder, link)


def make_outside(place):
    outside = place / "outside"
    (outside / "deep").mkdir(parents=True)
    for name in ["f0", "f1", "f2", "deep/f0", "deep/f1"]:
        (outside / name).write_bytes(SECRET)
    return outside


def make_source(root):
    (root / "d" / "deep").mkdir(parents=True)
    for number in range(60):
        (root / "d" / f"f{number}").write_bytes(b"mine %d" % number)
        (root / "d" / "deep" / f"f{number}").write_bytes(b"mine too %d" % number)
    for number in range(20):
        (root / f"e{number}").mkdir()
        (root / f"e{number}" / "f").write_bytes(b"elsewhere")


def secrets_below(root):
    # os.walk does not follow links; a link that was copied as a link tells nothing.
    return [path for folder, _, files in os.walk(root) for name in files
            for path in [os.path.join(folder, name)]
            if not os.path.islink(path) and SECRET in open(path, "rb").read()]


WHERE = ["source folder", "source itself", "destination folder", "destination itself"]


@pytest.mark.parametrize("move", [False, True], ids=["copy", "move"])
@pytest.mark.parametrize("where", WHERE)
@pytest.mark.parametrize("target", ["folder", "shm"])
def test_swapped(make_volume, make_server, place, rounds, tally, where, move, target):
    source, dest = make_volume("folder", "src"), make_volume(target, "dst")
    outside = make_outside(place)
    before = describe(outside)
    client = make_server({"src": source.folder, "dst": dest.folder}).client
    for number, rng in rounds(2):
        top = source.folder / f"r{number}"
        into = dest.folder / f"r{number}"
        make_source(top / "t")
        (into / "t" / "d").mkdir(parents=True)
        folder = {"source folder": top / "t" / "d", "source itself": top / "t",
                  "destination folder": into / "t" / "d", "destination itself": into}[where]
        link = folder.parent / "swap"
        link.symlink_to(outside)
        with swapping(folder, link, rng) as swaps:
            while swaps() == 0:
                pass
            for _ in range(3):
                answer = client.start([f"/src/r{number}/t"], f"/dst/r{number}", remove_src=move,
                                      overwrite=True)
                if answer.get("success"):
                    record = finished(client, answer.data["taskid"])
                    tally["failed" if record["data"].get("errors") else "done"] += 1
                    client.wait(record["id"])
                else:
                    tally["refused"] += 1
        tally["swaps"] += swaps()
        assert describe(outside) == before, f"round {number}: changed outside"
        assert secrets_below(dest.folder) == [], f"round {number}"
        mine = [open(os.path.join(f, n), "rb").read() for root in (top, into)
                for f, _, names in os.walk(root) for n in names
                if not os.path.islink(os.path.join(f, n))]
        for n in range(60):
            assert b"mine %d" % n in mine and b"mine too %d" % n in mine, f"round {number}: lost"
        link.unlink(missing_ok=True)
        shutil.rmtree(top)
        shutil.rmtree(into)
