"""Copies to and from servers of other makers, next to other programs for the same work.

The servers are throw-away ones on loopback ports, everything lies in memory: the figures
tell what the programs cost, not what a network does.
"""
import contextlib
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time
import urllib.parse

import copying
import data
import peers
import report
import stack
from copying import OURS
from memory import Peak

sys.path.insert(0, str(peers.ROOT / "tests" / "servers"))
import ftp  # noqa: E402
import sftp  # noqa: E402
import webdav  # noqa: E402

SERVERS = {"sftp": sftp.SftpServer, "ftp": ftp.FtpServer, "webdav": webdav.WebdavServer}
RCLONE, RCLONE_ONE = "rclone copy", "rclone copy --transfers 1"
UP, DOWN = "up", "down"
WORKS = {"large": "large", "small": "tree"}
SMALL_TARGET, MEMORY_TARGET = 2, 64  # times as fast as rclone with one transfer; MiB


class Far:
    """A server, and how other programs reach it. No password is in a command line."""

    def __init__(self, server):
        self.server, self.port = server, server.port
        self.settings = server.settings()
        self.user = self.settings["user"]

    def password(self):
        return pathlib.Path(self.settings["password_file"]).read_text(encoding="utf-8").strip()

    def rclone_environment(self):
        facts = {"TYPE": self.server.protocol, "HOST": "127.0.0.1", "PORT": self.port,
                 "USER": self.user}
        if self.server.protocol == "sftp":
            facts |= {"KEY_FILE": self.settings["key_file"],
                      "KNOWN_HOSTS_FILE": self.settings["known_hosts"],
                      # Or it starts a shell on the server for each file, to sum it up.
                      "SHELL_TYPE": "none"}
        else:
            facts["PASS"] = subprocess.run(["rclone", "obscure", "-"], input=self.password(),
                                           capture_output=True, text=True, check=True).stdout.strip()
        if self.server.protocol == "webdav":
            facts |= {"URL": f"http://127.0.0.1:{self.port}", "VENDOR": "other"}
        return {f"RCLONE_CONFIG_FAR_{key}": str(value) for key, value in facts.items()} | {
            "RCLONE_CONFIG": "/dev/null"}


def run(command, text="", environment=None):
    """Seconds; `text` goes to the command's standard input."""
    begin = time.perf_counter()
    done = subprocess.run([str(word) for word in command], input=text, text=True,
                          capture_output=True, env=dict(os.environ, **(environment or {})))
    seconds = time.perf_counter() - begin
    if done.returncode != 0:
        raise RuntimeError(f"{command[0]}: {done.stderr.strip()[-500:]}")
    return seconds


def run_rclone(far, source, dest, direction, *options):
    place = dest / source.name
    ends = (source, f"far:{place}") if direction == UP else (f"far:{source}", place)
    if far.server.protocol == "ftp":
        # By several streams a large file came with wrong bytes, or not at all (426).
        options = (*options, "--multi-thread-streams", "0")
    return run(["rclone", "copy", *options, *ends], environment=far.rclone_environment())


def run_rclone_one(far, source, dest, direction):
    return run_rclone(far, source, dest, direction, "--transfers", "1")


def run_sftp(far, source, dest, direction):
    verb = "put" if direction == UP else "get"
    return run(["sftp", "-q", "-b", "-", "-P", far.port, "-i", far.settings["key_file"],
                "-o", f"UserKnownHostsFile={far.settings['known_hosts']}",
                "-o", "IdentitiesOnly=yes", f"{far.user}@127.0.0.1"],
               f"{verb} -R {source} {dest}\n")


def run_lftp(far, source, dest, direction):
    back = "-R " if direction == UP else ""
    return run(["lftp"], f"set cmd:fail-exit yes\nset ftp:ssl-allow no\n"
               f'open -p {far.port} -u "{far.user}","{far.password()}" ftp://127.0.0.1\n'
               f"mirror {back}{source} {dest / source.name}\n")


def run_curl(far, source, dest, direction):
    """One process and one connection for all files."""
    def url(path):
        return f"http://127.0.0.1:{far.port}{urllib.parse.quote(str(path))}"

    place = dest / source.name
    user = f'user = "{far.user}:{far.password()}"\n'
    lines = [user, "fail\n", "silent\n", "show-error\n"]
    for folder, folders, files in os.walk(source):
        there = place / os.path.relpath(folder, source)
        if direction == UP:
            lines.append(f'url = "{url(there)}/"\nrequest = "MKCOL"\noutput = "/dev/null"\nnext\n'
                         f"{user}fail\nsilent\nshow-error\n")
        else:
            there.mkdir(parents=True)
    for folder, folders, files in os.walk(source):
        there = place / os.path.relpath(folder, source)
        for name in files:
            here = pathlib.Path(folder) / name
            lines.append(f'url = "{url(there / name)}"\nupload-file = "{here}"\n'
                         f'output = "/dev/null"\n' if direction == UP else
                         f'url = "{url(here)}"\noutput = "{there / name}"\n')
    return run(["curl", "--config", "-"], "".join(lines))


PEERS = {
    "sftp": {RCLONE: run_rclone, RCLONE_ONE: run_rclone_one, "sftp": run_sftp},
    "ftp": {RCLONE: run_rclone, RCLONE_ONE: run_rclone_one, "lftp": run_lftp},
    "webdav": {RCLONE: run_rclone, RCLONE_ONE: run_rclone_one, "curl": run_curl},
}


class Bench:
    """Folders on both sides of one server."""

    def __init__(self, folder, far, arguments):
        self.far, self.arguments = far, arguments
        self.near, self.distant = folder / "near", folder / "distant"
        self.peak = Peak()
        for side in (self.near, self.distant):
            data.make_tree(side / "in" / "tree", arguments.files)
            data.make_large(side / "in" / "large", arguments.size)

    def ours(self, source, dest, direction):
        protocol = self.far.server.protocol
        remote = self.far.server.remote("bench", "auto", path=self.distant)
        with stack.server({"near": self.near}, remote) as client:
            def path(place):
                side = self.near if direction == UP else self.distant
                if place is dest:
                    side = self.distant if direction == UP else self.near
                scheme = "/near" if side is self.near else f"{protocol}://bench"
                return f"{scheme}/{place.relative_to(side)}"

            # The mount is made when it is first needed, and stays: not what a task costs.
            client.host("list", path=f"{protocol}://bench/in")
            return client.run([path(source)], path(dest), watch=self.peak.look)

    def copy(self, program, name, direction):
        here, there = (self.near, self.distant) if direction == UP else (self.distant, self.near)
        source, dest = here / "in" / name, there / "out"
        dest.mkdir()
        try:
            if program == OURS:
                seconds = self.ours(source, dest, direction)
            else:
                seconds = PEERS[self.far.server.protocol][program](self.far, source, dest, direction)
            data.compare(source, dest / name)
        finally:
            shutil.rmtree(dest, ignore_errors=True)
        return seconds


def measure(protocol, arguments):
    """({title: {program: [seconds, …]}}, peak memory of our worker in KiB)."""
    names = [OURS, *(name for name in peers.available(PEERS[protocol])
                     if name not in arguments.without)]
    groups = {}
    with contextlib.ExitStack() as stack_:
        folder = pathlib.Path(stack_.enter_context(
            tempfile.TemporaryDirectory(prefix="fennox-bench-", dir=arguments.backing)))
        far = Far(stack_.enter_context(SERVERS[protocol](folder / "distant")))
        bench = Bench(folder, far, arguments)
        for name in works(arguments):
            # With several transfers it is no peer for small files, and slow with WebDAV.
            programs = [one for one in names if name == "large" or one != RCLONE]
            for direction in (UP, DOWN):
                seconds = groups[title(protocol, name, direction, arguments)] = {}
                for program in copying.turns(programs, arguments.rounds):
                    if name == "tree" and len(seconds.get(program, [])) >= most(program, arguments):
                        continue
                    seconds.setdefault(program, []).append(bench.copy(program, name, direction))
    return groups, bench.peak.kib


def works(arguments):
    return [WORKS[arguments.work]] if arguments.work else list(WORKS.values())


def most(program, arguments):
    """Rounds with small files: rclone waits ten milliseconds between two requests to WebDAV."""
    return arguments.peer_rounds if program == RCLONE_ONE else arguments.rounds


def title(protocol, name, direction, arguments):
    what = (f"one file of {arguments.size >> 20} MiB" if name == "large"
            else f"{arguments.files} small files")
    return f"{protocol}: {what}, {direction}"


def check(result, protocol, arguments):
    for direction in (UP, DOWN):
        check_work(result, protocol, direction, arguments)
    report.check(result, f"{protocol}: peak memory of the worker",
                 result["peak_kib"][protocol] / 1024, MEMORY_TARGET, "MiB")


def check_work(result, protocol, direction, arguments):
    if "large" in works(arguments):
        group = title(protocol, "large", direction, arguments)
        fastest = min((row["median"], row["program"]) for row in result["rows"]
                      if row["group"] == group and row["program"] != OURS)
        report.check(result, f"{group}: ratio to the fastest of the others, `{fastest[1]}`",
                     report.median_of(result, group, OURS) / fastest[0], 1.0)
    if "tree" in works(arguments):
        group = title(protocol, "tree", direction, arguments)
        copying.check_times_faster(result, group, group, RCLONE_ONE, SMALL_TARGET)


def run_all(arguments):
    groups, peaks = {}, {}
    for protocol in arguments.protocol or SERVERS:
        found, peaks[protocol] = measure(protocol, arguments)
        groups |= found
    result = report.result("remote", {"rounds": arguments.rounds, "files": arguments.files,
                                      "size": arguments.size},
                           groups, ["rclone copy", "lftp", "curl"], (RCLONE_ONE,))
    result["peak_kib"] = peaks
    for protocol in peaks:
        check(result, protocol, arguments)
    return result
