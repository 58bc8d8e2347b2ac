"""What docs/security.md promises about requests: who gets in, how far, how much."""
import concurrent.futures
import http.client
import json
import os
import pathlib
import re
import socket
import ssl
import subprocess
import sys
import time
import urllib.parse
import urllib.request

import pytest

from server import API, BUILD, Client, environment, fennox

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "servers"))
from throwaway import free_port, make_certificate  # noqa: E402

CONFIG_LIMITS = "[limits]\nheader_seconds = 2\nbody_seconds = 2\n"


def raw(port, data, seconds=60):
    """Sends bytes and returns everything that comes back until the server closes."""
    with socket.create_connection(("127.0.0.1", port), timeout=seconds) as connection:
        connection.sendall(data)
        return drain(connection)


def drain(connection):
    parts = []
    try:
        while part := connection.recv(65536):
            parts.append(part)
    except ConnectionResetError:
        pass
    return b"".join(parts)


def dribble(port, head, byte):
    """Sends `head`, then a byte from time to time until the server has had enough."""
    with socket.create_connection(("127.0.0.1", port), timeout=60) as connection:
        connection.sendall(head)
        connection.settimeout(0.2)
        answer = b""
        for _ in range(300):
            try:
                part = connection.recv(65536)
                if not part:
                    return answer
                answer += part
            except TimeoutError:
                pass
            except ConnectionResetError:
                return answer
            try:
                connection.sendall(byte)
            except OSError:
                connection.settimeout(10)
                return answer + drain(connection)
        raise AssertionError("the server waits for ever")


@pytest.fixture
def strict(make_server):
    return make_server(config=CONFIG_LIMITS)


def head(token, more):
    return (f"POST /webapi/{API}?version=3&method=start HTTP/1.1\r\nHost: 127.0.0.1\r\n"
            f"Authorization: Bearer {token}\r\n{more}").encode()


def test_slow_requests_are_ended_with_408(strict):
    jobs = [(b"GET /health HTTP/1.1\r\nHost: 127.0.0.1\r\nX-Slow: ", b"a"),
            (b"", b"G"),
            (head(strict.token, "Content-Length: 100000\r\n\r\n"), b"x"),
            (head(strict.token, "Transfer-Encoding: chunked\r\n\r\n"), b"1\r\nx\r\n")]
    with concurrent.futures.ThreadPoolExecutor(len(jobs)) as pool:
        answers = list(pool.map(lambda job: dribble(strict.port, *job), jobs))
    for answer in answers:
        assert answer.startswith(b"HTTP/1.1 408 "), answer[:300]
        assert answer.count(b"HTTP/1.1") == 1
    assert strict.client.request("GET", "/health").data == {"status": "ok"}


def test_silent_connections_do_not_keep_others_out(strict):
    silent = [socket.create_connection(("127.0.0.1", strict.port)) for _ in range(200)]
    try:
        assert strict.client.host("whoami").data["user"]
    finally:
        for connection in silent:
            connection.close()


def test_oversized_requests_are_refused(strict):
    line = b"GET /" + b"a" * 20000 + b" HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"
    assert raw(strict.port, line).startswith(b"HTTP/1.1 414 ")
    fields = b"".join(b"X-%d: %s\r\n" % (i, b"v" * 1000) for i in range(200))
    answer = raw(strict.port, b"GET /health HTTP/1.1\r\nHost: 127.0.0.1\r\n" + fields + b"\r\n")
    assert answer.startswith(b"HTTP/1.1 431 ") or answer == b""
    endless = raw(strict.port, b"GET /health HTTP/1.1\r\nX: " + b"v" * (1 << 20))
    assert endless.startswith(b"HTTP/1.1 431 ") or endless == b""
    big = json.dumps({"path": ["/src/x"], "dest_folder_path": "/dst", "more": "x" * (9 << 20)})
    assert strict.client.request("POST", f"/webapi/{API}?version=3&method=start", big).status == 413
    assert strict.client.request("GET", "/health").data == {"status": "ok"}


def test_nonsense_on_the_wire_is_survived(strict):
    # Each ends its own connection: no head's end within the time, or a broken head.
    jobs = [b"\0\xff\xfe" * 100 + b"\r\n\r\n", b"GET\r\n\r\n",
            b"\x16\x03\x01\x02\x00" + b"\1" * 50 + b"\r\n\r\n", b"GET / HTTP/9.9\r\n\r\n",
            head(strict.token, "Content-Length: -5\r\n\r\n"),
            head(strict.token, "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n")]
    with concurrent.futures.ThreadPoolExecutor(len(jobs)) as pool:
        for answer in pool.map(lambda data: raw(strict.port, data), jobs):
            assert b" 200 " not in answer.split(b"\r\n")[0]
    assert strict.client.request("GET", "/health").data == {"status": "ok"}


def test_a_user_who_asks_too_fast_or_too_much_at_once_is_told_so(make_server):
    server = make_server(config="[limits]\nrequests_per_second = 5\nrequests_at_once = 2\n")
    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        answers = list(pool.map(lambda _: server.client.host("shares"), range(60)))
    statuses = {answer.status for answer in answers}
    assert statuses == {200, 429}
    late = next(answer for answer in answers if answer.status == 429)
    assert late.headers["Retry-After"] and late.detail["message"]
    end = time.monotonic() + 60
    while server.client.host("shares").status == 429:
        assert time.monotonic() < end
        time.sleep(0.3)


def test_forged_and_changed_cookies_are_no_login(server):
    name = f"fennox_{server.port}"
    good = server.client.request("POST", "/host/login", json.dumps({"token": server.token}))
    cookie = good.headers["Set-Cookie"].split(";")[0]
    nobody = Client(server.port, "")
    assert nobody.request("GET", "/host/tasks", headers={"Cookie": cookie}).data == []
    basic = {"Cookie": cookie, "Authorization": "Basic eDp5"}  # as a proxy may leave it
    assert nobody.request("GET", "/host/tasks", headers=basic).data == []
    secret = cookie.split("=")[1]
    other = "0" if secret[0] != "0" else "1"
    for value in ("", other + secret[1:], secret[:-1], secret + "0", secret.upper() + "x", "' OR 1=1 --",
                  "%00", "../sessions.db", "0" * 64, server.token):
        for path in ("/host/tasks", "/host/whoami", "/webapi"):
            answer = nobody.request("GET", path, headers={"Cookie": f"{name}={value}"})
            assert answer.status == 401, (value, path)
    # The right value under another server's name is none of ours.
    assert nobody.request("GET", "/host/tasks", headers={"Cookie": f"fennox_1={secret}"}).status == 401


def test_a_request_replayed_after_logout_is_refused(server):
    nobody = Client(server.port, "")
    good = nobody.request("POST", "/host/login", json.dumps({"token": server.token}))
    headers = {"Cookie": good.headers["Set-Cookie"].split(";")[0], "X-CSRF-Token": good.data["csrf"]}
    assert nobody.request("POST", "/host/logout", "{}", headers).data is None
    start = json.dumps({"path": ["/src/x"], "dest_folder_path": "/dst"})
    for path in (f"/webapi/{API}?version=3&method=start", "/host/logout", "/host/tasks"):
        assert nobody.request("POST", path, start, headers).status == 401


def test_another_sites_page_can_change_nothing(server, place):
    (place / "src" / "x").write_text("x")
    nobody = Client(server.port, "")
    good = nobody.request("POST", "/host/login", json.dumps({"token": server.token}))
    cookie = {"Cookie": good.headers["Set-Cookie"].split(";")[0]}
    query = urllib.parse.urlencode({"path": '["/src/x"]', "dest_folder_path": "/dst"})
    path = f"/webapi/{API}?version=3&method=start"
    assert nobody.request("POST", path, query, cookie | {
        "Content-Type": "application/x-www-form-urlencoded"}).status == 403
    assert nobody.request("GET", path + "&" + query, headers=cookie).status == 403
    wrong = cookie | {"X-CSRF-Token": good.data["csrf"][::-1]}
    assert nobody.request("POST", path, query, wrong).status == 403
    right = cookie | {"X-CSRF-Token": good.data["csrf"]}
    assert nobody.request("POST", path, query, right | {"Sec-Fetch-Site": "cross-site"}).status == 403
    assert nobody.request("GET", "/host/tasks", headers=cookie | {"Host": "evil.example"}).status == 403
    assert os.listdir(place / "dst") == []
    for header, value in (("X-Content-Type-Options", "nosniff"), ("Cache-Control", "no-store"),
                          ("Referrer-Policy", "no-referrer")):
        assert good.headers[header] == value
    policy = good.headers["Content-Security-Policy"]
    assert "default-src 'none'" in policy and "unsafe" not in policy
    assert "Access-Control-Allow-Origin" not in good.headers


def test_with_a_certificate_only_tls_is_spoken_and_the_cookie_stays_on_it(make_server, place):
    make_certificate(place)
    server = make_server(config="", auth=f'certificate = "{place}/server.pem"\nkey = "{place}/server.key"')

    def ask(context):
        connection = http.client.HTTPSConnection("127.0.0.1", server.port, context=context, timeout=30)
        connection.request("GET", f"/?token={server.token}")
        return connection.getresponse()

    answer = ask(ssl.create_default_context(cafile=place / "server.pem"))
    assert answer.status == 303 and "; Secure" in answer.headers["Set-Cookie"]
    with pytest.raises(ssl.SSLCertVerificationError):
        ask(ssl.create_default_context())
    assert b"HTTP/1.1 200" not in raw(server.port, b"GET /health HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")

    def listed(trusted):
        return fennox(server, "list", env=environment(server, SSL_CERT_FILE=str(trusted)) | {
            "FENNOX_URL": f"https://127.0.0.1:{server.port}"})

    assert listed(place / "server.pem").returncode == 0
    distrusting = listed("/dev/null")
    assert distrusting.returncode == 2 and "certificate" in distrusting.stderr


def test_browsers_keep_the_page_but_no_answer(server):
    nobody = Client(server.port, "")
    for path in ("/", "/js/app.js", "/style.css", "/openapi.json"):
        first = nobody.request("GET", path)
        tag = first.headers["ETag"]
        assert first.headers.get_all("Cache-Control") == ["no-cache"] and tag, path
        again = nobody.request("GET", path, headers={"If-None-Match": f'"other", {tag}'})
        assert (again.status, again.body, again.headers["ETag"]) == (304, b"", tag), path
        changed = nobody.request("GET", path, headers={"If-None-Match": tag[:-2] + 'x"'})
        assert changed.status == 200 and changed.body == first.body, path
    tags = {nobody.request("GET", path).headers["ETag"] for path in ("/", "/js/app.js", "/style.css")}
    assert len(tags) == 3
    for answer in (server.client.host("tasks"), nobody.host("tasks"), nobody.request("GET", "/health")):
        assert answer.headers.get_all("Cache-Control") == ["no-store"]
        assert answer.headers["ETag"] is None


OUTSIDE = ["/src/../outside", "/src/./../outside", "/src/..", "/src/sub/../../outside", "/src//outside",
           "/src/%2e%2e/outside", "/src/..%2foutside", "/src/%2e%2e%2foutside", "/src/..\\outside",
           "/src/..%5coutside", "/src/%252e%252e/outside", "/src/\u2024\u2024/outside", "/outside", "/",
           "", ".", "..", "file:///etc/passwd", "sftp://none/etc", "/src/way", "/src/way/secret",
           "/src/\0/../../outside", "//etc/passwd", "/src/up/outside"]


def test_no_path_leads_out_of_a_share(server, place):
    (place / "outside").mkdir()
    (place / "outside" / "secret").write_text("secret")
    (place / "src" / "sub").mkdir()
    (place / "src" / "way").symlink_to(place / "outside")
    (place / "src" / "up").symlink_to("..")
    (place / "src" / "x").write_text("x")
    for path in OUTSIDE:
        answer = server.client.host("list", path=path)
        assert answer.get("success") is False, path
        # An encoded path is a name of its own, and there is no such file.
        raw_path = urllib.request.quote(path, safe="/%")
        answer = server.client.request("GET", f"/host/list?path={raw_path}")
        assert answer.get("success") is False, path
        for sources, dest in (([path + "/secret"], "/dst"), (["/src/x"], path)):
            answer = server.client.start(sources, dest)
            if answer.get("success"):
                assert server.client.wait(answer.data["taskid"]).get("errors"), (sources, dest)
    assert os.listdir(place / "dst") == []
    assert os.listdir(place / "outside") == ["secret"]
    # The server's own files lie under no address.
    for path in ("/../etc/passwd", "/%2e%2e/etc/passwd", "/..%2f..%2fetc/passwd", "/state/token"):
        assert b"HTTP/1.1 404" in raw(
            server.port, f"GET {path} HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n"
                         f"Authorization: Bearer {server.token}\r\n\r\n".encode()), path


SAMPLE = re.compile(r'([a-z_]+)(?:\{([a-z]+)="([^"\\]+)"\})? (\d+(?:\.\d+)?(?:e[+-]\d+)?)')


def figures(text):
    """The samples of a text in Prometheus's format, which is checked on the way."""
    kinds, samples, helped = {}, {}, set()
    for line in text.splitlines():
        if line.startswith("# HELP "):
            helped.add(line.split()[2])
        elif line.startswith("# TYPE "):
            _, _, name, kind = line.split()
            assert name in helped and name not in kinds and kind in ("counter", "gauge", "histogram"), line
            kinds[name] = kind
        else:
            name, label, value, number = SAMPLE.fullmatch(line).groups()
            family = re.sub("_(bucket|sum|count)$", "", name)
            family = family if kinds.get(family) == "histogram" else name
            assert (kinds[family] == "counter") == name.endswith("_total"), line
            assert (name, label, value) not in samples, line
            samples[name, label, value] = float(number)
    for family in (name for name, kind in kinds.items() if kind == "histogram"):
        bounds = [(float(value), number) for (name, label, value), number in samples.items()
                  if name == family + "_bucket" and label == "le"]
        assert bounds == sorted(bounds) and bounds[-1][0] == float("inf"), "buckets hold those below"
        assert [n for _, n in bounds] == sorted(n for _, n in bounds)
        assert bounds[-1][1] == samples[family + "_count", None, None] > 0
        assert samples[family + "_sum", None, None] > 0
    assert text.endswith("\n") and kinds
    return samples


def test_metrics_are_in_prometheus_format_and_counters_never_fall(make_server, place):
    port = free_port()
    server = make_server(auth=f'metrics = "127.0.0.1:{port}"', config="")
    metrics = Client(port, "")
    (place / "src" / "x").write_text("x")
    (place / "dst" / "old").mkdir()

    def read():
        answer = metrics.request("GET", "/metrics")
        assert answer.headers["Content-Type"].startswith("text/plain; version=0.0.4")
        return figures(answer.body.decode())

    server.client.run(["/src/x"], "/dst")
    earlier = read()
    for sources in (["/src/x"], ["/src/missing", "/src/x"]):
        task = server.client.start(sources, "/dst", overwrite=True).data["taskid"]
        server.client.wait_record(task, lambda record: record["finished"])
        server.client.status(task)  # with this the record goes
    server.client.host("nonsense")
    later = read()
    falling = [key for key in earlier if key[0].endswith(("_total", "_count", "_sum", "_bucket"))
               and later[key] < earlier[key]]
    assert not falling
    assert later["fennox_requests_total", "class", "2xx"] > earlier["fennox_requests_total", "class", "2xx"]
    assert later["fennox_requests_total", "class", "4xx"] > earlier["fennox_requests_total", "class", "4xx"]
    totals = {("fennox_tasks_started_total", None, None): 2, ("fennox_transferred_bytes_total", None, None): 2,
              ("fennox_tasks_ended_total", "state", "finished"): 2,
              ("fennox_tasks_ended_total", "state", "failed"): 0,
              ("fennox_tasks_ended_total", "state", "stopped"): 0}
    assert {key: later[key] - earlier[key] for key in totals} == totals
    server.stop()
    server.start()
    server.client.host("whoami")
    restarted = read()
    assert {key: restarted[key] for key in totals} == {key: later[key] for key in totals}


def test_metrics_count_tasks_and_name_nobody(make_server, place):
    port = free_port()
    server = make_server(auth=f'metrics = "127.0.0.1:{port}"', config="")
    (place / "src" / "x").write_text("x" * 1000)
    task = server.client.start(["/src/x"], "/dst").data["taskid"]
    server.client.wait_record(task, lambda record: record["finished"])
    text = Client(port, "").request("GET", "/metrics").body.decode()
    assert 'fennox_tasks{state="finished"} 1\n' in text
    assert 'fennox_tasks{state="running"} 0\n' in text
    assert 'fennox_requests_total{class="2xx"}' in text and "fennox_request_seconds_count" in text
    assert "\nfennox_tasks_bytes " in text
    user = server.client.host("whoami").data["user"]
    assert user not in text and task not in text and server.token not in text
    assert Client(port, "").request("GET", "/health").data == {"status": "ok"}
    # They are not to be had at the address that everyone uses.
    assert Client(server.port, "").request("GET", "/metrics").status == 401
    assert server.client.request("GET", "/metrics").status == 404


def test_metrics_are_for_this_machine_alone(tmp_path):
    for address in ("0.0.0.0:9105", "192.0.2.1:9105", "[::]:9105"):
        file = tmp_path / "fennox.toml"
        file.write_text(f'[server]\nstate = "{tmp_path}/state"\nmetrics = "{address}"\n')
        done = subprocess.run([BUILD / "fennoxd", "--check-config", "--config", file],
                              capture_output=True, text=True, timeout=60)
        assert done.returncode == 2 and "server.metrics" in done.stderr, done.stderr


def test_secrets_are_in_no_log_and_no_command_line(server, place):
    (place / "src" / "x").write_text("x")
    server.client.run(["/src/x"], "/dst")
    Client(server.port, "x" * 40).host("tasks")
    assert server.token not in server.log_text() and "x" * 40 not in server.log_text()
    shown = subprocess.run(["ps", "-eo", "args"], capture_output=True, text=True).stdout
    assert server.token not in shown
    assert (place / "state" / "token").stat().st_mode & 0o777 == 0o600
