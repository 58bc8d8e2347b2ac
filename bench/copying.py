"""Copies of a tree of small files and of one large file, next to other programs."""
import contextlib

import data
import peers
import report
import stack
import volumes

OURS = "fennox"
CP, RSYNC, RCLONE = "cp -a", "rsync -a", "rclone copy"
SLOW_PEERS = (RSYNC, RCLONE)

# Ratios to `cp -a` for the small tree: (file system, two of them, cold).
TREE_TARGETS = {("ext4", False, False): 0.70, ("xfs", False, False): 0.75,
                ("ext4", True, False): 0.55, ("xfs", True, False): 0.55,
                ("ext4", True, True): 0.50, ("xfs", True, True): 0.50}
RCLONE_TARGET, RSYNC_TARGET, FLOOR_TARGET = 8, 1.8, 1.15


def programs(arguments, names):
    """Our own, then the others that can be measured."""
    return [OURS, *peers.available([name for name in names if name not in arguments.without])]


def turns(names, rounds, few=None):
    """Every round in another order, so that nobody always comes first. The slow ones
    are measured in the first `few` rounds only."""
    for number in range(rounds):
        here = [name for name in names if few is None or number < few or name not in SLOW_PEERS]
        shift = number % len(here)
        yield from here[shift:] + here[:shift]


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
    if not cold and (source / "sparse").exists():
        data.read_extents(source / "sparse" / data.SPARSE)
    elif not cold:
        volumes.read_all(source)
    volumes.settle(source)
    volumes.settle(dest)
    if cold:
        volumes.drop_caches()


def timed_copy(program, source, dest, name, memory=0):
    """Seconds for a copy of SOURCE/NAME into DEST, which takes so many bytes of memory."""
    if program != OURS:
        peers.warm(program)
        volumes.touch_free_memory(memory)
        return peers.timed(peers.COPY[program](f"{source}/{name}", dest))[0]
    with stack.server({"in": source, "out": dest}) as client:
        volumes.touch_free_memory(memory)
        return client.run([f"/in/{name}"], "/out")


def copy(program, source, dest, name, cold):
    memory = 2 * data.allocated(source / name)  # asked now: it leaves nothing cold
    prepare(source, dest, cold)
    before = volumes.bytes_read(source)
    seconds = timed_copy(program, source, dest, name, memory)
    if cold and volumes.bytes_read(source) - before < data.allocated(source / name):
        raise RuntimeError("the source was not cold: less was read from its device than it holds")
    return seconds


def measure(arguments, name, size, fill, names, check=lambda source, copy, _: data.compare(source, copy)):
    """{program: [seconds, …]} for copies of what `fill(folder)` makes, under the name `name`."""
    def fill_volume(place):
        (place / "in").mkdir()
        fill(place / "in" / name)

    seconds = {program: [] for program in names}
    # An image in memory would never be cold.
    with volumes.Workshop(arguments.backing, arguments.disk if arguments.cold else None) as workshop:
        source_template = workshop.template("source", arguments.fs, size, fill_volume,
                                            on_disk=arguments.cold)
        dest_template = (workshop.template("dest", arguments.fs, size)
                         if arguments.two_fs else None)
        # The first copy pays for memory that the machine has not touched before; it
        # counts for nobody.
        with places(workshop, source_template, dest_template) as (source, dest):
            copy(names[0], source, dest, name, arguments.cold)
        for program in turns(names, arguments.rounds, arguments.peer_rounds):
            with places(workshop, source_template, dest_template) as (source, dest):
                seconds[program].append(copy(program, source, dest, name, arguments.cold))
                check(source / name, dest / name, program)
    return seconds


def tree_size(files):
    return (1 << 30) + files * 64 * 1024


def tree(arguments, names):
    def fill(folder):
        data.make_tree(folder, arguments.files)

    return measure(arguments, "tree", tree_size(arguments.files), fill, names)


def large(arguments, names):
    def fill(folder):
        data.make_large(folder, arguments.size)

    return measure(arguments, "large", 2 * arguments.size + (2 << 30), fill, names)


def parameters(arguments, *more):
    shown = {"fs": arguments.fs, "rounds": arguments.rounds,
             "place": "two file systems" if arguments.two_fs else "one file system",
             "cache": "cold" if arguments.cold else "warm"}
    return shown | {key: getattr(arguments, key) for key in more}


def described(arguments, what):
    """The workload in words, for the table of all."""
    fs = arguments.fs.upper() if arguments.fs == "xfs" else arguments.fs
    place = f"{fs} to {fs}" if arguments.two_fs else f"within one {fs}"
    return f"{what}, {place}, {'cold' if arguments.cold else 'warm'}"


def check_ratio(result, group, what, limit, base=CP):
    """Our median against the base's."""
    names = {row["program"] for row in result["rows"] if row["group"] == group}
    if base in names:
        report.check(result, f"{what}: ratio to `{base}`",
                     report.median_of(result, group, OURS) / report.median_of(result, group, base),
                     limit)


def check_times_faster(result, group, what, base, limit):
    names = {row["program"] for row in result["rows"] if row["group"] == group}
    if base in names:
        report.check(result, f"{what}: times as fast as `{base}`",
                     report.median_of(result, group, base) / report.median_of(result, group, OURS),
                     limit, at_least=True)


def run_tree(arguments):
    names = programs(arguments, peers.COPY)
    group = f"{arguments.files} small files"
    result = report.result("tree", parameters(arguments, "files"),
                           {group: tree(arguments, names)}, names)
    what = described(arguments, group)
    target = TREE_TARGETS.get((arguments.fs, arguments.two_fs, arguments.cold))
    if target:
        check_ratio(result, group, what, target)
    if (arguments.fs, arguments.cold) == ("ext4", False):
        if arguments.two_fs:
            check_times_faster(result, group, what, RSYNC, RSYNC_TARGET)
        elif peers.FLOOR in names:  # below which nobody can get
            check_ratio(result, group, what, FLOOR_TARGET, peers.FLOOR)
        else:
            check_times_faster(result, group, what, RCLONE, RCLONE_TARGET)
    return result


def run_large(arguments):
    names = programs(arguments, peers.COPY)
    group = f"one file of {arguments.size >> 20} MiB"
    result = report.result("large", parameters(arguments, "size"),
                           {group: large(arguments, names)}, names)
    if not arguments.cold:
        check_ratio(result, group, described(arguments, group), 1.0)
        check_ratio(result, group, described(arguments, group), FLOOR_TARGET, peers.FLOOR)
    return result


def run_reflink(arguments):
    """Both copies where the file system can share blocks."""
    arguments.fs = "xfs, shared"
    names = programs(arguments, [CP])
    one, many = f"one file of {arguments.size >> 20} MiB", f"{arguments.files} small files"
    result = report.result("reflink", parameters(arguments, "files", "size"),
                           {one: large(arguments, names), many: tree(arguments, names)}, names)
    report.check(result, f"{one}, blocks shared: from start to finished",
                 report.median_of(result, one, OURS) * 1000, 100, "ms")
    check_ratio(result, many, f"{many}, blocks shared", 1.0)
    return result


def run_sparse(arguments):
    """A large file that is nearly all holes."""
    def fill(folder):
        data.make_sparse(folder)

    def check(source, dest, program):
        # cp -a leaves blocks in the holes of a file on XFS.
        data.compare_sparse(source / data.SPARSE, dest / data.SPARSE, blocks=program == OURS)

    names = programs(arguments, [CP, peers.FLOOR])
    group = (f"{data.SPARSE_SIZE >> 30} GiB file with {data.SPARSE_DATA >> 20} MiB of data, "
             "as many blocks as the source")
    result = report.result("sparse", parameters(arguments),
                           {group: measure(arguments, "sparse", 2 << 30, fill, names, check)}, names)
    check_ratio(result, group, described(arguments, group), 1.0)
    check_ratio(result, group, described(arguments, group), FLOOR_TARGET, peers.FLOOR)
    return result
