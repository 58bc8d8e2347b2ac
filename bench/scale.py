"""What ten times as many files cost: time per file, and the worker's memory."""
import copying
import data
import peers
import report
import stack
import volumes
from copying import CP, OURS, places, prepare, tree_size, turns
from memory import Peak

FEW, MANY = 30000, 300000


def copy(source, dest, memory=0):
    """(seconds, peak memory of the worker in KiB) of a copy that takes so many bytes of memory."""
    peak = Peak()
    with stack.server({"in": source, "out": dest}) as client:
        volumes.touch_free_memory(memory)
        seconds = client.run(["/in/tree"], "/out", watch=peak.look)
    return seconds, peak.kib


def fill(files):
    def fill_volume(place):
        (place / "in").mkdir()
        data.make_tree(place / "in" / "tree", files)
    return fill_volume


def run(arguments):
    few, many = max(1, arguments.files // 10), arguments.files
    titles = {few: f"{few} files", many: f"{many} files"}
    seconds = {title: [] for title in titles.values()}
    # The file system's own growth, by programs that only copy.
    others = [name for name in (CP, peers.FLOOR) if peers.installed(name)]
    plain = {f"{title}, {name}": [] for name in others for title in titles.values()}
    peaks = {title: [] for title in titles.values()}
    with volumes.held_back_writes(), volumes.Workshop(arguments.backing) as workshop:
        templates = {files: workshop.template(f"source-{files}", arguments.fs,
                                              tree_size(files), fill(files)) for files in titles}
        with places(workshop, templates[many], None) as (source, dest):  # counts for nobody
            prepare(source, dest, False)
            copy(source, dest)
        for files in turns(list(titles), arguments.rounds):
            with places(workshop, templates[files], None) as (source, dest):
                memory = 2 * data.allocated(source / "tree")
                prepare(source, dest, False)
                taken, peak = copy(source, dest, memory)
                if data.count(dest / "tree") != data.count(source / "tree"):
                    raise data.Different("the copy is not complete")
                seconds[titles[files]].append(taken)
                peaks[titles[files]].append(peak)
            for name in others:
                with places(workshop, templates[files], None) as (source, dest):
                    plain[f"{titles[files]}, {name}"].append(
                        copying.copy(name, source, dest, "tree", False))
    sizes = {title: files for files, one in titles.items()
             for title in (one, *(f"{one}, {name}" for name in others))}
    per_file = {"per 1000 files": {title: [taken / sizes[title] * 1000 for taken in all_]
                                   for title, all_ in (seconds | plain).items()}}
    result = report.result("scale", copying.parameters(arguments, "files"), per_file, [OURS],
                           (titles[few],))
    result["peak_kib"] = {title: max(found) for title, found in peaks.items()}
    what = copying.described(arguments, f"{many} files against {few}")

    def growth(suffix=""):
        return (report.median_of(result, "per 1000 files", titles[many] + suffix)
                / report.median_of(result, "per 1000 files", titles[few] + suffix))

    report.check(result, f"{what}: cost per file, ratio", growth(), 1.1)
    result["peer_growth"] = {name: growth(f", {name}") for name in others}
    if peers.FLOOR in others:  # nobody grows less
        report.check(result, f"{what}: the same against the growth of `{peers.FLOOR}`",
                     growth() / result["peer_growth"][peers.FLOOR], copying.FLOOR_TARGET)
    report.check(result, f"{what}: peak memory of the worker, ratio",
                 max(peaks[titles[many]]) / min(peaks[titles[few]]), 1.1)
    return result


def table(result):
    report.table(result)
    print()
    for name, grown in result["peer_growth"].items():
        print(f"    {name}: cost per file grows by {grown:.2f}")
    for title, kib in result["peak_kib"].items():
        print(f"    {title}: worker's peak memory {kib / 1024:.1f} MiB")
