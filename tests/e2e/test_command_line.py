"""The command line against a running server."""
import contextlib
import json
import os
import pathlib
import signal
import subprocess
import sys
import time

import pytest

from server import BUILD, ROOT, command_line_alone, environment, fennox
from trees import assert_same, describe, make_tree

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "servers"))
from sftp import SftpServer  # noqa: E402
from throwaway import NotHere  # noqa: E402


def big_file(place, megabytes):
    (place / "src" / "big").write_bytes(os.urandom(megabytes << 20))


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
    big_file(place, 48)
    started = fennox(server, "copy", "--detach", "/src/big", "/dst")
    task = started.stdout.strip()
    assert started.returncode == 0 and task.startswith("Fennox_")
    assert task in fennox(server, "list").stdout
    assert json.loads(fennox(server, "task", "show", task).stdout)["id"] == task
    assert fennox(server, "status", task).returncode == 0
    assert fennox(server, "stop", task).returncode == 0
    assert fennox(server, "status", task).returncode == 2
    again = fennox(server, "stop", task)
    assert again.returncode == 2 and again.stderr == "fennox: not stopped: The task does not exist (599)\n"
    assert "big" in fennox(server, "ls", "/src").stdout


def test_interrupting_the_command_stops_the_task(make_server, place):
    server = make_server(config='[bandwidth]\ndefault = "8MB"\n')
    big_file(place, 48)
    running = subprocess.Popen([BUILD / "fennox", "copy", "/src/big", "/dst"], env=environment(server),
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


def test_refusals_are_json_too_and_keep_their_exit_status(server, place, tmp_path):
    def refused(done, kind, code, status=2):
        assert done.returncode == status and done.stderr == "", done
        error = json.loads(done.stdout)["error"]
        assert (error["kind"], error["code"]) == (kind, code) and error["message"], error
        return error

    (place / "src" / "x").write_text("x")
    (place / "dst" / "x").write_text("there")
    clash = refused(fennox(server, "copy", "--json", "/src/x", "/dst"), "refused", 1000)
    assert clash["detail"] == [{"code": 1003, "path": "/src/x"}]
    refused(fennox(server, "ls", "--json", "/src/none"), "refused", 460)
    for words in (["status", "--watch"], ["status"], ["stop"]):
        refused(fennox(server, *words, "--json", "Fennox_none"), "refused", 599)
    refused(fennox(server, "task", "show", "--json", "Fennox_none"), "refused", 599)
    refused(fennox(server, "remote", "check", "--json", "none"), "refused", 470)
    refused(fennox(server, "ls", "--json", ""), "usage", 0)
    refused(fennox(server, "copy", "--json", "/src/x"), "usage", 0)
    refused(fennox(server, "log", "--json", "--limit", "0"), "usage", 0)
    alone = command_line_alone(server, tmp_path)
    for words in (["list"], ["watch"], ["log"], ["logout", "--all"]):
        assert refused(alone(*words, "--json"), "http", 407)["http_status"] == 401
    assert refused(alone("login", "--json", input="0" * 64 + "\n"), "http", 407)["http_status"] == 401
    server.stop()
    refused(fennox(server, "list", "--json"), "unreachable", 0)


def test_no_server_and_bad_usage_are_refused(server):
    broken = fennox(server, "list", env=dict(os.environ, FENNOX_URL="http://127.0.0.1:9", FENNOX_TOKEN="x"))
    assert broken.returncode == 2 and broken.stderr
    assert fennox(server, "copy", "/src/x").returncode == 2
    assert fennox(server, "copy", "--skip", "--overwrite", "/src/x", "/dst").returncode == 2


def test_watch_and_log_show_all_tasks_and_what_they_did(make_server, place):
    server = make_server(config='[copymove]\nfilebrowserxferlog = "yes"\n')
    for name in ("a", "b"):
        (place / "src" / name).write_text(name)
        assert fennox(server, "copy", "--detach", f"/src/{name}", "/dst").returncode == 0
    watched = fennox(server, "watch", "--until-idle")
    assert watched.returncode == 0 and "/src/a" in watched.stdout and "/src/b" in watched.stdout
    last = json.loads(fennox(server, "watch", "--until-idle", "--json").stdout.splitlines()[-1])
    assert len(last) == 2 and all(task["finished"] for task in last)
    lines = fennox(server, "log").stdout.splitlines()
    assert len(lines) == 2 and all("copy" in line for line in lines)
    ended = fennox(server, "stop", last[0]["id"])
    assert ended.returncode == 2 and "has ended already" in ended.stderr
    newest = json.loads(fennox(server, "log", "--limit", "1", "--json").stdout)
    assert len(newest) == 1 and newest[0]["action"] == "copy"
    assert fennox(server, "log", "--limit", "0").returncode == 2


def test_an_interrupted_watch_leaves_the_tasks_alone(make_server, place):
    server = make_server(config='[bandwidth]\ndefault = "8MB"\n')
    big_file(place, 24)
    task = fennox(server, "copy", "--detach", "/src/big", "/dst").stdout.strip()
    watching = subprocess.Popen([BUILD / "fennox", "watch"], env=environment(server), text=True,
                                stdout=subprocess.PIPE)
    assert task in watching.stdout.readline()
    watching.send_signal(signal.SIGINT)
    watching.communicate(timeout=60)
    assert watching.returncode == 130
    assert server.client.wait(task)["progress"] == 1


def test_paths_on_the_server_are_completed(server, place):
    (place / "src" / "folder one").mkdir()
    (place / "src" / "file").write_text("x")
    assert fennox(server, "complete-path", "/s").stdout == "/src/\n"
    assert sorted(fennox(server, "complete-path", "/src/f").stdout.splitlines()) == [
        "/src/file", "/src/folder one/"]
    assert fennox(server, "complete-path", "/src/none").stdout == ""
    assert "complete-path" not in fennox(server, "--help").stdout


def test_paths_on_a_remote_server_are_completed_in_the_shell(make_server, place):
    far = place / "far"
    (far / "folder one").mkdir(parents=True)
    try:
        remote = SftpServer(far).start()
    except NotHere as reason:
        pytest.skip(str(reason))
    with contextlib.closing(remote):
        server = make_server(config=remote.remote("nas", far))
        completion = ROOT / "packaging" / "completion" / "fennox"

        def complete(*words):
            done = subprocess.run(
                ["bash", "-c", f'. {completion}; compopt() {{ :; }}; COMP_WORDS=(fennox "$@"); COMP_CWORD=$#; _fennox; '
                 'printf "%s\\n" "${COMPREPLY[@]}"', "-", *words], text=True, capture_output=True, timeout=60,
                env=environment(server) | {"PATH": f"{BUILD}:{os.environ['PATH']}"})
            return done.stdout.splitlines()

        assert complete("ls", "sf") == ["sftp://nas/"]
        assert complete("copy", "/src/x", "sftp", ":", "//nas/f") == ["//nas/folder\\ one/"]
        assert complete("remote", "check", "n") == ["nas"]


def test_login_and_logout_keep_the_token_in_a_closed_file(server, tmp_path):
    alone = command_line_alone(server, tmp_path)
    assert "fennox login" in alone("list").stderr
    stored = json.loads(alone("login", "--json", input=server.token + "\n").stdout)
    file = tmp_path / "fennox" / "token"
    assert stored["stored"] == str(file) and file.stat().st_mode & 0o777 == 0o600
    assert alone("list").returncode == 0
    refused = alone("login", "--user", "somebody", input="x\n")
    assert refused.returncode == 2 and "no passwords" in refused.stderr
    assert alone("logout").returncode == 0 and not file.exists()
    assert alone("list").returncode == 2
