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


def volumes(make_volume, source, target):
    """Two volumes, or one, as shares "src" and "dst"."""
    first = make_volume(source, "src", 128)
    if target is None:
        return {"src": first.folder, "dst": first.folder}
    second = make_volume(target, "dst", 128)
    return {"src": first.folder, "dst": second.folder}


def kill(pid):
    try:
        os.kill(pid, signal.SIGKILL)
    except ProcessLookupError:
        pass


# Files and mebibytes in big files: a kill hits between files, or inside one.
SHAPES = [(150, 4), (20, 14)]


class Round:
    """One tree and the task that carries it."""

    def __init__(self, client, shares, name, shape, rng, move):
        self.client, self.move, self.told = client, move, f"round {name}"
        target = shares["dst"] / f"b{name}"
        target.mkdir()
        self.tree = Tree(shares["src"] / f"a{name}", target, rng, *shape)
        self.paths = f"/src/a{name}/t", f"/dst/b{name}"

    def seconds(self):
        """How long the task lives when nobody disturbs it."""
        begin = time.monotonic()
        task, _ = start(self.client, *self.paths, self.move)
        assert finished(self.client, task)["progress"] == 1, self.told
        taken = time.monotonic() - begin
        self.client.wait(task)
        self.tree.check_done(self.move, self.told)
        return taken

    def killed_after(self, seconds):
        """False when the task was faster."""
        begin = time.monotonic()
        task, pid = start(self.client, *self.paths, self.move)
        pause_until(begin + seconds)
        kill(pid)
        record = finished(self.client, task)
        self.tree.check_nothing_lost(self.move, self.told)
        died = record["progress"] != 1
        if died:
            assert record["data"]["status"] == "FAIL", self.told
            assert record["data"]["errors"][-1]["code"] == DIED, self.told
        self.client.wait(task)
        complete(self.client, self.tree, *self.paths, self.move, self.told)
        return died


@pytest.mark.parametrize("source,target,move", CASES)
def test_killed(make_volume, make_server, rounds, tally, source, target, move):
    shares = volumes(make_volume, source, target)
    client = make_server(shares).client
    spans = {}
    for number, rng in rounds(4):
        shape = SHAPES[number % len(SHAPES)]
        if shape not in spans:
            calm = Round(client, shares, f"{number}-calm", shape, rng, move)
            spans[shape] = calm.seconds()
            calm.tree.remove()
        this = Round(client, shares, str(number), shape, rng, move)
        died = this.killed_after(rng.uniform(0, spans[shape]))
        tally["killed" if died else "too late"] += 1
        spans[shape] *= 1.02 if died else 0.9
        this.tree.remove()
