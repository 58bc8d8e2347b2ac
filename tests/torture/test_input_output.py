"""Input and output errors, at any operation of either side."""
import errno

import pytest

from outcome import Tree, complete, finished

pytestmark = pytest.mark.root

OPERATIONS = {
    "source": ["open", "read", "readdir", "getattr", "unlink"],
    "destination": ["write", "create", "rename", "link", "fsync", "flush", "setattr", "getattr",
                    "open", "readdir", "unlink"],
}


class Setting:
    """Two folders, one of them faulty, and a server for them."""

    def __init__(self, make_volume, make_server, side, move):
        self.source = make_volume("faulty" if side == "source" else "folder", "src")
        self.target = make_volume("faulty" if side == "destination" else "folder", "dst")
        self.faults = (self.source if side == "source" else self.target).faults
        self.client = make_server({"src": self.source.folder, "dst": self.target.folder}).client
        self.move = move

    def tree(self, name, rng):
        self.faults.none()
        (self.target.folder / name).mkdir()
        return Tree(self.source.folder / name, self.target.folder / name, rng, 40, 2)

    def run(self, name):
        """The record's errors; None when it was refused at once."""
        answer = self.client.start([f"/src/{name}/t"], f"/dst/{name}", remove_src=self.move,
                                   overwrite=True)
        if not answer.get("success"):
            return None
        task = answer.data["taskid"]
        errors = finished(self.client, task)["data"].get("errors", [])
        self.client.wait(task)
        return errors

    def operations(self, rng):
        """How many of each kind a run makes when nothing fails."""
        tree = self.tree("calm", rng)
        self.faults.none()
        assert self.run("calm") == []
        counts = self.faults.counts()
        tree.check_done(self.move, "without faults")
        tree.remove()
        return counts


@pytest.mark.parametrize("move", [False, True], ids=["copy", "move"])
@pytest.mark.parametrize("side", OPERATIONS)
def test_failing(make_volume, make_server, rounds, tally, side, move):
    setting = Setting(make_volume, make_server, side, move)
    counts = None
    for number, rng in rounds(8):
        if counts is None:
            counts = setting.operations(rng)
        kinds = [kind for kind in OPERATIONS[side] if counts.get(kind)]
        operation = kinds[number % len(kinds)]
        nth, often = rng.randint(1, counts[operation]), rng.choice(["once", "on"])
        told = f"round {number}: {operation} {nth} of about {counts[operation]}, {often}"
        tree = setting.tree(str(number), rng)
        error = rng.choice([errno.EIO, errno.EIO, errno.EDQUOT if operation in ("write", "create")
                            else errno.EIO])
        setting.faults.set(operation, nth, often, error)
        errors = setting.run(str(number))
        met = setting.faults.counts()["failed"] > 0
        setting.faults.none()
        tally["refused" if errors is None else "failed" if errors else
              "met without harm" if met else "not met"] += 1
        tree.check_nothing_lost(move, told)
        if errors == []:
            tree.check_done(move, told)
        complete(setting.client, tree, f"/src/{number}/t", f"/dst/{number}", move, told)
        tree.remove()
