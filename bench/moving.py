"""Moves: across two file systems, and within one."""
import os
import subprocess
import time

import data
import peers
import report
import stack
import volumes
from copying import OURS, check_ratio, described, places, prepare, tree_size, turns

ACROSS = "cp -a; sync; rm -r"
RENAME = "mv"
FLOOR = "rename() alone"  # a loop of the one system call that a move must make
NEEDED = "needed calls"  # and of those that say what is to be moved and whether it may be
ENTRIES = 10000
OVERHEAD = 50  # milliseconds,
SHARE = 1.15  # or what the needed calls take, times this


def across(program, source, dest):
    """Seconds until everything is safe at the destination and gone at the source."""
    if program == OURS:
        with stack.server({"in": source, "out": dest}) as client:
            return client.run(["/in/tree"], "/out", remove_src=True)
    return peers.timed(["cp", "-a", f"{source}/tree", f"{dest}/"], ["sync", "-f", dest],
                       ["rm", "-r", f"{source}/tree"])[0]


def rename(program, source, dest, names, tree="tree"):
    if program == OURS:
        with stack.server({"in": source, "out": dest}) as client:
            return client.run([f"/in/{tree}/{name}" for name in names], "/out",
                              remove_src=True)
    if program == NEEDED:
        done = subprocess.run([stack.BUILD / "copy_floor", "rename", f"{source}/{tree}", dest],
                              check=True, capture_output=True, text=True)
        return float(done.stdout) / 1000
    if program == FLOOR:
        pairs = [(f"{source}/{tree}/{name}", f"{dest}/{name}") for name in names]
        begin = time.perf_counter()
        for old, new in pairs:
            os.rename(old, new)
        return time.perf_counter() - begin
    return peers.timed(["mv", "-t", dest, *(f"{source}/{tree}/{name}" for name in names)])[0]


def expect(place, wanted):
    found = data.count(place)
    if found != wanted:
        raise data.Different(f"{place} holds {found}, not {wanted} files, folders and bytes")


def measure_across(arguments):
    seconds = {OURS: [], ACROSS: []}
    size = tree_size(arguments.files)
    with volumes.Workshop(arguments.backing) as workshop:
        source_template = workshop.template(
            "source", arguments.fs, size,
            lambda place: data.make_tree(place / "in" / "tree", arguments.files))
        dest_template = workshop.template("dest", arguments.fs, size)
        with workshop.volume(source_template, "original") as original:
            for program in turns(list(seconds), arguments.rounds):
                with places(workshop, source_template, dest_template) as (source, dest):
                    prepare(source, dest, arguments.cold)
                    seconds[program].append(across(program, source, dest))
                    data.compare(original / "in" / "tree", dest / "tree")
                    expect(source, (0, 0, 0))
    return seconds


def measure_rename(arguments, entries):
    seconds = {OURS: [], RENAME: [], FLOOR: [], NEEDED: []}
    with volumes.Workshop(arguments.backing) as workshop:
        template = workshop.template(
            "source", arguments.fs, 1 << 30,
            lambda place: data.make_entries(place / "in" / "tree", entries))
        for program in turns(list(seconds), arguments.rounds):
            with places(workshop, template, None) as (source, dest):
                prepare(source, dest, arguments.cold)
                names = sorted(entry.name for entry in (source / "tree").iterdir())
                wanted = data.count(source / "tree")
                seconds[program].append(rename(program, source, dest, names))
                expect(dest, wanted)
                expect(source / "tree", (0, 0, 0))
    return seconds


def result_of(arguments, groups):
    parameters = {"fs": arguments.fs, "rounds": arguments.rounds,
                  "cache": "cold" if arguments.cold else "warm", "files": arguments.files}
    return report.result("move", parameters, groups, ["cp -a", "mv"], (ACROSS, RENAME))


def run_across(arguments):
    arguments.two_fs = True
    group = f"{arguments.files} small files to another file system"
    result = result_of(arguments, {group: measure_across(arguments)})
    check_ratio(result, group, described(arguments, f"move of {arguments.files} small files"), 1.0,
                ACROSS)
    return result


def run_within(arguments):
    arguments.two_fs = False
    groups = {count: f"{count} {'entry' if count == 1 else 'entries'} within a file system"
              for count in (1, ENTRIES)}
    result = result_of(arguments, {title: measure_rename(arguments, count)
                                   for count, title in groups.items()})
    for title in groups.values():
        ours, floor, needed = (report.median_of(result, title, program)
                               for program in (OURS, FLOOR, NEEDED))
        limit = max(OVERHEAD, (needed * SHARE - floor) * 1000)
        report.check(result, f"move of {title} ({arguments.fs}): over the renames alone",
                     (ours - floor) * 1000, limit, "ms")
    return result
