"""Logins with system accounts, and the sessions that they start."""
import concurrent.futures
import json
import os
import pathlib
import re
import subprocess

import pytest

from accounts import ALICE, BOB, PASSWORDS, may_add_users, pam_login, system_user
from server import BUILD, Client, children, command_line_alone

pytestmark = pytest.mark.skipif(os.geteuid() != 0, reason="needs root to check passwords")

PAM = 'auth = "pam"'


class Browser(Client):
    """A client that keeps its cookie and repeats its CSRF token."""

    def __init__(self, port):
        super().__init__(port, "")
        self.cookie = self.csrf = ""

    def request(self, method, path, body=None, headers=None):
        headers = dict(headers or {})
        if self.cookie:
            headers.setdefault("Cookie", self.cookie)
        if self.csrf:
            headers.setdefault("X-CSRF-Token", self.csrf)
        return super().request(method, path, body, headers)

    def login(self, user, password, **more):
        answer = self.request("POST", "/host/login",
                              json.dumps({"user": user, "password": password, **more}),
                              {"Content-Type": "application/json"})
        if answer.get("success") and "Set-Cookie" in answer.headers:
            self.cookie = answer.headers["Set-Cookie"].split(";")[0]
            self.csrf = answer.data["csrf"]
        return answer


@pytest.fixture
def pam_server(make_server, place):
    for name in ("src", "dst"):
        (place / name).mkdir()
        (place / name).chmod(0o777)
    return make_server(auth=PAM, config=pam_login(place))


def in_browser(server, user):
    browser = Browser(server.port)
    assert browser.login(user, PASSWORDS[user]).data["user"] == user
    return browser


def test_two_users_log_in_and_copy_each_as_themselves(pam_server, place):
    (place / "src" / "x").write_text("x")
    for user in (ALICE, BOB):
        (place / "dst" / user).mkdir(mode=0o777)
        (place / "dst" / user).chmod(0o777)
        browser = in_browser(pam_server, user)
        assert "errors" not in browser.run(["/src/x"], f"/dst/{user}")
        assert (place / "dst" / user / "x").owner() == user
    ways = Browser(pam_server.port).request("GET", "/host/login").data
    assert ways == {"password": True, "token": False}


def test_the_cookie_is_closed_to_scripts_and_other_sites(pam_server):
    browser = Browser(pam_server.port)
    answer = browser.login(ALICE, PASSWORDS[ALICE])
    assert re.fullmatch(r"fennox_\d+=[0-9a-f]{64}; Path=/; HttpOnly; SameSite=Strict",
                        answer.headers["Set-Cookie"])
    assert browser.cookie.split("=")[1] not in answer.body.decode()
    without = browser.request("POST", "/host/logout", "{}", {"X-CSRF-Token": ""})
    assert without.status == 403
    # A cookie's secret is no bearer, and a bearer no cookie.
    secret = browser.cookie.split("=")[1]
    assert Client(pam_server.port, secret).host("whoami").status == 401
    token = Browser(pam_server.port).login(ALICE, PASSWORDS[ALICE], bearer=True).data["token"]
    assert Client(pam_server.port, token).host("whoami").data["user"] == ALICE
    name = browser.cookie.split("=")[0]
    assert Client(pam_server.port, "").request(
        "GET", "/host/whoami", headers={"Cookie": f"{name}={token}"}).status == 401
    foreign = browser.request("POST", "/host/login", "{}", {"Sec-Fetch-Site": "cross-site"})
    assert foreign.status == 403


def test_refusals_look_the_same_whatever_their_reason(pam_server, place):
    wrong = [(ALICE, "wrong"), (ALICE, ""), ("no-such-user", "wrong"), ("root", PASSWORDS[ALICE]),
             ("nobody", PASSWORDS[ALICE]), ("a\nb", "x"), ("../x", "x"), (ALICE, "x\0y")]

    def attempt(pair):
        answer = Browser(pam_server.port).login(*pair)
        return (answer.status, answer.body, "Set-Cookie" in answer.headers)

    with concurrent.futures.ThreadPoolExecutor(len(wrong)) as pool:
        assert len(set(pool.map(attempt, wrong))) == 1
    assert attempt((ALICE, "wrong"))[0] == 401
    log = pam_server.log_text()
    assert "wrong" not in log and "no-such-user" not in log and PASSWORDS[ALICE] not in log


def test_nonsense_is_refused_in_words_and_without_a_password_check(pam_server):
    browser = Browser(pam_server.port)
    for body in ('{"user":5,"password":"x"}', '{"user":"x"}', '{"password":"x"}', "{}", "[]", "{",
                 json.dumps({"user": "x" * 300, "password": "x"})):
        answer = browser.request("POST", "/host/login", body, {"Content-Type": "application/json"})
        assert answer.status == 400 and answer.detail["message"], body


def test_guesses_are_slowed_down_for_the_address_and_the_name(pam_server):
    def guess(_):
        return Browser(pam_server.port).login(ALICE, "guess").status

    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        statuses = list(pool.map(guess, range(14)))
    assert set(statuses) == {401, 429}
    # Not even the right password helps now, so guessing on is of no use.
    answer = Browser(pam_server.port).login(ALICE, PASSWORDS[ALICE])
    assert answer.status == 429 and int(answer.headers["Retry-After"]) > 0


def test_system_accounts_stay_out_by_default(make_server, place):
    server = make_server(auth=PAM, config=pam_login(place, min_uid=1000))
    assert Browser(server.port).login(ALICE, PASSWORDS[ALICE]).status == 401


def test_a_session_survives_a_restart_and_ends_with_logout(pam_server, place):
    browser = in_browser(pam_server, ALICE)
    other = in_browser(pam_server, ALICE)
    port = pam_server.port
    pam_server.stop()
    pam_server.listen = f"127.0.0.1:{port}"  # the cookie's name holds the port
    pam_server.start()
    assert browser.host("whoami").data["user"] == ALICE
    assert browser.request("POST", "/host/logout", "{}").data is None
    assert browser.host("whoami").status == 401
    assert other.host("whoami").data["user"] == ALICE
    store = place / "state" / "front" / "sessions.db"
    assert other.cookie.split("=")[1].encode() not in store.read_bytes()


def test_logging_out_everywhere_ends_every_session_of_this_user_alone(pam_server, tmp_path):
    browser, other = in_browser(pam_server, ALICE), in_browser(pam_server, ALICE)
    stranger = in_browser(pam_server, BOB)
    nonsense = browser.request("POST", "/host/logout", '{"all": "yes"}')
    assert nonsense.status == 400 and nonsense.detail["message"]
    assert browser.host("whoami").data["user"] == ALICE
    fennox = command_line_alone(pam_server, tmp_path)
    assert fennox("login", "--user", ALICE, input=PASSWORDS[ALICE] + "\n").returncode == 0
    token = (tmp_path / "fennox" / "token").read_text().strip()
    assert browser.request("POST", "/host/logout", '{"all": true}').data is None
    for each in (browser, other, Client(pam_server.port, token)):
        assert each.host("whoami").status == 401
    assert stranger.host("whoami").data["user"] == BOB
    # The command line does the same, and says when it could not.
    refused = fennox("logout", "--all")
    assert refused.returncode == 2 and "not logged out" in refused.stderr
    assert fennox("login", "--user", ALICE, input=PASSWORDS[ALICE] + "\n").returncode == 0
    browser = in_browser(pam_server, ALICE)
    assert json.loads(fennox("logout", "--all", "--json").stdout) == {"ended": "all"}
    assert browser.host("whoami").status == 401 and not (tmp_path / "fennox" / "token").exists()


def status_of(pid):
    text = pathlib.Path(f"/proc/{pid}/status").read_text()
    return dict(line.split(":\t", 1) for line in text.splitlines())


def test_the_front_has_no_root_and_only_the_launcher_does(pam_server, place):
    front = status_of(pam_server.process.pid)
    assert "0" not in front["Uid"].split() + front["Gid"].split(), front
    assert front["Groups"].split() == [] and front["NoNewPrivs"] == "1"
    for name in ("CapInh", "CapPrm", "CapEff", "CapBnd", "CapAmb"):
        assert int(front[name], 16) == 0, name
    launchers = children(pam_server.process.pid)
    assert [status_of(pid)["Uid"].split()[0] for pid in launchers] == ["0"]
    folder = place / "state" / "front"
    assert folder.owner() == "nobody" and folder.stat().st_mode & 0o777 == 0o700


def test_the_front_never_runs_as_root(make_server, place, tmp_path):
    for account, words in (("root", "must not run as root"), ("no-such-account", "no account")):
        file = tmp_path / "fennox.toml"
        file.write_text(f'[server]\nlisten = "127.0.0.1:0"\nstate = "{tmp_path}/state"\n{PAM}\n'
                        f'run_as = "{account}"\n')
        done = subprocess.run([BUILD / "fennoxd", "--config", file], capture_output=True, text=True,
                              timeout=60)
        assert done.returncode == 2 and words in done.stderr


@pytest.mark.skipif(not may_add_users(), reason="needs root and useradd to make an account")
def test_a_real_account_logs_in_with_its_system_password(make_server, place):
    with system_user("Tr0ub4dor&3 é") as account:
        (place / "pam").mkdir()
        (place / "pam" / "unix").write_text("auth required pam_unix.so\naccount required pam_unix.so\n")
        server = make_server(auth=PAM, config=f'[login]\nservice = "unix"\n'
                                              f'service_folder = "{place}/pam"\n')
        browser = Browser(server.port)
        assert browser.login(account.pw_name, "Tr0ub4dor&3 e").status == 401
        assert browser.login(account.pw_name, "Tr0ub4dor&3 é").data["user"] == account.pw_name
        subprocess.run(["chage", "--lastday", "0", account.pw_name], check=True)
        answer = browser.login(account.pw_name, "Tr0ub4dor&3 é")
        assert answer.status == 401 and "expired" in answer.detail["message"]
        subprocess.run(["chage", "--lastday", "-1", "--expiredate", "1", account.pw_name], check=True)
        answer = browser.login(account.pw_name, "Tr0ub4dor&3 é")
        assert answer.status == 401 and "wrong" in answer.detail["message"]


def test_a_pam_service_that_cannot_decide_is_no_way_in(make_server, place):
    config = pam_login(place)
    (place / "pam" / "test-login").write_text("auth required no_such_module.so\n")
    server = make_server(auth=PAM, config=config)
    assert Browser(server.port).login(ALICE, PASSWORDS[ALICE]).status == 401
    (place / "pam" / "test-login").unlink()
    assert Browser(server.port).login(ALICE, PASSWORDS[ALICE]).status == 401


def test_the_command_line_logs_in_with_a_password_and_out_again(pam_server, tmp_path):
    fennox = command_line_alone(pam_server, tmp_path)
    assert "is wrong" in fennox("login", "--user", ALICE, input="wrong\n").stderr
    assert fennox("login", "--user", ALICE, input=PASSWORDS[ALICE] + "\n").returncode == 0
    token = (tmp_path / "fennox" / "token").read_text().strip()
    assert token != PASSWORDS[ALICE] and "/src" in fennox("ls", "/").stdout
    assert fennox("logout").returncode == 0
    assert Client(pam_server.port, token).host("whoami").status == 401
