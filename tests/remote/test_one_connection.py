"""An FTP mount that is told to use one connection, on a server with many and on one with one."""
import pytest

from ftp import FtpServer
from stage import Stage, assert_same, content, write
from throwaway import NotHere

FILES = {"one": b"1", "empty": b"", "sub/some": b"s" * 70000, "sub/deep/er": b"d"}


@pytest.mark.parametrize("max_clients", [0, 1])
def test_one_connection_neither_hangs_nor_costs_a_file(place, max_clients):
    stage = Stage(place, kinds=["local"])
    local, far = stage.folder("local"), stage.folder("ftp")
    far.mkdir()
    server = stage.servers["ftp"] = FtpServer(far, max_clients=max_clients)
    try:
        client = stage.open("one", remotes=[server.start().remote("ftp", "auto", max_connections=1,
                                                                  connect_timeout=5)])
        write(local / "t", FILES)
        for sources, dest in (["/local/t"], "ftp://ftp/"), (["ftp://ftp/t"], "/local/"):
            data = client.run(sources, dest, remove_src=True, overwrite=True)
            found = content(far / "t") | content(local / "t")
            assert {name: found.get(name) for name in FILES} == FILES
            if max_clients != 1:  # else the mount may lack a connection for what it does side by side
                assert "errors" not in data, data
        if max_clients != 1:
            assert_same(local, {f"t/{name}": data for name, data in FILES.items()})
            assert content(far) == {}
    except NotHere as reason:
        pytest.skip(str(reason))
    finally:
        stage.close()
