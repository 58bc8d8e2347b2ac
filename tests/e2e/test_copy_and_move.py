"""Copies and moves through the running server."""
import json
import os

import pytest

from trees import assert_same, describe, leftovers, make_tree


@pytest.mark.parametrize("version", [1, 2, 3])
@pytest.mark.parametrize("accurate", [True, False])
@pytest.mark.parametrize("move", [False, True])
def test_a_tree_and_a_file_arrive_whole_in_every_version(server, place, version, accurate, move):
    original = describe(make_tree(place / "src" / "tree"))
    (place / "src" / "file").write_text("content")
    data = server.client.run(["/src/tree", "/src/file"], "/dst", version=version,
                             remove_src=move, accurate_progress=accurate)
    assert data["progress"] == 1 and "errors" not in data
    assert_same(place / "dst" / "tree", original)
    assert (place / "dst" / "file").read_text() == "content"
    assert (place / "src" / "tree").exists() != move
    assert (place / "src" / "file").exists() != move
    assert leftovers(place / "dst") == []
    counted = "processed_size" if accurate else "processed_num"
    assert counted in data and data["dest_folder_path"] == "/dst"


def test_progress_counts_bytes_or_entries_with_their_json_types(server, place):
    make_tree(place / "src" / "tree")
    for accurate, member, others in [
            (True, "processed_size", {"found_file_num", "found_dir_num", "found_file_size"}),
            (False, "processed_num", set())]:
        task = server.client.start(["/src/tree"], "/dst", accurate_progress=accurate,
                                   overwrite=True).data["taskid"]
        record = server.client.wait_record(task, lambda r: r["finished"])
        raw = server.client.request("GET", f"/host/task?id={task}").body.decode()
        assert task.startswith("Fennox_")
        # Reals stay reals in the text, integers integers.
        assert f'"{member}":' in raw and '"total":0.0' in raw.replace(" ", "")
        assert record["data"]["pid"] > 1 and isinstance(record["data"]["version"], int)
        assert others <= record["data"].keys()
        assert record["data"][task]["action"] == "copy"
        assert record["data"]["params"]["path"] == ["/src/tree"]


CONFLICTS = [
    # request, old stays, new content at, skip status
    ({"overwrite": True}, False, ["x"], None),
    ({"overwrite": False}, True, [], "all"),
    ({"overwrite": False, "rename": True}, True, ["x (1)"], "none"),
    ({"overwrite": ["true"]}, False, ["x"], None),
    ({"overwrite": ["false"]}, True, [], "all"),
    ({"overwrite": ["false"], "rename": ["true"]}, True, ["x (1)"], None),
    ({"overwrite": True, "rename": True}, True, ["x (1)"], None),
]


@pytest.mark.parametrize("request_params, kept, places, skip", CONFLICTS)
@pytest.mark.parametrize("move", [False, True])
def test_conflict_modes_decide_about_an_existing_file(server, place, request_params, kept, places,
                                                      skip, move):
    (place / "src" / "x").write_text("new")
    (place / "dst" / "x").write_text("old")
    data = server.client.run(["/src/x"], "/dst", remove_src=move, **request_params)
    assert ((place / "dst" / "x").read_text() == "old") == kept
    for name in places:
        assert (place / "dst" / name).read_text() == "new"
    assert sorted(os.listdir(place / "dst")) == sorted({"x", *places})
    # A source that was skipped stays; nothing is lost.
    assert (place / "src" / "x").exists() == (not move or not places)
    assert data.get("skipstatus", {}).get("status") == skip


def test_lists_decide_per_path(server, place):
    for name in "abc":
        (place / "src" / name).write_text("new " + name)
        (place / "dst" / name).write_text("old")
    data = server.client.run([f"/src/{n}" for n in "abc"], "/dst",
                             overwrite=["true", "false", "false"],
                             rename=["false", "false", "true"])
    assert (place / "dst" / "a").read_text() == "new a"
    assert (place / "dst" / "b").read_text() == "old"
    assert (place / "dst" / "c").read_text() == "old"
    assert (place / "dst" / "c (1)").read_text() == "new c"
    assert data["skipstatus"]["status"] == "some"


def test_folders_merge_and_only_files_conflict(server, place):
    make_tree(place / "src" / "t" / "deep", files=10)
    (place / "dst" / "t" / "deep").mkdir(parents=True)
    (place / "dst" / "t" / "deep" / "script").write_text("mine")
    (place / "dst" / "t" / "other").write_text("stays")
    data = server.client.run(["/src/t"], "/dst", overwrite=False)
    assert data["progress"] == 1
    assert (place / "dst" / "t" / "deep" / "script").read_text() == "mine"
    assert (place / "dst" / "t" / "other").read_text() == "stays"
    assert (place / "dst" / "t" / "deep" / "a b").read_text() == "a b"


def test_a_failed_entry_is_listed_and_the_others_arrive(server, place):
    for name in ("good", "clash"):
        (place / "src" / name).mkdir()
        (place / "src" / name / "file").write_text(name)
    (place / "dst" / "clash").write_text("a file")
    data = server.client.run(["/src/good", "/src/clash", "/src/vanished"], "/dst", overwrite=True)
    errors = {e["path"]: e["code"] for e in data["errors"]}
    assert errors["/src/clash"] == 1004 and "/src/vanished" in errors and len(errors) == 2
    assert data["progress"] == 1
    assert (place / "dst" / "clash").read_text() == "a file"
    assert (place / "dst" / "good" / "file").read_text() == "good"
    assert (place / "src" / "clash" / "file").exists()


def test_a_finished_record_goes_with_the_answer_that_reports_it(server, place):
    (place / "src" / "x").write_text("x")
    task = server.client.start(["/src/x"], "/dst").data["taskid"]
    server.client.wait(task)
    assert server.client.status(task).code == 599
    assert [t for t in server.client.host("tasks").data if t["id"] == task] == []


def test_names_with_commas_work_from_version_2_on(server, place):
    (place / "src" / "a,b").write_text("x")
    data = server.client.run(json.dumps(["/src/a,b"]), "/dst", version=2)
    assert "errors" not in data and (place / "dst" / "a,b").exists()
    # Version 1 splits the text at its commas; two broken paths are not a copy of the file.
    answer = server.client.start(json.dumps(["/src/a,b"]), "/dst", version=1)
    assert answer["success"] is False


def test_a_folder_is_not_copied_into_itself(server, place):
    (place / "src" / "t" / "sub").mkdir(parents=True)
    (place / "src" / "other").write_text("x")
    data = server.client.run(["/src/t", "/src/other"], "/src/t/sub")
    assert [(e["code"], e["path"]) for e in data["errors"]] == [(1003, "/src/t")]
    assert os.listdir(place / "src" / "t" / "sub") == ["other"]
