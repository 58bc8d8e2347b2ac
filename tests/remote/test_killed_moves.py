"""Servers that are killed at random moments of a move: no file is ever lost."""
import random
import shutil
import time

import pytest

from stage import content, write

WAYS = [("local", "sftp"), ("sftp", "local"), ("local", "ftp"), ("ftp", "local"), ("sftp", "ftp"),
        ("local", "webdav")]
MOST_LATE = 3  # kills after the end of the move, for each one that counts


def tree(rng):
    files = {f"d{i % 5}/f{i}": rng.randbytes(rng.randrange(1, 40000)) for i in range(25)}
    files["d0/big"] = rng.randbytes(11 << 20)
    files["d3/big"] = rng.randbytes(11 << 20)
    return files


class Moves:
    """Moves of fresh trees one way; checks after each that no file is lost or half-written."""

    def __init__(self, stage, client, source, dest):
        self.stage, self.client, self.source, self.dest = stage, client, source, dest
        self.rng = random.Random()
        self.number = 0

    def once(self, disturb=None):
        """disturb(task) runs beside the move; gives its answer, whether files failed, and the
        seconds from the start to the end."""
        self.number += 1
        name = f"kill-{self.source}-{self.dest}-{self.number}"
        files = tree(self.rng)
        origin, place = self.stage.folder(self.source) / name, self.stage.folder(self.dest) / f"{name}-to"
        write(origin / "t", files)
        place.mkdir()
        task = self.client.start([self.stage.uri(self.source, f"{name}/t")],
                                 self.stage.uri(self.dest, place.name), remove_src=True).data["taskid"]
        begin = time.monotonic()
        answer = disturb(task) if disturb else None
        errors = self.client.wait(task, 120).get("errors", [])
        seconds = time.monotonic() - begin
        self.check(files, content(origin / "t"), content(place / "t"), errors)
        shutil.rmtree(origin)
        shutil.rmtree(place)
        return answer, bool(errors), seconds

    def check(self, files, here, there, errors):
        for file, wanted in files.items():
            whole = here.get(file) == wanted or there.get(file) == wanted
            assert whole, f"{file}, round {self.number}: {len(here.get(file, b''))} and " \
                          f"{len(there.get(file, b''))} of {len(wanted)} bytes"
            assert there.get(file, wanted) == wanted, f"{file}, round {self.number}: half there"
            # What is left to move is what the task says it failed on.
            assert file not in here or errors, file


@pytest.mark.parametrize("source, dest", WAYS)
def test_a_killed_server_loses_no_file(stage, client, needs, pytestconfig, source, dest):
    needs(source, dest)
    dying = stage.servers[dest if dest != "local" else source]
    moves = Moves(stage, client, source, dest)
    _, failed, window = moves.once()
    assert not failed

    def kill(task):
        time.sleep(moves.rng.uniform(0, window))
        dying.stop()
        return not client.record(task)["finished"]  # with the server gone, the move still ran

    wanted = pytestconfig.getoption("rounds")
    hit = late = cut_short = 0
    while hit < wanted:
        try:
            running, failed, _ = moves.once(kill)
        finally:
            dying.start()
        hit, late, cut_short = hit + running, late + (not running), cut_short + (running and failed)
        window *= 1.1 if running else 0.9  # follows the machine's load: some must come late
        assert late <= MOST_LATE * (wanted + 3), f"{hit} kills hit a running move, {late} came late"
    print(f"{source} to {dest}: {hit} kills hit a running move, {cut_short} of which stopped files; {late} came late")
