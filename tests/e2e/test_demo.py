"""scripts/demo --serve, as somebody runs it who wants to watch a copy in the page."""
import itertools
import os
import pathlib
import re
import signal
import subprocess

from server import BUILD, ROOT, Client


def running(text):
    """Command lines of the processes that have it in theirs."""
    found = []
    for file in pathlib.Path("/proc").glob("[0-9]*/cmdline"):
        try:
            line = file.read_bytes().replace(b"\0", b" ").decode(errors="replace")
        except OSError:
            continue  # it has ended
        if text in line:
            found.append(line)
    return found


def test_the_demo_serves_a_copy_to_watch_and_leaves_nothing(place):
    folder, temporary = place / "folder", place / "tmp"
    folder.mkdir()
    temporary.mkdir()
    for number in range(20):
        (folder / f"file {number}").write_bytes(os.urandom(20000))
    demo = subprocess.Popen([ROOT / "scripts/demo", "--serve", folder], stdout=subprocess.PIPE, text=True,
                            env=dict(os.environ, FENNOX_BUILD=str(BUILD), TMPDIR=str(temporary)))
    try:
        told = "".join(itertools.takewhile(lambda line: "fennox watch" not in line, demo.stdout))
        assert "are those of the original" in told
        port, token = re.search(r"http://127\.0\.0\.1:(\d+)/\?token=(\w+)", told).groups()
        assert f"ssh -N -L {port}:127.0.0.1:{port} " in told
        browser = Client(int(port), None)
        login = browser.request("GET", f"/?token={token}")
        cookie = {"Cookie": login.headers["Set-Cookie"].split(";")[0]}
        assert login.status == 303 and b"<html" in browser.request("GET", "/", headers=cookie).body
        [task] = browser.request("GET", "/host/tasks", headers=cookie).data
        assert not task["finished"] and task["data"]["params"]["dest_folder_path"] == "/to/slowly"
        assert running(str(temporary)) and not running(token)
        demo.send_signal(signal.SIGINT)
        assert demo.wait(60) == 0
    finally:
        demo.kill()
        demo.wait()
        demo.stdout.close()
    assert not running(str(temporary)) and not list(temporary.iterdir())
