"""Input and output errors, at any operation of either side."""
import errno

import pytest

from outcome import Round

pytestmark = pytest.mark.root

OPERATIONS = {
    "source": ["open", "read", "readdir", "getattr", "unlink"],
    "destination": ["write", "create", "rename", "link", "fsync", "flush", "setattr", "getattr",
                    "open", "readdir", "unlink"],
}


def errors_of(this):
    """The record's errors; None when the task was refused at once."""
    answer = this.client.start([this.paths[0]], this.paths[1], remove_src=this.move, overwrite=True)
    return this.end(answer.data["taskid"])["data"].get("errors", []) if answer.get("success") else None


@pytest.mark.parametrize("move", [False, True], ids=["copy", "move"])
@pytest.mark.parametrize("side", OPERATIONS)
def test_failing(make_volume, make_server, rounds, tally, side, move):
    """Each kind of operation fails on one side, which is a faulty folder."""
    volumes = {"src": make_volume("faulty" if side == "source" else "folder", "src"),
               "dst": make_volume("faulty" if side == "destination" else "folder", "dst")}
    faults = volumes["src" if side == "source" else "dst"].faults
    shares = {name: volume.folder for name, volume in volumes.items()}
    client = make_server(shares).client

    def tree(name, rng):
        faults.none()
        return Round(client, shares, name, rng, move, 40, 2)

    counts = None
    for number, rng in rounds(8):
        if counts is None:  # of a run in which nothing fails
            calm = tree("calm", rng)
            faults.none()
            assert errors_of(calm) == []
            counts = faults.counts()
            calm.complete()
        kinds = [kind for kind in OPERATIONS[side] if counts.get(kind)]
        operation = kinds[number % len(kinds)]
        nth, often = rng.randint(1, counts[operation]), rng.choice(["once", "on"])
        this = tree(number, rng)
        this.told += f": {operation} {nth} of about {counts[operation]}, {often}"
        error = rng.choice([errno.EIO, errno.EIO, errno.EDQUOT if operation in ("write", "create")
                            else errno.EIO])
        faults.set(operation, nth, often, error)
        errors = errors_of(this)
        met = faults.counts()["failed"] > 0
        faults.none()
        tally["refused" if errors is None else "failed" if errors else
              "met without harm" if met else "not met"] += 1
        this.check_nothing_lost()
        if errors == []:
            this.tree.check_done(move, this.told)
        this.complete()
