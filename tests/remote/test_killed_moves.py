"""Servers that are killed at random moments of a move: no file is ever lost."""
import random
import shutil
import time

import pytest

from stage import content, write

WAYS = [("local", "sftp"), ("sftp", "local"), ("local", "ftp"), ("ftp", "local"), ("sftp", "ftp"),
        ("local", "webdav")]


def tree(rng):
    files = {f"d{i % 5}/f{i}": rng.randbytes(rng.randrange(1, 40000)) for i in range(25)}
    files["d0/big"] = rng.randbytes(11 << 20)
    files["d3/big"] = rng.randbytes(11 << 20)
    return files


@pytest.mark.parametrize("source, dest", WAYS)
def test_a_killed_server_loses_no_file(stage, client, needs, pytestconfig, source, dest):
    needs(source, dest)
    dying = stage.servers[dest if dest != "local" else source]
    rng = random.Random()
    interrupted = 0
    undisturbed = 0.0  # how long the move of the first round takes, without a kill
    for number in range(pytestconfig.getoption("rounds") + 1):
        name = f"kill-{source}-{dest}-{number}"
        files = tree(rng)
        origin, place = stage.folder(source) / name, stage.folder(dest) / f"{name}-to"
        write(origin / "t", files)
        place.mkdir()
        task = client.start([stage.uri(source, f"{name}/t")], stage.uri(dest, place.name),
                            remove_src=True).data["taskid"]
        if number == 0:
            begin = time.monotonic()
            errors = client.wait(task, 120).get("errors", [])
            undisturbed = time.monotonic() - begin
            assert not errors
        else:
            time.sleep(rng.uniform(0, undisturbed))
            dying.stop()
            try:
                errors = client.wait(task, 120).get("errors", [])
            finally:
                dying.start()
        interrupted += bool(errors)
        here, there = content(origin / "t"), content(place / "t")
        for file, wanted in files.items():
            whole = here.get(file) == wanted or there.get(file) == wanted
            assert whole, f"{file}, round {number}: {len(here.get(file, b''))} and {len(there.get(file, b''))}" \
                          f" of {len(wanted)} bytes"
            # What is left to move is what the task says it failed on.
            assert file not in here or errors, file
        shutil.rmtree(origin)
        shutil.rmtree(place)
    print(f"{source} to {dest}: {interrupted} of {pytestconfig.getoption('rounds')} moves interrupted")
