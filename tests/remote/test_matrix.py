"""Copies and moves between every two kinds of places."""
import os
import random
import shutil

import pytest

from stage import KINDS, MOUNTABLE, assert_same, content, write

BORDER = 10 << 20  # from this size on an FTP source streams

NAMES = ["plain", "a b", "#hash", "100%", "%41", "what?", 'quote"', "it's", "\u00fcn\u00ef\u2192", "a&b;c",
         "sub/deeper/file", "sub/~", "-rf"]
# Names that a kind of server has no way to take.
UNTAKEN = {}
# Each kind once as source and once as destination, and all that a local disk meets.
BORDER_CELLS = ({(kind, KINDS[(i + 1) % len(KINDS)]) for i, kind in enumerate(KINDS)}
                | {(kind, "local") for kind in KINDS} | {("local", kind) for kind in KINDS})
# Through real mounts, each kind once as source and once as destination.
MOUNTED_BORDER_CELLS = {("local", "webdav"), ("sftp", "ftp"), ("ftp", "local"), ("ftps", "sftp"), ("webdav", "ftps")}


def files_for(source, dest, full, border_cells):
    rng = random.Random(f"{source} {dest}")
    files = {name: rng.randbytes(rng.randrange(1, 3000)) for name in NAMES
             if name not in UNTAKEN.get(dest, ()) and name not in UNTAKEN.get(source, ())}
    files.update({"empty": b"", "one": b"1"})
    if full or (source, dest) in border_cells:
        files.update({"below": rng.randbytes(BORDER - 1), "border": rng.randbytes(BORDER)})
    if full:
        files["large"] = rng.randbytes(200 << 20)
        files.update({f"many/{i % 20}/{i}": rng.randbytes(rng.randrange(4000)) for i in range(500)})
    return files


def check_cell(stage, client, matrix, cell, files):
    """Copies and moves the files, and compares them in the server's own folder."""
    mount, source, dest = cell
    matrix[cell] = "FAILED"
    name = "-".join(cell)
    write(stage.folder(source) / name / "tree", files)
    for action in ("copied", "moved"):
        place = stage.folder(dest) / f"{name}-{action}"
        place.mkdir()
        data = client.run([stage.uri(source, f"{name}/tree")], stage.uri(dest, place.name),
                          remove_src=action == "moved")
        assert "errors" not in data, data["errors"]
        assert_same(place / "tree", files)
        assert os.listdir(place) == ["tree"]
        assert content(stage.folder(source) / name) == (
            {f"tree/{name}": data for name, data in files.items()} if action == "copied" else {})
        shutil.rmtree(place)
    matrix[cell] = "works"


@pytest.mark.parametrize("dest", KINDS)
@pytest.mark.parametrize("source", KINDS)
def test_cell(stage, client, needs, matrix, pytestconfig, source, dest):
    cell = ("folder", source, dest)
    matrix[cell] = "no server"
    needs(source, dest)
    full = pytestconfig.getoption("full")
    check_cell(stage, client, matrix, cell, files_for(source, dest, full, BORDER_CELLS))


@pytest.mark.parametrize("dest", ["local", *MOUNTABLE])
@pytest.mark.parametrize("source", ["local", *MOUNTABLE])
def test_cell_through_mounts(stage, mounted, needs, matrix, pytestconfig, source, dest):
    if source == dest == "local":
        return
    cell = ("mounted", source, dest)
    matrix[cell] = "no server"
    needs(source, dest)
    full = pytestconfig.getoption("full")
    check_cell(stage, mounted, matrix, cell, files_for(source, dest, full, MOUNTED_BORDER_CELLS))
