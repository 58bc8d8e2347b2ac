"""Copies of a tree of small files and of one large file, next to other programs."""
import contextlib

import data
import peers
import report
import stack
import volumes

OURS = "fennox"


def programs(arguments, names):
    """Our own, then the others that can be measured."""
    return [OURS, *peers.available([name for name in names if name not in arguments.without])]


def turns(names, rounds):
    """Every round in another order, so that nobody always comes first."""
    for number in range(rounds):
        shift = number % len(names)
        yield from names[shift:] + names[:shift]


@contextlib.contextmanager
def places(workshop, source_template, dest_template):
    """Fresh folders to copy from and to, on one file system when there is no second template."""
    with contextlib.ExitStack() as stack_:
        first = stack_.enter_context(workshop.volume(source_template, "source"))
        second = first
        if dest_template:
            second = stack_.enter_context(workshop.volume(dest_template, "dest"))
        (second / "out").mkdir()
        yield first / "in", second / "out"


def prepare(source, dest, cold):
    if not cold:
        volumes.read_all(source)
    volumes.settle(source)
    volumes.settle(dest)
    if cold:
        volumes.drop_caches()


def copy(program, source, dest, name, cold):
    """Seconds for a copy of SOURCE/NAME into DEST."""
    prepare(source, dest, cold)
    if program != OURS:
        return peers.timed(peers.COPY[program](f"{source}/{name}", dest))[0]
    with stack.server({"in": source, "out": dest}) as client:
        return client.run([f"/in/{name}"], "/out")


def measure(arguments, name, size, fill, names):
    """{program: [seconds, …]} for copies of what `fill(folder)` makes, under the name `name`."""
    def fill_volume(place):
        (place / "in").mkdir()
        fill(place / "in" / name)

    seconds = {program: [] for program in names}
    with volumes.Workshop(arguments.backing) as workshop:
        source_template = workshop.template("source", arguments.fs, size, fill_volume)
        dest_template = (workshop.template("dest", arguments.fs, size)
                         if arguments.two_fs else None)
        # The first copy pays for memory that the machine has not touched before; it
        # counts for nobody.
        with places(workshop, source_template, dest_template) as (source, dest):
            copy(names[0], source, dest, name, arguments.cold)
        for program in turns(names, arguments.rounds):
            with places(workshop, source_template, dest_template) as (source, dest):
                seconds[program].append(copy(program, source, dest, name, arguments.cold))
                data.compare(source / name, dest / name)
    return seconds


def tree(arguments, names):
    def fill(folder):
        data.make_tree(folder, arguments.files)

    size = (1 << 30) + arguments.files * 64 * 1024
    return measure(arguments, "tree", size, fill, names)


def large(arguments, names):
    def fill(folder):
        data.make_large(folder, arguments.size)

    return measure(arguments, "large", 2 * arguments.size + (2 << 30), fill, names)


def parameters(arguments, *more):
    shown = {"fs": arguments.fs, "rounds": arguments.rounds,
             "place": "two file systems" if arguments.two_fs else "one file system",
             "cache": "cold" if arguments.cold else "warm"}
    return shown | {key: getattr(arguments, key) for key in more}


def run_tree(arguments):
    names = programs(arguments, peers.COPY)
    groups = {f"{arguments.files} small files": tree(arguments, names)}
    return report.result("tree", parameters(arguments, "files"), groups, names)


def run_large(arguments):
    names = programs(arguments, peers.COPY)
    groups = {f"one file of {arguments.size >> 20} MiB": large(arguments, names)}
    return report.result("large", parameters(arguments, "size"), groups, names)


def run_reflink(arguments):
    """Both copies where the file system can share blocks."""
    arguments.fs = "xfs"
    names = programs(arguments, ["cp -a"])
    groups = {f"one file of {arguments.size >> 20} MiB": large(arguments, names),
              f"{arguments.files} small files": tree(arguments, names)}
    return report.result("reflink", parameters(arguments, "files", "size"), groups, names)
