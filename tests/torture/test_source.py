"""Sources that change while they are read."""
import os
import time

import pytest

from outcome import finished, start
from trees import leftovers

SLOW = '[bandwidth]\ndefault = "8MB"\n'
SIZE = 12 << 20  # more than the limit lets through at once


def shorten(path, rng):
    os.truncate(path, rng.randrange(SIZE // 2))


def grow(path, rng):
    with open(path, "ab") as file:
        file.write(rng.randbytes(1 << 20))


def rewrite(path, rng):
    with open(path, "r+b") as file:
        file.seek(rng.randrange(SIZE - 4096))
        file.write(rng.randbytes(4096))


def delete(path, rng):
    path.unlink()


def replace(path, rng):
    other = path.with_name("other")
    other.write_bytes(rng.randbytes(SIZE))
    other.rename(path)


def content(path):
    return path.read_bytes() if path.exists() else None


@pytest.mark.parametrize("move", [False, True], ids=["copy", "move"])
@pytest.mark.parametrize("change", [shorten, grow, rewrite, delete, replace])
def test_changed(make_volume, make_server, rounds, tally, change, move):
    source, target = make_volume("folder", "src"), make_volume("shm", "dst")
    client = make_server({"src": source.folder, "dst": target.folder}, SLOW).client
    for number, rng in rounds(1):
        tree = source.folder / f"t{number}"
        tree.mkdir()
        bystander = rng.randbytes(1000)
        (tree / "bystander").write_bytes(bystander)
        big, copy = tree / "big", target.folder / tree.name / "big"
        before = rng.randbytes(SIZE)
        big.write_bytes(before)
        task, _ = start(client, f"/src/{tree.name}", "/dst", move)
        time.sleep(rng.uniform(0, 0.5))
        try:
            change(big, rng)
        except FileNotFoundError:  # the move was over before
            assert move and content(copy) == before
            tally["over before"] += 1
            continue
        changed = content(big)
        record = finished(client, task)
        here, there = content(big), content(copy)
        tally["refused" if record["data"].get("errors") else
              "taken as it was" if there == before else
              "taken as it became" if there == changed else "taken as a mixture"] += 1
        # What others changed is removed only when its last state was copied.
        if changed is not None:
            assert here == changed or (move and here is None and there == changed)
        if there is not None and change in (shorten, delete, replace):
            assert there in (before, changed), f"a file of {len(there)} bytes under its final name"
        if there is not None:
            assert len(there) >= min(SIZE, len(changed or before))
        assert (target.folder / tree.name / "bystander").read_bytes() == bystander
        assert leftovers(target.folder) == []
        client.wait(task)
