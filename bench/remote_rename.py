"""Moves within one remote mount, which the server made with sshfs, next to `mv` on the same mount."""
import contextlib
import os
import pathlib
import tempfile

import data
import moving
import remote
import report
import stack
from copying import OURS, check_ratio, turns
from moving import FLOOR, RENAME


def mount_points():
    lines = pathlib.Path("/proc/mounts").read_text(encoding="utf-8").splitlines()
    return {line.split()[1] for line in lines if " fuse.sshfs " in line}


def mounted(client):
    """The folder at which the server mounts the remote, on its first use."""
    before = mount_points()
    client.host("list", path="sftp://bench/in")
    found = [point for point in mount_points() - before
             if point.endswith(f"/mounts/{os.getuid()}/bench")]
    if len(found) != 1:
        raise RuntimeError(f"not one new mount but {found}")
    return pathlib.Path(found[0])


def move(program, client, mount, here, there, names):
    if program == OURS:
        return client.run([f"sftp://bench/{here}/{name}" for name in names],
                          f"sftp://bench/{there}", remove_src=True)
    # These look at the folders themselves.
    return moving.rename(program, mount, mount / there, names, tree=here)


def measure(arguments):
    """{program: [seconds, …]}; the entries go to and fro between two folders."""
    seconds = {OURS: [], RENAME: [], FLOOR: []}
    with contextlib.ExitStack() as stack_:
        folder = pathlib.Path(stack_.enter_context(
            tempfile.TemporaryDirectory(prefix="fennox-bench-", dir=arguments.backing)))
        distant, here, there = folder / "distant", "in", "out"
        data.make_entries(distant / here, arguments.files)
        (distant / there).mkdir()
        far = stack_.enter_context(remote.sftp.SftpServer(distant))
        client = stack_.enter_context(stack.server({}, far.remote("bench", "auto", path=distant)))
        mount = mounted(client)
        names = sorted(entry.name for entry in (distant / here).iterdir())
        wanted = data.count(distant / here)
        for program in turns(list(seconds), arguments.rounds):
            seconds[program].append(move(program, client, mount, here, there, names))
            moving.expect(distant / there, wanted)
            moving.expect(distant / here, (0, 0, 0))
            here, there = there, here
    return seconds


def run(arguments):
    group = f"{arguments.files} entries within one sshfs mount"
    result = report.result("remote-rename", {"rounds": arguments.rounds, "files": arguments.files},
                           {group: measure(arguments)}, [], (RENAME,))
    check_ratio(result, group, f"move of {group}", 1.0, RENAME)
    return result
