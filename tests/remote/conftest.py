import os
import pathlib
import shutil
import tempfile

import pytest

from stage import KINDS, MOUNTABLE, Stage
from places import place  # noqa: E402, F401: a fixture

RESULTS = {}
SLOW = '[bandwidth]\ndefault = "10MB"\n'


def pytest_addoption(parser):
    parser.addoption("--full", action="store_true", help="also 200 MiB and 500 files in every cell")
    parser.addoption("--rounds", type=int, default=3, help="kills of a server in a running move, per direction")


@pytest.fixture(scope="session")
def stage():
    place = pathlib.Path(tempfile.mkdtemp(prefix="fennox-remote-"))
    place.chmod(0o755)
    stage = Stage(place)
    yield stage
    stage.close()
    shutil.rmtree(place, ignore_errors=True)


@pytest.fixture(scope="session")
def client(stage):
    return stage.open("fast")


def with_mounts(stage, name, config=""):
    """A fennoxd that mounts every server that it can by itself."""
    if not os.access("/dev/fuse", os.R_OK | os.W_OK):
        pytest.skip("FUSE is not available here")
    return stage.open(name, config, [stage.remote(kind, mount="auto", connect_timeout=10)
                                     for kind in MOUNTABLE if kind in stage.servers])


@pytest.fixture(scope="session")
def mounted(stage):
    return with_mounts(stage, "mounted")


@pytest.fixture(scope="session")
def slow_mounted(stage):
    return with_mounts(stage, "slow-mounted", SLOW)


@pytest.fixture(scope="session")
def slow(stage):
    """Moves 10 MB a second, so that there is a middle of a file."""
    return stage.open("slow", SLOW)


@pytest.fixture
def needs(stage):
    def check(*kinds):
        for kind in kinds:
            if kind in stage.missing:
                pytest.skip(stage.missing[kind])
    return check


@pytest.fixture
def matrix():
    return RESULTS


def pytest_terminal_summary(terminalreporter):
    for mount in sorted({mount for mount, _, _ in RESULTS}):
        terminalreporter.section(f"{mount}: from (down), to (across)")
        terminalreporter.line(" " * 10 + "".join(f"{kind:>10}" for kind in KINDS))
        for source in KINDS:
            terminalreporter.line(f"{source:>10}" + "".join(
                f"{RESULTS.get((mount, source, dest), '-'):>10}" for dest in KINDS))
