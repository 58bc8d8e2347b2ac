import collections
import os
import pathlib
import random
import sys
import time

import pytest

TESTS = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(TESTS / "e2e"), str(TESTS / "servers")]

from places import place  # noqa: E402, F401: a fixture
from server import Server  # noqa: E402
from throwaway import descendants, kill  # noqa: E402
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
                kill(pid)
            time.sleep(0.05)
