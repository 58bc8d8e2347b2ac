"""Tasks that are stopped, killed or robbed of their record."""
import contextlib
import os
import signal
import time

from trees import leftovers

SLOW = '[bandwidth]\ndefault = "8MB"\n'


def big_file(path, megabytes=64):
    with open(path, "wb") as file:
        for _ in range(megabytes):
            file.write(os.urandom(1 << 20))


def gone(pid):
    try:
        with open(f"/proc/{pid}/stat") as stat:
            return stat.read().rpartition(")")[2].split()[0] == "Z"
    except (FileNotFoundError, ProcessLookupError):
        return True


def wait_gone(pid, seconds):
    end = time.monotonic() + seconds
    while time.monotonic() < end and not gone(pid):
        time.sleep(0.01)
    return gone(pid)


def listening_inode(port):
    for line in open("/proc/net/tcp"):
        fields = line.split()
        if fields[1].endswith(f":{port:04X}") and fields[3] == "0A":
            return fields[9]
    raise AssertionError("nothing listens")


def running(client, task):
    return client.wait_record(task, lambda r: r["data"] and r["data"]["status"] == "PROCESSING")


def test_stop_ends_the_worker_and_leaves_no_partial_file(make_server, place):
    server = make_server(config=SLOW)
    (place / "src" / "t").mkdir()
    big_file(place / "src" / "t" / "big")
    task = server.client.start(["/src/t"], "/dst").data["taskid"]
    pid = running(server.client, task)["data"]["pid"]
    time.sleep(0.3)
    assert server.client.call("stop", taskid=task).get("success") is True
    assert wait_gone(pid, 5)
    assert server.client.status(task).code == 599
    assert server.client.call("stop", taskid=task).get("success") is True
    assert not (place / "dst" / "t" / "big").exists()
    assert leftovers(place / "dst") == []
    assert (place / "src" / "t" / "big").stat().st_size == 64 << 20


def test_running_workers_survive_the_server_and_dead_ones_are_noticed(make_server, place):
    server = make_server(config=SLOW)
    big_file(place / "src" / "a", 24)
    big_file(place / "src" / "b", 24)
    a = server.client.start(["/src/a"], "/dst").data["taskid"]
    b = server.client.start(["/src/b"], "/dst").data["taskid"]
    pids = [running(server.client, t)["data"]["pid"] for t in (a, b)]
    server.stop()
    assert not gone(pids[0]) and not gone(pids[1])
    os.kill(pids[1], signal.SIGKILL)
    assert wait_gone(pids[1], 5)
    server.start()
    assert server.client.wait_record(b, lambda r: r["finished"], 15)["progress"] == -1
    assert server.client.wait(a)["progress"] == 1
    assert (place / "dst" / "a").stat().st_size == 24 << 20


def test_worker_leaves_nothing_of_the_server_open(make_server, place):
    server = make_server(config=SLOW)
    big_file(place / "src" / "big", 24)
    task = server.client.start(["/src/big"], "/dst").data["taskid"]
    pid = running(server.client, task)["data"]["pid"]
    targets = []
    for entry in os.scandir(f"/proc/{pid}/fd"):
        with contextlib.suppress(FileNotFoundError):  # closed meanwhile, so not left open
            targets.append(os.readlink(entry.path))
    assert f"socket:[{listening_inode(server.port)}]" not in targets, targets
    # One store is its own, which it keeps open; a second one would be the server's.
    assert len([target for target in targets if target.endswith("tasks.db")]) <= 1, targets
    with open(f"/proc/{pid}/maps") as maps:
        sanitizer_threads = 1 if "libtsan" in maps.read() else 0
    assert len(os.listdir(f"/proc/{pid}/task")) == 1 + sanitizer_threads
    assert os.getsid(pid) == pid
    server.client.call("stop", taskid=task)
    assert wait_gone(pid, 5)
