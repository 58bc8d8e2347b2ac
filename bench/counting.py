"""What it costs to count a tree beforehand, for progress in bytes.

A move of one folder within a file system is one rename. With accurate progress the worker
counts the whole tree first, without it it does not; everything else is the same. The
difference between the two, measured one right after the other, is what counting costs, in
the real worker and with all it does besides.
"""
import os

import data
import peers
import report
import stack
import volumes
from copying import OURS, described, prepare, tree_size

COUNTED, UNCOUNTED, DU = "move, counted", "move, not counted", "du -s"


def move(client, folder, accurate):
    seconds = client.run(["/all/in/tree"], "/all/out", remove_src=True,
                         accurate_progress=accurate)
    os.rename(folder / "out" / "tree", folder / "in" / "tree")
    return seconds


def measure(arguments):
    seconds = {name: [] for name in (OURS, DU, COUNTED, UNCOUNTED)}

    def fill(place):
        (place / "out").mkdir()
        (place / "in").mkdir()
        data.make_tree(place / "in" / "tree", arguments.files)

    with volumes.Workshop(arguments.backing, arguments.disk if arguments.cold else None) as workshop:
        template = workshop.template("source", arguments.fs, tree_size(arguments.files), fill,
                                     on_disk=arguments.cold)
        with workshop.volume(template, "source") as folder, \
                stack.server({"all": folder}) as client:
            if not arguments.cold:
                prepare(folder, folder, False)
            for number in range(arguments.rounds + 1):
                round_ = {}
                for name in sorted((DU, COUNTED, UNCOUNTED), reverse=number % 2 == 1):
                    if arguments.cold:
                        prepare(folder, folder, True)
                        peers.warm("du")
                        client.host("whoami")
                    round_[name] = (peers.timed(["du", "-s", folder / "in" / "tree"])[0]
                                    if name == DU else move(client, folder, name == COUNTED))
                if number == 0:
                    continue  # the first of all pays for what nobody has touched before
                round_[OURS] = round_[COUNTED] - round_[UNCOUNTED]
                for name, taken in round_.items():
                    seconds[name].append(taken)
    return seconds


def run(arguments):
    group = f"{arguments.files} small files"
    parameters = {"fs": arguments.fs, "rounds": arguments.rounds,
                  "cache": "cold" if arguments.cold else "warm", "files": arguments.files}
    result = report.result("count", parameters, {group: measure(arguments)}, [], (DU,))
    report.check(result, f"{described(arguments, f'counting {group}')}: ratio to `{DU}`",
                 report.median_of(result, group, OURS) / report.median_of(result, group, DU), 1.0)
    return result
