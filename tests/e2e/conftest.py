import os

import pytest

from places import place  # noqa: F401: a fixture
from server import Server


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
