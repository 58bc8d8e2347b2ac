"""Several users on one server: the kernel decides what each may touch."""
import os
import pwd

import pytest

from accounts import ALICE, BOB, token_of
from server import Client

pytestmark = pytest.mark.skipif(os.geteuid() != 0, reason="needs root to become other users")


@pytest.fixture
def clients(make_server, place):
    issued = {user: token_of(place, user) for user in (ALICE, BOB)}
    config = "".join(table for _, table in issued.values())
    config += f'''
[[share]]
name = "readonly"
path = "{place}/src"
read = ["*"]
write = []
[[share]]
name = "bobs"
path = "{place}/dst"
read = ["{BOB}"]
[[share]]
name = "keep"
path = "{place}/keep"
read = ["*"]
write = ["*"]
restrict = ["no-change", "no-delete"]
[[share]]
name = "closed"
path = "{place}/keep"
read = ["*"]
write = ["*"]
restrict = ["no-download"]
'''
    (place / "keep").mkdir()
    (place / "keep").chmod(0o777)
    server = make_server(config=config)
    (place / "dst").chmod(0o777)
    yield {user: Client(server.port, token) for user, (token, _) in issued.items()}


def own(path, user, mode):
    record = pwd.getpwnam(user)
    os.chown(path, record.pw_uid, record.pw_gid)
    path.chmod(mode)


def test_a_task_reads_and_writes_only_what_its_user_may(clients, place):
    folder = place / "src" / "t"
    folder.mkdir()
    for name, mode in [("public", 0o644), ("secret", 0o600)]:
        (folder / name).write_text(name)
        own(folder / name, BOB, mode)
    data = clients[ALICE].run(["/src/t"], "/dst")
    assert [(e["code"], e["path"]) for e in data["errors"]] == [(407, "/src/t")]
    assert os.listdir(place / "dst" / "t") == ["public"]
    assert (place / "dst" / "t" / "public").stat().st_uid == pwd.getpwnam(ALICE).pw_uid
    # A move must not take away what it could not read, nor what it may not delete.
    clients[ALICE].run(["/src/t"], "/dst", remove_src=True, overwrite=True)
    assert (folder / "secret").read_text() == "secret" and (folder / "public").exists()


def test_another_users_task_is_unknown(clients, place):
    (place / "src" / "x").write_text("x")
    task = clients[ALICE].start(["/src/x"], "/dst").data["taskid"]
    assert clients[BOB].status(task).code == 599
    assert clients[BOB].call("stop", taskid=task).get("success") is True
    assert clients[BOB].host("task", id=task)["success"] is False
    assert clients[BOB].host("tasks").data == []
    assert clients[ALICE].wait(task)["progress"] == 1
    assert clients[BOB].host("log").data == []


def test_share_rights_decide_before_the_kernel(clients, place):
    (place / "src" / "x").write_text("x")
    (place / "dst" / "y").write_text("y")
    (place / "keep" / "z").write_text("z")
    alice = clients[ALICE]
    refused = [
        (["/src/x"], "/readonly", {}, 1002),
        (["/readonly/x"], "/dst", {"remove_src": True}, 1001),
        (["/bobs/y"], "/src", {}, 1000),
        (["/closed/z"], "/dst", {}, 1000),
        (["/keep/z"], "/dst", {"remove_src": True}, 1001),
    ]
    for sources, dest, params, code in refused:
        answer = alice.start(sources, dest, **params)
        assert answer.code == code and answer.detail[0]["code"] == 407, (sources, dest, answer)
    assert {s["name"] for s in alice.host("shares").data} >= {"src", "dst", "readonly", "keep"}
    assert "bobs" not in {s["name"] for s in alice.host("shares").data}
    assert alice.host("list", path="/bobs")["success"] is False
    assert "errors" not in alice.run(["/readonly/x"], "/dst")


def test_a_destination_that_may_not_be_changed_gets_new_names(clients, place):
    (place / "src" / "z").write_text("new")
    (place / "keep" / "z").write_text("old")
    clients[ALICE].run(["/src/z"], "/keep")
    assert (place / "keep" / "z").read_text() == "old"
    assert (place / "keep" / "z (1)").read_text() == "new"


def test_state_of_a_user_is_closed_to_others(clients, place):
    (place / "src" / "x").write_text("x")
    clients[ALICE].run(["/src/x"], "/dst")
    folder = place / "state" / "users" / ALICE
    assert folder.stat().st_mode & 0o077 == 0
    assert folder.stat().st_uid == pwd.getpwnam(ALICE).pw_uid


def test_links_do_not_lead_out_of_a_share(clients, place):
    outside = place / "outside"
    outside.mkdir()
    (outside / "file").write_text("outside")
    outside.chmod(0o777)
    (place / "src" / "way").symlink_to(outside)
    alice = clients[ALICE]
    assert alice.start(["/src/way/file"], "/dst").code == 1000
    assert alice.host("list", path="/src/way")["success"] is False
    (place / "dst" / "out").symlink_to(outside)
    answer = alice.start(["/src/way"], "/dst/out")
    if answer["success"]:
        assert alice.wait(answer["data"]["taskid"])["errors"]
    assert os.listdir(outside) == ["file"]
    data = alice.run(["/src/way"], "/dst")
    assert [e["code"] for e in data["errors"]] == [401]
