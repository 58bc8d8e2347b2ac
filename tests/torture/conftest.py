import collections
import os
import pathlib
import random
import signal
import sys
import time

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "e2e"))

from places import place  # noqa: E402, F401: a fixture
from server import Server  # noqa: E402
from volumes import Volume  # noqa: E402

SEED = 20240229
TALLY = collections.OrderedDict()

needs_root = "needs root: mounts volumes of its own"


def pytest_addoption(parser):
    parser.addoption("--rounds", type=int, default=int(os.environ.get("FENNOX_TORTURE_ROUNDS", 0)),
                     help="rounds of each case; 0: a few")
    parser.addoption("--seed", type=int, default=int(os.environ.get("FENNOX_TORTURE_SEED", SEED)))


def pytest_configure(config):
    config.addinivalue_line("markers", "root: " + needs_root)


def pytest_collection_modifyitems(items):
    if os.geteuid() != 0:
        for item in items:
            if item.get_closest_marker("root"):
                item.add_marker(pytest.mark.skip(reason=needs_root))


def pytest_terminal_summary(terminalreporter):
    for case, counts in TALLY.items():
        terminalreporter.write_line(f"{case}: " + ", ".join(f"{n} {k}" for k, n in counts.items()))


@pytest.fixture
def tally(request):
    """Counts what the rounds of a case came to; shown at the end."""
    return TALLY.setdefault(request.node.name, collections.Counter())


@pytest.fixture
def rounds(request):
    """rounds(few): (number, random source) for each round; the same ones in every run."""
    def each(few):
        seed = request.config.getoption("--seed")
        for number in range(request.config.getoption("--rounds") or few):
            yield number, random.Random(f"{seed}/{request.node.name}/{number}")
    return each


@pytest.fixture
def make_volume(place):
    """make_volume("ext4", "name", megabytes): unmounted and removed with the test."""
    made = []

    def make(kind, name, *arguments, **options):
        # Noted first: a failed mkfs leaves an image behind, too.
        volume = Volume.__new__(Volume)
        volume.image = volume.faults = None
        volume.kind, volume.folder = kind, place / name
        made.append(volume)
        volume.__init__(kind, place / name, *arguments, **options)
        return volume

    yield make
    for volume in reversed(made):
        volume.remove()


def parents():
    """The parent of every process."""
    found = {}
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{pid}/stat") as stat:
                found[int(pid)] = int(stat.read().rpartition(")")[2].split()[1])
        except (FileNotFoundError, ProcessLookupError):
            pass
    return found


def descendants(pid):
    parent_of, found = parents(), {pid}
    grown = True
    while grown:
        more = {p for p, parent in parent_of.items() if parent in found} - found
        found |= more
        grown = bool(more)
    return found - {pid}


@pytest.fixture
def make_server(place, make_volume):
    """Servers that end with the test, their workers with them."""
    servers = []

    def make(shares, config=None, state=None, auth=""):
        state = state or place / "state"
        state.mkdir(exist_ok=True)
        server = Server(state, shares, config=config, auth=auth)
        server.log = place / "log"
        servers.append(server)
        return server.start()

    yield make
    for server in servers:
        if not server.process:
            continue
        started = descendants(server.process.pid)
        try:
            server.stop()
        finally:
            # A worker outlives its server; its volumes are about to go.
            for pid in started:
                try:
                    os.kill(pid, signal.SIGKILL)
                except ProcessLookupError:
                    pass
            time.sleep(0.05)
