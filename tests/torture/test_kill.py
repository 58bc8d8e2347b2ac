"""Workers that are killed at any moment of their lives."""
import os
import signal
import time

import pytest

from outcome import DIED, Tree, complete, finished, pause_until, start

PAIRS = [("folder", "shm"), ("tmpfs", "ext4"), ("ext4", "xfs"), ("xfs", "tmpfs"), ("ext4", None)]
CASES = [pytest.param(a, b, move, id=f"{'move' if move else 'copy'}-{a}-{b or 'same'}",
                      marks=[] if a == "folder" else [pytest.mark.root])
         for a, b in PAIRS for move in (False, True) if b or not move]


def volumes(make_volume, place, source, target):
    """Two volumes, or one, as shares "src" and "dst"."""
    first = make_volume(source, "src", 64)
    if target is None:
        return {"src": first.folder, "dst": first.folder}
    second = make_volume(target, "dst", 64)
    return {"src": first.folder, "dst": second.folder}


def kill(pid):
    try:
        os.kill(pid, signal.SIGKILL)
    except ProcessLookupError:
        pass


@pytest.mark.parametrize("source,target,move", CASES)
def test_killed(make_volume, make_server, place, rounds, tally, source, target, move):
    shares = volumes(make_volume, place, source, target)
    client = make_server(shares).client
    span = None
    for number, rng in rounds(3):
        for attempt in range(2 if span is None else 1):
            told = f"round {number}"
            tree = Tree(shares["src"] / f"a{number}.{attempt}", shares["dst"] / f"b{number}.{attempt}",
                        rng)
            tree.parents[1].mkdir(exist_ok=True)
            paths = f"/src/{tree.parents[0].name}/t", f"/dst/{tree.parents[1].name}"
            begin = time.monotonic()
            task, pid = start(client, *paths, move)
            if span is None:
                # The first run is not disturbed: it tells how long one lives.
                assert finished(client, task)["progress"] == 1
                span = time.monotonic() - begin
                tree.check_done(move, told)
                tree.remove()
                continue
            pause_until(begin + rng.uniform(0, span))
            kill(pid)
            record = finished(client, task)
            tree.check_nothing_lost(move, told)
            if record["progress"] == 1:
                tally["too late"] += 1
                span *= 0.9
            else:
                tally["killed"] += 1
                assert record["data"]["status"] == "FAIL", told
                assert record["data"]["errors"][-1]["code"] == DIED, told
            client.wait(task)
            complete(client, tree, *paths, move, told)
            tree.remove()
