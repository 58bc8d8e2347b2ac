"""The server's answers, held against the description of the API that it serves."""
import json
import re
import subprocess

import pytest

from server import ROOT, environment

jsonschema = pytest.importorskip("jsonschema")


@pytest.fixture
def described(server):
    """check(answer, path, verb): the answer is one that the description allows."""
    description = server.client.request("GET", "/openapi.json")
    assert description.status == 200 and description["openapi"].startswith("3.")
    resolver = jsonschema.RefResolver("", dict(description))

    def check(answer, path, verb="get"):
        allowed = description["paths"][path][verb]["responses"]
        told = allowed[str(answer.status)]
        if "$ref" in told:
            told = resolver.resolve(told["$ref"])[1]
        schema = told["content"]["application/json"]["schema"]
        jsonschema.Draft202012Validator(schema, resolver=resolver).validate(dict(answer))
        return answer

    check.description = description
    return check


def test_every_answer_is_one_that_is_described(server, described):
    client, api = server.client, "/webapi/TAVO.Fennox.CopyMove"
    source = server.shares["src"]
    (source / "tree" / ".hidden").mkdir(parents=True)
    (source / "tree" / "file").write_text("content")
    (source / "link").symlink_to("tree")

    rows = described(client.request("GET", "/webapi"), "/webapi")
    methods = {row["method"] for row in rows.data}
    verb = described.description["paths"][api]["post"]
    assert methods == set(verb["parameters"][1]["schema"]["enum"])

    for version in (1, 2, 3):
        for overwrite in ({}, {"overwrite": True}):
            started = client.start(["/src/tree"], "/dst", version=version, **overwrite,
                                   accurate_progress=version != 2)
            described(started, api, "post")
            if started["success"]:
                client.wait_record(started.data["taskid"], lambda record: record["finished"])
                for _ in range(2):  # the second finds no record any more
                    described(client.status(started.data["taskid"], version), api, "post")
    described(client.call("stop", taskid="Fennox_none"), api, "post")
    described(client.call("status"), api, "post")
    itself = client.start(["/src/tree"], "/src/tree").data["taskid"]
    client.wait_record(itself, lambda record: record["finished"])
    assert described(client.status(itself), api, "post").data["errors"]

    for name, queries in {"shares": [{}], "list": [{"path": "/src"}, {"path": "/none"}, {},
                                   {"path": "/src", "limit": 1, "sort": "time", "hidden": "false"},
                                   {"path": "/src", "limit": 10**9}],
                          "tasks": [{}], "task": [{"id": "none"}, {}], "whoami": [{}],
                          "notifications": [{}, {"limit": 1}], "log": [{}],
                          "texts": [{"language": "ger"}, {"language": "xyz"}, {}]}.items():
        for query in queries:
            described(client.host(name, **query), f"/host/{name}")


def test_refusals_are_described(server, described):
    client, api = server.client, "/webapi/TAVO.Fennox.CopyMove"
    described(client.request("POST", f"{api}?version=9&method=start", "{}"), api, "post")
    described(client.request("POST", f"{api}?version=3&method=start", "{",
                             {"Content-Type": "application/json"}), api, "post")
    described(client.request("POST", "/host/login", json.dumps({"token": "wrong"}),
                             {"Content-Type": "application/json"}), "/host/login", "post")
    described(client.request("POST", "/host/logout"), "/host/logout", "post")
    client.token = None
    described(client.request("GET", "/health"), "/health")
    described(client.request("GET", "/host/login"), "/host/login")
    for name in ("whoami", "tasks"):
        assert described(client.host(name), f"/host/{name}").status == 401


@pytest.mark.parametrize("language, command", [("sh", ["bash", "-eu", "-c"]),
                                               ("python", ["/usr/bin/python3", "-c"])])
def test_examples_of_the_documentation_work(make_server, place, language, command):
    server = make_server(shares={"photos": place / "photos", "backup": place / "backup"})
    (place / "photos" / "2026").mkdir()
    (place / "photos" / "2026" / "a.jpg").write_bytes(b"picture")
    text = (ROOT / "docs" / "api.md").read_text(encoding="utf-8")
    example = re.search(rf"```{language}\n(.*?)```", text, re.DOTALL)[1]
    done = subprocess.run([*command, example], env=environment(server), capture_output=True, text=True,
                          timeout=60, check=True)
    assert "finished" in done.stdout and "1003" not in done.stdout, done.stderr
    assert (place / "backup" / "2026" / "a.jpg").read_bytes() == b"picture"
