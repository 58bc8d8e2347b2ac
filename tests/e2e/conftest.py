import os
import pathlib
import shutil
import tempfile

import pytest

from server import Server


@pytest.fixture
def place():
    """A folder that every user may pass through, removed afterwards."""
    path = pathlib.Path(tempfile.mkdtemp(prefix="fennox-e2e-"))
    path.chmod(0o755)
    yield path
    shutil.rmtree(path, ignore_errors=True)


@pytest.fixture
def make_server(place):
    """Starts servers that end with the test: make_server(config=…, shares=…)."""
    servers = []

    def make(**options):
        shares = options.pop("shares", None)
        if shares is None:
            shares = {name: place / name for name in ("src", "dst")}
        for path in shares.values():
            os.makedirs(path, exist_ok=True)
        state = place / "state"
        state.mkdir(exist_ok=True)
        server = Server(state, shares, **options).start()
        servers.append(server)
        return server

    yield make
    for server in servers:
        server.stop()


@pytest.fixture
def server(make_server):
    return make_server()
