"""Stops, lost servers and servers that do not let us in."""
import contextlib
import os
import shutil
import socket
import threading

import pytest

from stage import (MOUNTABLE, NO_PERMISSION, NO_SPACE, REMOTE, REMOTE_IO, UNREACHABLE, content, moved_some, run,
                   wait_for, write)

BIG = 24 << 20
OLD = b"what stood there before"
BIG_FILE = bytes(range(256)) * (BIG // 256)
# Every kind as source and as destination, and one pair of servers.
WAYS = [("local", kind) for kind in REMOTE] + [(kind, "local") for kind in REMOTE] + [("sftp", "ftp")]
STREAMED = [way for way in WAYS if "dropbox" not in way]


def big_move(stage, slow, name, source, dest):
    """A move of a big file, over an older one, that has come to its middle."""
    shutil.rmtree(stage.folder(source) / name, ignore_errors=True)
    write(stage.folder(source) / name, {"big": BIG_FILE})
    place = stage.folder(dest) / f"{name}-to"
    write(place, {"big": OLD})
    task = slow.start([stage.uri(source, f"{name}/big")], stage.uri(dest, place.name),
                      remove_src=True, overwrite=True).data["taskid"]
    pid = moved_some(slow, task)
    return task, pid, stage.folder(source) / name, place


@pytest.mark.parametrize("source, dest", WAYS)
def test_a_stop_in_mid_file_leaves_what_stood_there(stage, slow, needs, source, dest):
    needs(source, dest)
    task, pid, origin, place = big_move(stage, slow, f"stop-{source}-{dest}", source, dest)
    assert slow.call("stop", taskid=task).get("success") is True
    wait_for(lambda: not os.path.exists(f"/proc/{pid}"), "the worker ends", 15)
    assert slow.status(task).code == 599
    wait_for(lambda: content(place) == {"big": OLD}, "the destination is as it was", 5)
    assert content(origin) == {"big": BIG_FILE}


@pytest.mark.parametrize("source, dest", STREAMED)
def test_a_server_that_dies_in_mid_file_costs_nothing(stage, slow, needs, source, dest):
    needs(source, dest)
    name = f"death-{source}-{dest}"
    task, _, origin, place = big_move(stage, slow, name, source, dest)
    dying = dest if dest != "local" else source
    stage.servers[dying].stop()
    try:
        data = slow.wait(task, 60)
        assert [error["code"] for error in data["errors"]] == [UNREACHABLE]
        assert content(origin) == {"big": BIG_FILE}
        assert content(place)["big"] == OLD
    finally:
        stage.servers[dying].start()
    # It is not only whole: the same move works once the server is back.
    data = slow.run([stage.uri(source, f"{name}/big")], stage.uri(dest, place.name), remove_src=True,
                    overwrite=True)
    assert "errors" not in data and content(origin) == {}
    assert content(place)["big"] == BIG_FILE


@pytest.mark.parametrize("source, dest", STREAMED)
def test_a_connection_that_breaks_is_taken_up_again(stage, slow, needs, source, dest):
    needs(source, dest)
    broken = dest if dest != "local" else source
    task, _, origin, place = big_move(stage, slow, f"break-{source}-{dest}", source, dest)
    stage.servers[broken].end_sessions()
    data = slow.wait(task, 60)
    assert "errors" not in data, data["errors"]
    assert content(origin) == {} and content(place) == {"big": BIG_FILE}


@pytest.mark.parametrize("kind", MOUNTABLE)
def test_a_connection_that_breaks_in_a_tree_on_a_mount_costs_nothing(stage, slow_mounted, needs, kind):
    needs(kind)
    for source, dest in ((kind, "local"), ("local", kind)):
        name = f"mount-break-{source}-{dest}"
        files = {f"d{i % 3}/f{i}": bytes([i]) * (1 << 20) for i in range(12)}
        origin, place = stage.folder(source) / name, stage.folder(dest) / f"{name}-to"
        write(origin / "t", files)
        place.mkdir()

        def start():
            return slow_mounted.start([stage.uri(source, f"{name}/t")], stage.uri(dest, place.name),
                                      remove_src=True, overwrite=True).data["taskid"]

        task = start()
        moved_some(slow_mounted, task, 4)
        stage.servers[kind].end_sessions()
        errors = slow_mounted.wait(task).get("errors", [])
        assert {error["code"] for error in errors} <= {UNREACHABLE, REMOTE_IO}
        here, there = content(origin / "t"), content(place / "t")
        lost = [file for file in files if files[file] not in (here.get(file), there.get(file))]
        half = [file for file in files if there.get(file, files[file]) != files[file]]
        assert (lost, half) == ([], [])
        for _ in range(3):  # the mount may hold more connections that are broken
            if errors:
                errors = slow_mounted.wait(start()).get("errors", [])
        assert not errors
        assert content(place) == {f"t/{file}": data for file, data in files.items()}
        assert content(origin) == {}


@pytest.mark.parametrize("fault, cases", [
    ("death", [("sftp", "local", "t")]),
    # Trees wait on the mount, big files in a stream; all at the same time.
    ("hang", [(kind, "local", "t") for kind in ("sftp", "ftp", "webdav")]),
    ("hang", [("local", kind, "big") for kind in ("sftp", "ftp", "webdav")]),
], ids=["death", "hang-tree", "hang-upload"])
def test_a_server_that_is_lost_ends_the_task_in_bounded_time(stage, slow_mounted, needs, fault, cases):
    needs(*{kind for case in cases for kind in case[:2]})
    trees = {"t": {f"t/d{i}/f": bytes([i]) * (1 << 20) for i in range(12)}, "big": {"big": BIG_FILE}}

    def start(source, dest, what):
        return slow_mounted.start([stage.uri(source, f"lost-{fault}-{what}-{dest}/{what}")],
                                  stage.uri(dest, f"lost-{fault}-{what}-{source}"), remove_src=True,
                                  overwrite=True).data["taskid"]

    def found(source, dest, what):
        return (content(stage.folder(source) / f"lost-{fault}-{what}-{dest}"),
                content(stage.folder(dest) / f"lost-{fault}-{what}-{source}"))

    tasks, results = {}, {}
    with contextlib.ExitStack() as lost:
        for source, dest, what in cases:
            write(stage.folder(source) / f"lost-{fault}-{what}-{dest}", trees[what])
            (stage.folder(dest) / f"lost-{fault}-{what}-{source}").mkdir(exist_ok=True)
            tasks[source, dest, what] = start(source, dest, what)
            moved_some(slow_mounted, tasks[source, dest, what], 4)
            server = stage.servers[dest if source == "local" else source]
            lost.enter_context(server.hanging() if fault == "hang" else server.away())
        for (source, dest, what), task in tasks.items():
            errors = slow_mounted.wait(task, 90)["errors"]
            here, there = found(source, dest, what)
            there = {name: data for name, data in there.items() if ".fennox-upload-" not in name}
            whole = {**there, **here} == trees[what] and there.items() <= trees[what].items()
            results[source, dest] = [error["code"] for error in errors], whole
    assert results == {case[:2]: ([UNREACHABLE], True) for case in cases}
    for source, dest, what in cases:  # the next request mounts anew
        assert "errors" not in slow_mounted.wait(start(source, dest, what))
        assert found(source, dest, what) == ({}, trees[what])


class Silent:
    """A port that takes connections and says nothing."""

    def __enter__(self):
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.held = []
        threading.Thread(target=self.take, daemon=True).start()
        return self.listener.getsockname()[1]

    def take(self):
        try:
            while True:
                self.held.append(self.listener.accept()[0])
        except OSError:
            pass

    def __exit__(self, *_):
        self.listener.close()


def test_servers_that_must_not_be_used_are_refused_in_bounded_time(stage, needs):
    needs("sftp", "ftp", "ftps")
    own = stage.place / "refused-files"
    own.mkdir()
    wrong = own / "wrong"
    wrong.write_text("not the password\n")
    wrong.chmod(0o600)
    (own / "known_hosts").write_text("")
    with Silent() as silent, socket.socket() as closed:
        closed.bind(("127.0.0.1", 0))  # taken, but nobody listens
        nobody = closed.getsockname()[1]
        cases = [
            ("sftp", "password", {"password_file": wrong, "key_file": ""}, NO_PERMISSION),
            ("ftp", "password", {"password_file": wrong}, NO_PERMISSION),
            ("sftp", "hostkey", {"known_hosts": own / "known_hosts"}, NO_PERMISSION),
            ("ftps", "certificate", {"ca_file": ""}, NO_PERMISSION),
            ("sftp", "refused", {"port": nobody}, UNREACHABLE),
            ("ftp", "refused", {"port": nobody}, UNREACHABLE),
            ("ftp", "silent", {"port": silent}, UNREACHABLE),
            ("sftp", "silent", {"port": silent}, UNREACHABLE),
        ]
        client = stage.open("refusing", remotes=[stage.remote(kind, name=kind + fault, **values)
                                                 for kind, fault, values, _ in cases])
        for kind, fault, _, code in cases:
            name = f"refused-{kind}-{fault}"
            write(stage.folder("local"), {name: b"kept"})
            (stage.folder(kind) / name).mkdir()
            data = client.wait(client.start([f"/local/{name}"], f"{kind}://{kind}{fault}/{name}",
                                            remove_src=True).data["taskid"], 60)
            assert [error["code"] for error in data["errors"]] == [code], (kind, fault, data)
            assert content(stage.folder(kind) / name) == {}
            assert (stage.folder("local") / name).read_bytes() == b"kept"
    log = stage.open_servers[-1].log_text()
    assert "not the password" not in log and "s3cret" not in log


@pytest.mark.parametrize("dest, codes", [
    # An SSH server only says "failure"; an FTP server says that it cannot write.
    ("sftp", (REMOTE_IO,)), ("ftp", (REMOTE_IO, NO_SPACE)), ("ftps", (REMOTE_IO, NO_SPACE)),
])
def test_a_full_disk_at_the_server_is_told_and_leaves_nothing(stage, client, needs, dest, codes):
    needs(dest)
    place = stage.folder(dest) / "full"
    place.mkdir()
    if not run("mount", "-t", "tmpfs", "-o", "size=4m", "none", place):
        pytest.skip("no right to mount a small volume")
    try:
        write(stage.folder("local") / f"full-{dest}", {"big": BIG_FILE, "small": b"fits"})
        data = client.run([f"/local/full-{dest}/{name}" for name in ("big", "small")], stage.uri(dest, "full"),
                          remove_src=True)
        assert [error["code"] for error in data["errors"]][0] in codes
        assert content(place) == {"small": b"fits"}
        assert content(stage.folder("local") / f"full-{dest}") == {"big": BIG_FILE}
    finally:
        wait_for(lambda: run("umount", place), "the server has left the full volume", 30)
