"""Moves: across two file systems, and within one."""
import data
import peers
import report
import stack
import volumes
from copying import OURS, places, prepare, turns

ACROSS = "cp -a; sync; rm -r"
RENAME = "mv"
ENTRIES = 10000


def across(program, source, dest):
    """Seconds until everything is safe at the destination and gone at the source."""
    if program == OURS:
        with stack.server({"in": source, "out": dest}) as client:
            return client.run(["/in/tree"], "/out", remove_src=True)
    return peers.timed(["cp", "-a", f"{source}/tree", f"{dest}/"], ["sync", "-f", dest],
                       ["rm", "-r", f"{source}/tree"])[0]


def rename(program, source, dest, names):
    if program == OURS:
        with stack.server({"in": source, "out": dest}) as client:
            return client.run([f"/in/tree/{name}" for name in names], "/out", remove_src=True)
    return peers.timed(["mv", "-t", dest, *(f"{source}/tree/{name}" for name in names)])[0]


def expect(place, wanted):
    found = data.count(place)
    if found != wanted:
        raise data.Different(f"{place} holds {found}, not {wanted} files, folders and bytes")


def measure_across(arguments):
    seconds = {OURS: [], ACROSS: []}
    size = (1 << 30) + arguments.files * 64 * 1024
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
    seconds = {OURS: [], RENAME: []}
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


def run(arguments):
    groups = {f"{arguments.files} small files to another file system": measure_across(arguments),
              "1 entry within a file system": measure_rename(arguments, 1),
              f"{ENTRIES} entries within a file system": measure_rename(arguments, ENTRIES)}
    parameters = {"fs": arguments.fs, "rounds": arguments.rounds,
                  "cache": "cold" if arguments.cold else "warm", "files": arguments.files}
    return report.result("move", parameters, groups, ["cp -a", "mv"], (ACROSS, RENAME))
