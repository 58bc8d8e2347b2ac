"""Workers that are killed at any moment of their lives."""
import time

import pytest

from outcome import DIED, Round, pause_until
from throwaway import kill

PAIRS = [("folder", "shm"), ("tmpfs", "ext4"), ("ext4", "xfs"), ("xfs", "tmpfs"), ("ext4", None)]
CASES = [pytest.param(a, b, move, id=f"{'move' if move else 'copy'}-{a}-{b or 'same'}",
                      marks=[] if a == "folder" else [pytest.mark.root])
         for a, b in PAIRS for move in (False, True) if b or not move]


def volumes(make_volume, source, target):
    """Two volumes, or one, as shares "src" and "dst"."""
    first = make_volume(source, "src", 128)
    if target is None:
        return {"src": first.folder, "dst": first.folder}
    second = make_volume(target, "dst", 128)
    return {"src": first.folder, "dst": second.folder}


# Files and mebibytes in big files: a kill hits between files, or inside one.
SHAPES = [(150, 4), (20, 14)]


def killed_after(this, seconds):
    """False when the task was faster."""
    begin = time.monotonic()
    task, pid = this.start()
    pause_until(begin + seconds)
    kill(pid)
    record = this.end(task)
    this.check_nothing_lost()
    died = record["progress"] != 1
    if died:
        assert record["data"]["status"] == "FAIL", this.told
        assert record["data"]["errors"][-1]["code"] == DIED, this.told
    this.complete()
    return died


@pytest.mark.parametrize("source,target,move", CASES)
def test_killed(make_volume, make_server, rounds, tally, source, target, move):
    shares = volumes(make_volume, source, target)
    client = make_server(shares).client
    spans = {}
    for number, rng in rounds(4):
        shape = SHAPES[number % len(SHAPES)]
        if shape not in spans:
            spans[shape] = Round(client, shares, f"{number}-calm", rng, move, *shape).seconds()
        died = killed_after(Round(client, shares, number, rng, move, *shape), rng.uniform(0, spans[shape]))
        tally["killed" if died else "too late"] += 1
        spans[shape] *= 1.02 if died else 0.9
