"""Nonsense gets a clear code and loses nothing."""
import os

START = "/webapi/TAVO.Fennox.CopyMove?version=3&method=start"
STATUS = "/webapi/TAVO.Fennox.CopyMove?version=3&method=status"
JSON = {"Content-Type": "application/json"}
REFUSED = [
    ({}, 400),
    ({"path": [["/src/x"]], "dest_folder_path": "/dst"}, 400),
    ({"path": ["src/x"], "dest_folder_path": "/dst"}, 1000),
    ({"path": ["/src/a\0b"], "dest_folder_path": "/dst"}, 1000),
    ({"path": ["/src/x"], "dest_folder_path": "/dst/.."}, 1002),
    ({"path": ["/src/x"], "dest_folder_path": "/dst/missing"}, 1002),
    ({"path": ["/src/" + "n" * 300], "dest_folder_path": "/dst"}, 1000),
    ({"path": ["/src/x"], "dest_folder_path": "/src"}, 1000),  # conflicts with itself
    ({"path": ["/src/x"], "dest_folder_path": "/src", "remove_src": True}, 1001),
]


def test_bad_requests_are_refused_with_their_codes(server, place):
    (place / "src" / "x").write_text("content")
    for params, code in REFUSED:
        answer = server.client.call("start", **params)
        assert answer.status == 200 and answer["success"] is False, (params, answer)
        # Paths that only the copy itself can refuse may pass the start; none of these do.
        assert answer.code == code, (params, answer)
        if code >= 1000:
            assert isinstance(answer.detail, list) and "path" in answer.detail[0], answer
    assert (place / "src" / "x").read_text() == "content"
    assert os.listdir(place / "dst") == []
    assert server.client.host("tasks").data == []


def test_status_and_stop_answer_for_unknown_tasks(server):
    assert server.client.call("status").code == 400
    assert server.client.call("stop").code == 400
    for task in ("Fennox_none", "", "../x", "'; drop table", 5, {"a": 1}, None, ["x"]):
        assert server.client.call("status", taskid=task).code == 599, task
        assert server.client.call("stop", taskid=task).get("success") is True, task


def test_a_body_that_is_no_object_is_refused(server):
    good = server.client.request("POST", STATUS, b'{"taskid": "x"}', JSON)
    assert (good.status, good.code) == (200, 599)
    for body in (b"[1]", b"{", b"5", b"{} {}", b'{"a":}'):
        for path in (START, STATUS):
            answer = server.client.request("POST", path, body, JSON)
            assert answer.status == 400 and answer.detail["message"], body
    assert server.client.request("POST", STATUS, b" ", JSON).status == 200


def test_invalid_utf8_in_a_request_is_answered(server, place):
    body = b'{"path":["/src/\xff\xfe"],"dest_folder_path":"/dst"}'
    answer = server.client.request("POST", START, body, JSON)
    assert answer.status in (200, 400)
    assert answer.get("success") is not True


def test_ten_thousand_paths_are_one_task(server, place):
    (place / "src" / "many").mkdir()
    names = [f"f{i}" for i in range(10000)]
    for name in names:
        (place / "src" / "many" / name).write_bytes(b"1")
    data = server.client.run([f"/src/many/{n}" for n in names], "/dst", accurate_progress=False)
    assert "errors" not in data and len(os.listdir(place / "dst")) == 10000


def test_a_destination_that_is_a_file_gets_a_code(server, place):
    (place / "src" / "x").write_text("x")
    (place / "dst" / "file").write_text("precious")
    answer = server.client.start(["/src/x"], "/dst/file", overwrite=True)
    if answer["success"]:
        assert server.client.wait(answer["data"]["taskid"])["errors"]
    assert (place / "dst" / "file").read_text() == "precious"


def test_http_reasons_have_their_status(server):
    client = server.client
    path = "/webapi/TAVO.Fennox.CopyMove?version=3&method="
    assert client.request("GET", path + "status", headers={"Authorization": "Bearer no"}).status == 401
    assert client.request("POST", "/webapi/Other?version=1&method=start", "{}").status == 404
    assert client.request("POST", "/webapi/TAVO.Fennox.CopyMove?version=9&method=start", "{}").status == 404
    assert client.request("POST", path + "Start", "{}").status == 404
    assert client.request("POST", path + "start", "x" * (9 << 20)).status == 413
    rows = client.request("GET", "/webapi").data
    assert len(rows) == 9
