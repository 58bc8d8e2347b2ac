"""Remote mounts that the server makes by itself, on real servers."""
import os
import pathlib
import pwd
import shutil
import signal
import subprocess
import sys
import time

import pytest

from accounts import ALICE as USER, token_of
from server import Client, children, fennox

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "servers"))
from ftp import FtpServer  # noqa: E402
from sftp import SftpServer  # noqa: E402
from throwaway import NotHere  # noqa: E402
from webdav import WebdavServer  # noqa: E402



def fuse():
    try:
        os.close(os.open("/dev/fuse", os.O_RDWR))
    except OSError:
        return False
    return os.geteuid() == 0 or shutil.which("fusermount3") is not None


pytestmark = pytest.mark.skipif(not fuse(), reason="FUSE is not available here")


def mounts_below(folder):
    lines = pathlib.Path("/proc/self/mountinfo").read_text().splitlines()
    return [line.split()[4] for line in lines if line.split()[4].startswith(str(folder) + "/")]


def wait_until(holds, seconds=30):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if holds():
            return True
        time.sleep(0.02)
    return False


@pytest.fixture
def far(place):
    folder = place / "far"
    folder.mkdir()
    (folder / "base").mkdir()
    (folder / "base" / "there").write_text("on the server")
    return folder / "base"


@pytest.fixture
def serve(far):
    servers = []

    def start(kind, **options):
        program = "sshfs" if kind is SftpServer else "rclone"
        if shutil.which(program) is None:
            pytest.skip(f"{program} is not installed")
        server = kind(far, **options)
        servers.append(server)
        try:
            return server.start()
        except NotHere as reason:
            pytest.skip(str(reason))

    yield start
    for server in servers:
        server.close()


@pytest.fixture
def closing(place):
    """Whatever a failed test leaves mounted goes before its folder is removed."""
    yield
    for point in mounts_below(place):
        subprocess.run(["umount", "-l", point], check=False)


EVERY_KIND = pytest.mark.parametrize("kind, options", [
    (SftpServer, {}), (FtpServer, {}), (FtpServer, {"tls": True}), (WebdavServer, {}),
    (WebdavServer, {"tls": True})], ids=["sftp", "ftp", "ftps", "webdav", "webdavs"])


@EVERY_KIND
def test_a_remote_is_mounted_when_it_is_needed(closing, make_server, serve, place, far, kind, options):
    far_server = serve(kind, **options)
    server = make_server(config=far_server.remote("nas", "auto"))
    base = f"{far_server.protocol}://nas"
    assert mounts_below(place) == []
    entries = server.client.host("list", path=base + "/").data["entries"]
    assert [(e["name"], e["size"]) for e in entries] == [("there", 13)]
    # What changes on the server is seen at once.
    (far / "there").write_text("longer than before")
    (far / "new").mkdir()
    entries = server.client.host("list", path=base).data["entries"]
    assert {e["name"]: e["size"] for e in entries} == {"there": 18, "new": 0}

    (place / "src" / "up").write_bytes(b"x" * 100000)
    assert "errors" not in server.client.run(["/src/up"], base + "/new")
    assert (far / "new" / "up").read_bytes() == b"x" * 100000
    entries = server.client.host("list", path=base + "/new").data["entries"]
    assert [(e["name"], e["size"]) for e in entries] == [("up", 100000)]
    assert "errors" not in server.client.run([base + "/there"], "/dst")
    assert (place / "dst" / "there").read_text() == "longer than before"
    assert "errors" not in server.client.run([base + "/there"], base + "/new", remove_src=True)
    assert (far / "new" / "there").exists() and not (far / "there").exists()


def content(root):
    return {str(file.relative_to(root)): file.read_bytes() for file in root.rglob("*") if file.is_file()}


@EVERY_KIND
def test_a_tree_leaves_a_mount_with_all_its_folders(closing, make_server, serve, place, far, kind, options):
    far_server = serve(kind, **options)
    client = make_server(config=far_server.remote("nas", "auto")).client
    # More levels than are kept open at once, where they are quick.
    deep = "d/" * 70 if kind is SftpServer else "d/"
    tree = {f"{folder}{name}": os.urandom(len(folder) * 500) for folder in ("", "a/", "a/b/c/", deep, "e/")
            for name in ("x", ".hidden")}
    for name, data in tree.items():
        (far / "tree" / name).parent.mkdir(parents=True, exist_ok=True)
        (far / "tree" / name).write_bytes(data)
    for move in (False, True):
        (place / "dst" / str(move)).mkdir()
        data = client.run([f"{far_server.protocol}://nas/tree"], f"/dst/{move}", remove_src=move)
        assert "errors" not in data, data
        assert content(place / "dst" / str(move) / "tree") == tree
        assert content(far / "tree") == (tree if not move else {})
    assert not (far / "tree").exists()


def test_a_mount_that_no_task_uses_ends_with_the_server(closing, make_server, serve, place):
    server = make_server(config=serve(SftpServer).remote("nas", "auto"))
    assert server.client.host("list", path="sftp://nas/")["success"]
    assert len(mounts_below(place)) == 1
    server.stop()
    assert mounts_below(place) == []


def test_a_server_that_went_away_is_told_of_and_taken_up_again(closing, make_server, serve, place):
    far_server = serve(SftpServer)
    server = make_server(config=far_server.remote("nas", "auto", connect_timeout=5))
    assert server.client.host("list", path="sftp://nas/")["success"]
    far_server.stop()
    assert server.client.host("list", path="sftp://nas/").code == 2109
    (place / "src" / "x").write_text("x")
    answer = server.client.start(["/src/x"], "sftp://nas/")
    assert answer.code == 1002 and answer.detail[0]["code"] == 2109
    far_server.start()
    assert server.client.host("list", path="sftp://nas/")["success"]


def test_mounts_of_a_killed_server_are_cleaned_up(closing, make_server, serve, place):
    far_server = serve(SftpServer)
    server = make_server(config=far_server.remote("nas", "auto"))
    assert server.client.host("list", path="sftp://nas/")["success"]
    assert len(mounts_below(place)) == 1
    for pid in children(server.process.pid) + [server.process.pid]:
        os.kill(pid, signal.SIGKILL)
    server.process.wait()
    server.process.stdout.close()
    server.process = None
    assert len(mounts_below(place)) == 1
    server.start()
    assert wait_until(lambda: mounts_below(place) == [])
    assert server.client.host("list", path="sftp://nas/")["success"]


def test_what_is_wrong_is_said_in_words(closing, make_server, serve, place):
    far_server = serve(SftpServer)
    wrong = place / "wrong"
    wrong.write_text("wrong\n")
    wrong.chmod(0o600)
    (place / "strangers").write_text("")
    password = {"key_file": "", "password_file": str(wrong)}
    cases = {
        "good": ({}, ""),
        "refused": ({"port": 1}, "connection refused"),
        "nowhere": ({"host": "nowhere.invalid"}, "cannot resolve the server's name"),
        "stranger": ({"known_hosts": str(place / "strangers")}, "host key unknown"),
        "locked": (password, "login failed"),
        "lost": ({"path": "/no/such/folder"}, "no such path on the server"),
    }
    config = ""
    for name, (change, _) in cases.items():
        config += far_server.remote(name, "auto", **{"connect_timeout": 5, **change})
    server = make_server(config=config)
    for name, (_, problem) in cases.items():
        answer = fennox(server, "remote", "check", name)
        assert answer.returncode == (1 if problem else 0), answer
        assert answer.stdout.startswith(f"{name}: {problem or 'ready'}"), answer
    for name, code in (("refused", 2109), ("stranger", 2115)):
        answer = server.client.host("list", path=f"sftp://{name}/")
        assert answer.code == code, server.log_text()
    assert fennox(server, "remote", "check", "unknown").returncode == 2
    lines = fennox(server, "remote", "list").stdout.splitlines()
    assert len(lines) == len(cases) and lines[0].split() == ["good", "mounted", "sftp://good/"]
    paths = {share["path"] for share in server.client.host("shares").data if share["remote"]}
    assert paths == {f"sftp://{name}/" for name in cases}


@pytest.mark.parametrize("kind", [FtpServer, WebdavServer], ids=["ftps", "webdavs"])
def test_a_server_with_an_untrusted_certificate_is_not_mounted(closing, make_server, serve, kind):
    far_server = serve(kind, tls=True)
    server = make_server(config=far_server.remote("nas", "auto", ca_file=""))
    assert server.client.host("list", path=f"{far_server.protocol}://nas/").code == 2115
    assert server.wait_log("(certificate not trusted)")


@pytest.mark.skipif(os.geteuid() != 0, reason="needs root to become other users")
@pytest.mark.parametrize("kind", [SftpServer, FtpServer], ids=["sftp", "ftp"])
def test_a_user_uses_what_only_the_server_can_log_in_to(closing, make_server, serve, place, far, kind):
    far_server = serve(kind)
    token, table = token_of(place, USER)
    server = make_server(config=table + far_server.remote("nas", "auto", users=[USER])
                         + far_server.remote("closed", "auto", users=["root"]))
    far_server.own.chmod(0o711)
    client = Client(server.port, token)
    base = f"{far_server.protocol}://nas/"
    (place / "dst").chmod(0o777)
    (place / "src" / "big").write_bytes(os.urandom(11 << 20))
    assert "errors" not in client.run(["/src/big"], base)
    assert (far / "big").read_bytes() == (place / "src" / "big").read_bytes()
    assert "errors" not in client.run([base + "there", base + "big"], "/dst")
    assert (place / "dst" / "big").stat().st_uid == pwd.getpwnam(USER).pw_uid
    assert (place / "dst" / "big").read_bytes() == (far / "big").read_bytes()

    point = pathlib.Path(mounts_below(place)[0])
    assert point.stat().st_uid == pwd.getpwnam(USER).pw_uid and point.stat().st_mode & 0o77 == 0
    other = subprocess.run(["setpriv", "--reuid=www-data", "--clear-groups", "ls", point],
                           capture_output=True, check=False)
    assert other.returncode != 0, "another user sees it"
    assert client.host("list", path=f"{far_server.protocol}://closed/").code == 470
    secret = (far_server.settings().get("password_file") or pathlib.Path("/dev/null")).read_text().strip()
    if secret:
        assert secret not in server.log_text()
        commands = subprocess.run(["ps", "-eo", "args"], capture_output=True, text=True, check=True)
        assert secret not in commands.stdout
