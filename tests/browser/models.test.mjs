// The page's own reasoning, without a browser.

import assert from "node:assert/strict";
import { test } from "node:test";

const page = new URL("../../host/server/page/js/", import.meta.url);
const [paths, selection, conflicts, retry, progress, list, texts, german] = await Promise.all(
  ["paths", "selection", "conflicts", "retry", "progress_model", "task_list", "texts/english", "texts/german"].map(
    (name) => import(new URL(`${name}.js`, page)),
  ),
);

test("Paths of shares and of remote mounts come apart and together", () => {
  const cases = [
    ["/", "/", "", [""]],
    ["/photos", "/", "photos", ["", "photos"]],
    ["/photos/a/b", "/photos/a", "b", ["", "photos", "a", "b"]],
    ["sftp://nas/", "/", "nas", ["", "nas"]],
    ["sftp://nas/a", "sftp://nas/", "a", ["", "nas", "a"]],
    ["sftp://nas/a/b", "sftp://nas/a", "b", ["", "nas", "a", "b"]],
  ];
  for (const [path, parent, name, names] of cases) {
    assert.equal(paths.parent(path), parent, path);
    assert.equal(paths.nameOf(path), name, path);
    assert.deepEqual(paths.crumbs(path).map((crumb) => crumb.name), names, path);
    assert.equal(paths.crumbs(path).at(-1).path, path);
  }
  assert.equal(paths.join("sftp://nas/", "a"), "sftp://nas/a");
  assert.equal(paths.join("/photos", "a"), "/photos/a");
  assert.ok(paths.isInside("/a/b", "/a") && paths.isInside("sftp://nas/a", "sftp://nas/"));
  assert.ok(!paths.isInside("/ab", "/a"));
});

test("Ranges keep their fixed end, and what is gone is not selected", () => {
  const names = ["a", "b", "c", "d", "e"];
  let now = selection.click(selection.NOTHING, names, "c");
  now = selection.click(now, names, "e", { shift: true });
  assert.deepEqual([...now.selected], ["c", "d", "e"]);
  now = selection.moveTo(now, names, 0, { shift: true });
  assert.deepEqual([...now.selected], ["a", "b", "c"]);
  now = selection.click(now, names, "e", { ctrl: true });
  assert.deepEqual([...now.selected].sort(), ["a", "b", "c", "e"]);
  now = selection.moveTo(now, names, 99, { ctrl: true });
  assert.equal(now.selected.size, 4);
  now = selection.restrict(now, ["a", "d"]);
  assert.deepEqual([[...now.selected], now.cursor], [["a"], null]);
  assert.equal(selection.find(["alpha", "beta", "bravo"], "beta", "b"), 2);
  assert.equal(selection.find(["alpha", "beta", "bravo"], "beta", "be"), 1);
});

test("A choice for each conflict becomes a value for each path", () => {
  const file = (name) => ({ name, path: `/s/${name}`, type: "file" });
  const folder = (name) => ({ name, path: `/s/${name}`, type: "folder" });
  const sources = [file("new"), file("both"), file("skip"), file("replace"), folder("merge"), folder("mixed")];
  const existing = [file("both"), file("skip"), file("replace"), folder("merge"), file("mixed")];
  const found = conflicts.find(sources, existing);
  assert.deepEqual(found.map(({ source }) => source.name), ["both", "skip", "replace", "merge", "mixed"]);
  assert.ok(found.every(({ choice }) => choice === "skip"), "nothing is replaced without being asked");
  assert.ok(!found[4].choices.includes("replace"), "a file does not replace a folder");
  found[0].choice = "both";
  found[2].choice = "replace";
  const { sources: sent, overwrite, rename } = conflicts.decide(sources, found);
  assert.deepEqual(sent.map(({ name }) => name), ["new", "both", "replace", "merge"]);
  assert.deepEqual(overwrite, [false, false, true, false]);
  assert.deepEqual(rename, [false, true, false, false]);
  assert.ok(!conflicts.find(sources, existing, { mayReplace: false })[0].choices.includes("replace"));
});

test("Only what failed is tried again, as it was asked for", () => {
  const record = (errors, progress = 1) => ({
    progress,
    data: { errors, params: { path: ["/s/a", "/s/ab", "/s/c"], overwrite: [true, false, false] } },
  });
  assert.deepEqual(retry.failedSources(record([{ code: 1, path: "/s/a/inner" }, { code: 1, path: "/s/c" }])), [
    { path: "/s/a", policy: "replace" },
    { path: "/s/c", policy: "skip" },
  ]);
  const both = retry.failedSources(record([{ code: 1, path: "/s/ab" }]), { rename: [false, true, false] });
  assert.deepEqual(both, [{ path: "/s/ab", policy: "both" }]);
  assert.equal(retry.failedSources(record([{ code: 480, path: "/s/a" }], -1)).length, 3);
});

test("The bar follows the rate, no longer than to the next figure, and never goes back", () => {
  const figures = (values) => ({ finished: false, ratio: 0, total: 1000, processed: 0, inBytes: true, rate: 100,
                                 state: "PROCESSING", path: "", foundFiles: 0, ...values });
  let model = progress.observe(progress.UNKNOWN, figures({ ratio: 0.2 }), 10);
  const at = (now) => progress.estimate(model, now).fraction;
  assert.equal(at(10), 0.2);
  assert.ok(Math.abs(at(12) - 0.4) < 1e-9);
  assert.ok(Math.abs(at(100) - 0.7) < 1e-9, "it stops where the next figure was due");
  assert.equal(progress.observe(model, figures({ ratio: 0.2 }), 14), model);
  model = progress.observe(model, figures({ ratio: 0.5 }), 15);
  assert.ok(Math.abs(at(15) - 0.7) < 1e-9);
  model = progress.observe(model, figures({ ratio: 0.95, rate: 1e6 }), 20);
  assert.equal(at(25), 0.999, "only a real figure is a whole");
  model = progress.observe(model, figures({ ratio: 1, finished: true }), 26);
  assert.equal(at(26), 1);
  assert.equal(progress.estimate(progress.observe(progress.UNKNOWN, figures({ ratio: -1, total: 0 }), 0), 1).measured, false);
});

test("Records become tasks, and what became of those without a record is known", () => {
  const record = (id, finished = false, data = { status: "PROCESSING" }) => ({ id, finished, progress: finished ? 1 : 0, data });
  let { tasks } = list.reconcile([], [record("old", true), record("run"), record("stop"), record("seen")], 0);
  assert.deepEqual(tasks.map(({ id }) => id), ["seen", "stop", "run", "old"]);
  tasks = tasks.map((task) => (task.id === "stop" ? { ...task, stop: "asked" } : task));
  tasks = [list.newTask("fresh"), ...tasks];
  const next = list.reconcile(tasks, [record("run", true)], 1, { fresh: new Set(["fresh"]) });
  assert.deepEqual(next.justEnded.map(({ id }) => id), ["seen", "stop", "run"]);
  const byId = Object.fromEntries(next.tasks.map((task) => [task.id, task]));
  assert.equal(byId.seen.gone, true);
  assert.equal(byId.stop.stop, "done");
  assert.equal(byId.fresh.gone, false);
  assert.equal(byId.old, undefined, "an ended task whose record is gone was seen by its user");
  const again = list.reconcile(next.tasks, [record("gone")], 2, { dismissed: new Set(["gone"]) });
  assert.ok(!again.tasks.some(({ id }) => id === "gone"));
});

test("Both languages have the same texts with the same places for values", () => {
  const values = (text) => (text.match(/\{\d\}/g) ?? []).sort().join();
  assert.deepEqual(Object.keys(german.german), Object.keys(texts.english));
  for (const [key, text] of Object.entries(texts.english)) assert.equal(values(german.german[key]), values(text), key);
});
