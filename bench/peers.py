"""The programs that the server is measured against."""
import contextlib
import os
import pathlib
import shutil
import socket
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = pathlib.Path(os.environ.get("FENNOX_BUILD", ROOT / "build" / "release"))

# Just the system calls that a copy cannot do without, on two threads.
FLOOR = "needed calls"

# What copies the folder SOURCE as a folder of the same name into the folder DEST.
COPY = {
    "cp -a": lambda source, dest: ["cp", "-a", source, f"{dest}/"],
    "rsync -a": lambda source, dest: ["rsync", "-a", source, f"{dest}/"],
    # As it comes. It drops owners, modes and links, which makes it no slower.
    "rclone copy": lambda source, dest: [
        "rclone", "copy", source, f"{dest}/{os.path.basename(source)}"],
    FLOOR: lambda source, dest: [
        BUILD / "copy_floor", source, f"{dest}/{os.path.basename(source)}", "2", "final",
        "count"],
}


def installed(name):
    if name == FLOOR:
        return (BUILD / "copy_floor").exists()  # of the release preset
    return shutil.which(name.split()[0]) is not None


def available(names):
    """`names` without those that are not installed and cannot be installed."""
    if not all(installed(name) for name in names if name != FLOOR):
        subprocess.run([ROOT / "scripts" / "install-packages", "bench"], check=False)
    for name in names:
        if not installed(name):
            print(f"{name} is not installed; measuring without it", file=sys.stderr)
    return [name for name in names if installed(name)]


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_for_port(port, process, seconds=30):
    """Until somebody listens there; raises when `process` has ended."""
    end = time.monotonic() + seconds
    while time.monotonic() < end and process.poll() is None:
        with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", port), 5):
            return
        time.sleep(0.02)
    raise RuntimeError(f"{process.args[0]} does not listen on port {port}")


def timed(*commands):
    """Runs the commands one after the other. (seconds, peak memory of the last in KiB)."""
    environment = dict(os.environ, RCLONE_CONFIG="/dev/null")
    begin = time.perf_counter()
    peak = 0
    for command in commands:
        words = [str(word) for word in command]
        child = subprocess.Popen(words, env=environment, stdout=subprocess.DEVNULL,
                                 stderr=subprocess.PIPE, text=True)
        complaint = child.stderr.read()
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
        child.stderr.close()
        peak = usage.ru_maxrss
        if child.returncode != 0:
            raise RuntimeError(f"{' '.join(words[:6])}: {complaint.strip()[:500]}")
    return time.perf_counter() - begin, peak


def warm(name):
    """Brings the program itself into memory, so that only its data is cold."""
    version(name)


def version(name):
    if name == FLOOR:
        return "ours"
    command = name.split()[0]
    flag = "version" if command == "rclone" else "--version"
    done = subprocess.run([command, flag], capture_output=True, text=True)
    return done.stdout.splitlines()[0].strip() if done.stdout else "unknown"
