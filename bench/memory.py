"""Peak memory of a worker that copies very many small files."""
import pathlib

import data
import peers
import report
import stack
import volumes
from copying import OURS, places, prepare


class Peak:
    """The highest resident size of a process, asked for while it lives."""

    def __init__(self):
        self.kib = 0

    def look(self, pid):
        try:
            for line in pathlib.Path(f"/proc/{pid}/status").read_text("ascii").splitlines():
                if line.startswith("VmHWM:"):
                    self.kib = max(self.kib, int(line.split()[1]))
        except (FileNotFoundError, ProcessLookupError):
            pass  # the worker has ended


def copy(source, dest):
    peak = Peak()
    with stack.server({"in": source, "out": dest}) as client:
        client.run(["/in/tree"], "/out", watch=peak.look)
    return peak.kib


def run(arguments):
    # Files of a few bytes live in their inodes; this keeps the file systems small.
    inodes = int(arguments.files * 1.1) + 10000
    options = ["-O", "inline_data", "-I", "256", "-N", str(inodes)]
    size = (1 << 30) + inodes * 512
    peaks = {}
    with volumes.Workshop(arguments.backing) as workshop:
        source_template = workshop.template(
            "source", "ext4", size,
            lambda place: data.make_tiny(place / "in" / "tree", arguments.files), options)
        dest_template = workshop.template("dest", "ext4", size, None, options)
        for program in (OURS, "cp -a"):
            with places(workshop, source_template, dest_template) as (source, dest):
                prepare(source, dest, cold=False)
                if program == OURS:
                    peaks[program] = copy(source, dest)
                else:
                    peaks[program] = peers.timed(peers.COPY[program](f"{source}/tree", dest))[1]
                if data.count(dest / "tree") != data.count(source / "tree"):
                    raise data.Different("the copy is not complete")
    if not peaks[OURS]:
        raise RuntimeError("the worker ended before its memory could be read: use more files")
    result = report.result("memory", {"files": arguments.files}, {}, list(peaks))
    result["peak_kib"] = peaks
    return result


def table(result):
    report.heading(result)
    print()
    for program, kib in result["peak_kib"].items():
        print(f"    {program:8}  {kib / 1024:8.1f} MiB at most")
