"""Task databases that are locked, full, deleted or damaged in mid-copy."""
import contextlib
import os
import sqlite3
import time

import pytest

from outcome import Round
from test_stop_and_kill import wait_gone

SLOW = '[bandwidth]\ndefault = "6MB"\n'


def databases(state):
    found = list((state / "users").glob("*/tasks.db"))
    assert found
    return found


@contextlib.contextmanager
def locked(state, rng):
    """Another process has the store to itself for seconds."""
    with locked_for_good(state, rng):
        time.sleep(rng.uniform(2, 4))
    yield


@contextlib.contextmanager
def locked_for_good(state, rng):
    """Like that until the worker has given up waiting."""
    with contextlib.ExitStack() as stack:
        for path in databases(state):
            holder = stack.enter_context(contextlib.closing(
                sqlite3.connect(path, isolation_level=None)))
            holder.execute("PRAGMA busy_timeout = 5000")
            holder.execute("BEGIN EXCLUSIVE")
        yield


@contextlib.contextmanager
def full(state, rng):
    filler = state / "filler"
    with open(filler, "wb", buffering=0) as file, contextlib.suppress(OSError):
        while True:
            file.write(bytes(4096))
    yield
    filler.unlink()


def remove_databases(state):
    for path in databases(state):
        for name in path.parent.glob("tasks.db*"):
            name.unlink()


@contextlib.contextmanager
def deleted(state, rng):
    remove_databases(state)
    yield


@contextlib.contextmanager
def garbage(state, rng):
    """The whole file, or a piece of it, is overwritten in place."""
    for path in databases(state):
        with open(path, "r+b") as file:
            size = path.stat().st_size
            begin = rng.choice([0, 0, rng.randrange(size)])
            file.seek(begin)
            file.write(rng.randbytes(rng.randrange(1, size - begin + 1)))
    yield


@contextlib.contextmanager
def truncated(state, rng):
    for path in databases(state):
        os.truncate(path, rng.randrange(path.stat().st_size))
    yield


def end_is_reported(client, task, seconds=15):
    """Whether "status" tells of the end; no call may hang, whatever the store is like."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        status = client.status(task)
        if not status.get("success"):
            return False
        if status.data["finished"]:
            return True
        time.sleep(0.1)
    raise AssertionError("the record never ends")


CASES = [pytest.param(fault, move, id=f"{fault.__name__}-{'move' if move else 'copy'}",
                      marks=[pytest.mark.root] if fault is full else [])
         for fault in (locked, locked_for_good, full, deleted, garbage, truncated)
         for move in (False, True) if move or fault is not locked_for_good]


@pytest.mark.parametrize("fault,move", CASES)
def test_store(make_volume, make_server, rounds, tally, fault, move):
    shares = {"src": make_volume("folder", "src").folder, "dst": make_volume("shm", "dst").folder}
    state = make_volume("tmpfs", "state", 8).folder if fault is full else None
    server = make_server(shares, SLOW, state)
    for number, rng in rounds(1):
        this = Round(server.client, shares, number, rng, move, 100, 10)
        task, pid = this.start()
        time.sleep(rng.uniform(0, 0.6))
        with fault(server.state, rng):
            tally["late" if wait_gone(pid, 0) else "in mid-copy"] += 1
            assert wait_gone(pid, 60), f"{this.told}: the worker hangs"
        this.check_nothing_lost()
        this.tree.check_no_leftovers(this.told)
        tally["end reported" if end_is_reported(server.client, task) else "record lost"] += 1
        if fault is deleted:
            assert server.client.status(task).code == 599
            assert server.wait_log("TAVO.Fennox.CopyMove:629 Failed to get json data, and failed to recover")
        if fault in (garbage, truncated):
            # A store damaged under a running server stays as it is until somebody looks at it.
            remove_databases(server.state)
        elif fault in (locked, full):
            assert tally["record lost"] == 0, this.told
        this.complete()
