"""What ten times as many files cost: time per file, and the worker's memory."""
import copying
import data
import report
import stack
import volumes
from copying import CP, OURS, places, prepare, tree_size, turns
from memory import Peak

FEW, MANY = 30000, 300000


def copy(source, dest):
    """(seconds, peak memory of the worker in KiB)."""
    with stack.server({"in": source, "out": dest}) as client:
        peak = {}

        def started(task):
            peak["of"] = Peak(client.host("task", id=task)["data"]["pid"])

        seconds = client.run(["/in/tree"], "/out", started=started,
                             watch=lambda: peak["of"].look())
    return seconds, peak["of"].kib


def fill(files):
    def fill_volume(place):
        (place / "in").mkdir()
        data.make_tree(place / "in" / "tree", files)
    return fill_volume


def run(arguments):
    few, many = max(1, arguments.files // 10), arguments.files
    titles = {few: f"{few} files", many: f"{many} files"}
    seconds = {title: [] for title in titles.values()}
    # The file system's own growth, by the program that only copies.
    plain = {f"{title}, {CP}": [] for title in titles.values()}
    peaks = {title: [] for title in titles.values()}
    with volumes.Workshop(arguments.backing) as workshop:
        templates = {files: workshop.template(f"source-{files}", arguments.fs,
                                              tree_size(files), fill(files)) for files in titles}
        with places(workshop, templates[many], None) as (source, dest):  # counts for nobody
            prepare(source, dest, False)
            copy(source, dest)
        for files in turns(list(titles), arguments.rounds):
            with places(workshop, templates[files], None) as (source, dest):
                prepare(source, dest, False)
                taken, peak = copy(source, dest)
                if data.count(dest / "tree") != data.count(source / "tree"):
                    raise data.Different("the copy is not complete")
                seconds[titles[files]].append(taken)
                peaks[titles[files]].append(peak)
            with places(workshop, templates[files], None) as (source, dest):
                plain[f"{titles[files]}, {CP}"].append(
                    copying.copy(CP, source, dest, "tree", False))
    sizes = {title: files for files, one in titles.items() for title in (one, f"{one}, {CP}")}
    per_file = {"per 1000 files": {title: [taken / sizes[title] * 1000 for taken in all_]
                                   for title, all_ in (seconds | plain).items()}}
    result = report.result("scale", copying.parameters(arguments, "files"), per_file, [OURS],
                           (titles[few],))
    result["peak_kib"] = {title: max(found) for title, found in peaks.items()}
    what = copying.described(arguments, f"{many} files against {few}")
    report.check(result, f"{what}: cost per file, ratio",
                 report.median_of(result, "per 1000 files", titles[many])
                 / report.median_of(result, "per 1000 files", titles[few]), 1.1)
    grown = (report.median_of(result, "per 1000 files", f"{titles[many]}, {CP}")
             / report.median_of(result, "per 1000 files", f"{titles[few]}, {CP}"))
    result["peer_growth"] = grown
    report.check(result, f"{what}: peak memory of the worker, ratio",
                 max(peaks[titles[many]]) / min(peaks[titles[few]]), 1.1)
    return result


def table(result):
    report.table(result)
    print(f"\n    {CP}: cost per file grows by {result['peer_growth']:.2f}")
    for title, kib in result["peak_kib"].items():
        print(f"    {title}: worker's peak memory {kib / 1024:.1f} MiB")
