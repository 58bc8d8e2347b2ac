"""What happens to a file that is there already, on every kind of destination."""
import pytest

from stage import KINDS, REMOTE, content, write

BIG = 11 << 20
CONFLICTS = [
    # request, what "x" holds afterwards, what "x (1)" holds, code of a refusal
    ({}, b"old", None, 1003),
    ({"overwrite": True}, b"new", None, None),
    ({"overwrite": False}, b"old", None, None),
    ({"overwrite": False, "rename": True}, b"old", b"new", None),
]


@pytest.mark.parametrize("move", [False, True], ids=["copy", "move"])
@pytest.mark.parametrize("dest", REMOTE)
def test_an_existing_file(stage, client, needs, dest, move):
    needs(dest)
    for number, (params, old, renamed, code) in enumerate(CONFLICTS):
        name = f"conflict-{dest}-{move}-{number}"
        source, place = stage.folder("local") / name, stage.folder(dest) / name
        write(source, {"x": b"new"})
        write(place, {"x": b"old"})
        answer = client.start([f"/local/{name}/x"], stage.uri(dest, name), remove_src=move, **params)
        if code:
            assert answer.code in (1000, 1001) and answer.detail[0]["code"] == code
        else:
            assert "errors" not in client.wait(answer.data["taskid"])
        assert content(place) == ({"x": old, "x (1)": renamed} if renamed else {"x": old}), params
        taken = b"new" in (old, renamed)
        assert (source / "x").exists() == (not move or not taken), params


@pytest.mark.parametrize("kind", REMOTE)
def test_a_move_within_one_mount_keeps_to_the_conflict_mode(stage, client, needs, kind):
    """Two entries, so that the two rename threads do it."""
    needs(kind)
    for number, (params, old, renamed, code) in enumerate(CONFLICTS):
        name = f"threads-{kind}-{number}"
        root = stage.folder(kind) / name
        write(root, {"from/x": b"new", "from/y": b"y", "to/x": b"old"})
        answer = client.start([stage.uri(kind, f"{name}/from/{file}") for file in "xy"],
                              stage.uri(kind, f"{name}/to"), remove_src=True, **params)
        if code:
            assert answer.code == 1001 and answer.detail[0]["code"] == code
            continue
        assert "errors" not in client.wait(answer.data["taskid"])
        wanted = {"to/x": old, "to/y": b"y"}
        if renamed:
            wanted["to/x (1)"] = renamed
        if b"new" not in (old, renamed):
            wanted["from/x"] = b"new"
        assert content(root) == wanted, params


@pytest.mark.parametrize("source", KINDS)
def test_a_big_file_replaces_a_bigger_one(stage, client, needs, source):
    needs(source, "sftp")
    name = f"bigger-{source}"
    write(stage.folder(source) / name, {"x": b"n" * BIG})
    write(stage.folder("sftp") / f"{name}-to", {"x": b"o" * (BIG + 5)})
    data = client.run([stage.uri(source, f"{name}/x")], stage.uri("sftp", f"{name}-to"), overwrite=True)
    assert "errors" not in data
    assert content(stage.folder("sftp") / f"{name}-to") == {"x": b"n" * BIG}


def test_names_are_written_in_the_code_page_of_the_mount(stage, needs):
    needs("sftp", "ftp")
    remotes = [stage.remote(kind, name=f"latin{kind}", code_page="ISO-8859-1") for kind in ("sftp", "ftp")]
    client = stage.open("latin", remotes=remotes)
    write(stage.folder("local") / "latin", {"größe": b"size", "folder é/a": b"in it"})
    for kind in ("sftp", "ftp"):
        place = stage.folder(kind) / "latin"
        place.mkdir()
        data = client.run(["/local/latin/größe", "/local/latin/folder é"], f"{kind}://latin{kind}/latin")
        assert "errors" not in data, data
        names = {name.encode("utf-8", "surrogateescape") for name in content(place)}
        assert names == {"größe".encode("latin-1"), "folder é/a".encode("latin-1")}
