"""The command line against a running server."""
import json
import os
import signal
import subprocess
import time

from server import BUILD
from trees import assert_same, describe, make_tree


def fennox(server, *arguments, **options):
    environment = dict(os.environ, FENNOX_URL=f"http://127.0.0.1:{server.port}",
                       FENNOX_TOKEN=server.token)
    return subprocess.run([BUILD / "fennox", *arguments], env=environment, text=True,
                          capture_output=True, timeout=120, **options)


def test_copy_and_move_show_their_end_in_the_exit_status(server, place):
    original = describe(make_tree(place / "src" / "t"))
    done = fennox(server, "copy", "/src/t", "/dst")
    assert done.returncode == 0, done
    assert_same(place / "dst" / "t", original)
    clash = fennox(server, "copy", "/src/t", "/dst")
    assert clash.returncode == 2 and "/src/t" in clash.stderr
    assert fennox(server, "copy", "--skip", "/src/t", "/dst").returncode == 0
    assert fennox(server, "move", "--rename", "/src/t", "/dst").returncode == 0
    assert (place / "dst" / "t (1)").exists() and not (place / "src" / "t").exists()
    (place / "src" / "x").write_text("x")
    partly = fennox(server, "copy", "/src/x", "/src/missing", "/dst")
    assert partly.returncode == 1 and "/src/missing" in partly.stdout + partly.stderr


def test_detached_tasks_are_followed_listed_and_stopped(make_server, place):
    server = make_server(config='[bandwidth]\ndefault = "8MB"\n')
    with open(place / "src" / "big", "wb") as big:
        big.write(os.urandom(48 << 20))
    started = fennox(server, "copy", "--detach", "/src/big", "/dst")
    task = started.stdout.strip()
    assert started.returncode == 0 and task.startswith("Fennox_")
    assert task in fennox(server, "list").stdout
    assert json.loads(fennox(server, "task", "show", task).stdout)["id"] == task
    assert fennox(server, "status", task).returncode == 0
    assert fennox(server, "stop", task).returncode == 0
    assert fennox(server, "status", task).returncode == 2
    assert "big" in fennox(server, "ls", "/src").stdout


def test_interrupting_the_command_stops_the_task(make_server, place):
    server = make_server(config='[bandwidth]\ndefault = "8MB"\n')
    with open(place / "src" / "big", "wb") as big:
        big.write(os.urandom(48 << 20))
    environment = dict(os.environ, FENNOX_URL=f"http://127.0.0.1:{server.port}",
                       FENNOX_TOKEN=server.token)
    running = subprocess.Popen([BUILD / "fennox", "copy", "/src/big", "/dst"], env=environment,
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    while not server.client.host("tasks").data:
        time.sleep(0.02)
    time.sleep(0.3)
    running.send_signal(signal.SIGINT)
    running.communicate(timeout=30)
    assert running.returncode == 130
    assert server.client.host("tasks").data == []
    time.sleep(1)
    assert not (place / "dst" / "big").exists()


def test_json_output_is_the_servers_answer(server, place):
    (place / "src" / "x").write_text("x")
    done = fennox(server, "copy", "--json", "/src/x", "/dst")
    assert done.returncode == 0
    assert json.loads(done.stdout)["finished"] is True


def test_no_server_and_bad_usage_are_refused(server):
    broken = subprocess.run([BUILD / "fennox", "list"], text=True, capture_output=True,
                            env=dict(os.environ, FENNOX_URL="http://127.0.0.1:9", FENNOX_TOKEN="x"))
    assert broken.returncode == 2 and broken.stderr
    assert fennox(server, "copy", "/src/x").returncode == 2
    assert fennox(server, "copy", "--skip", "--overwrite", "/src/x", "/dst").returncode == 2
