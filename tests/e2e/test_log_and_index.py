"""The transfer log, and a search index that follows the files."""
import getpass
import sqlite3
import subprocess

from server import BUILD

LOG_ON = '[copymove]\nfilebrowserxferlog = "yes"\n'


def indexed(place):
    """Sizes by the paths, below the test's folder, in the index of volume "vol"."""
    file = place / "state" / "users" / getpass.getuser() / "search" / "vol.db"
    with sqlite3.connect(file) as db:
        return {(row[0].decode() if isinstance(row[0], bytes) else row[0]).removeprefix(f"{place}/"): row[1]
                for row in db.execute("SELECT path, size FROM files")}


def search_task(place, *locations):
    done = subprocess.run([BUILD / "tests" / "search_task", place / "state", getpass.getuser(),
                           "vol", *locations], capture_output=True, text=True, check=True)
    return done.stdout.strip()


def test_each_entry_gets_a_line_when_the_log_is_on(make_server, place):
    server = make_server(config=LOG_ON)
    (place / "src" / "a.txt").write_text("12345")
    (place / "src" / "folder").mkdir()
    server.client.run(["/src/a.txt", "/src/folder", "/src/missing"], "/dst")
    server.client.run(["/src/a.txt"], "/dst", remove_src=True, overwrite=True)
    lines = server.client.host("log").data
    got = {(l["text"], l["size"], l["action"], l["folder"]) for l in lines}
    assert got == {("/src/a.txt -> /dst/a.txt", 5, "copy", False),
                   ("/src/folder -> /dst/folder", 0, "copy", True),
                   ("/src/a.txt -> /dst/a.txt", 5, "move", False)}
    assert all(l["user"] == getpass.getuser() for l in lines)


def test_nothing_is_logged_when_the_log_is_off(server, place):
    (place / "src" / "x").write_text("x")
    server.client.run(["/src/x"], "/dst")
    assert server.client.host("log").data == []


def test_the_index_follows_files_within_its_locations(server, place):
    for name in ("new", "moved", "failed"):
        (place / "src" / name).write_text(name)
    (place / "dst" / "failed").mkdir()
    task = search_task(place, "/elsewhere", "/dst")
    run = server.client.run
    run(["/src/new", "/src/failed"], "/dst", overwrite=True, search_taskid=task)
    assert indexed(place) == {"dst/new": 3}
    run(["/src/moved"], "/dst", remove_src=True, search_taskid=task)
    assert indexed(place) == {"dst/new": 3, "dst/moved": 5}
    # What stood there is indexed anew only when it was replaced.
    (place / "src" / "new").write_text("newer")
    for overwrite, size in ((False, 3), (True, 5)):
        run(["/src/new"], "/dst", overwrite=overwrite, search_taskid=task)
        assert indexed(place) == {"dst/new": size, "dst/moved": 5}
    # Out of its locations: a move takes the record away, a copy and a failed move do not.
    run(["/dst/new"], "/src", overwrite=True, search_taskid=task)
    (place / "src" / "moved").mkdir()
    run(["/dst/moved"], "/src", remove_src=True, overwrite=True, search_taskid=task)
    assert indexed(place) == {"dst/new": 5, "dst/moved": 5}
    (place / "src" / "moved").rmdir()
    run(["/dst/moved"], "/src", remove_src=True, search_taskid=task)
    assert indexed(place) == {"dst/new": 5}


def test_an_unknown_search_task_is_logged_and_the_copy_completes(server, place):
    (place / "src" / "x").write_text("x")
    data = server.client.run(["/src/x"], "/dst", search_taskid="Search_none")
    assert data["progress"] == 1 and (place / "dst" / "x").exists()
    assert server.wait_log("TAVO.Fennox.CopyMove:1804 No such search task id")
