// The two folders on the page: where they are and what is in them.

import { PAGE, readFolder, sorted } from "./listing.js";
import { join, nameOf, parent, ROOT } from "./paths.js";
import { prefer, preferences, recall, remember, twoPanes } from "./preferences.js";
import { answered, askRemote } from "./remotes.js";
import * as selection from "./selection.js";
import { changed, drawn, state } from "./store.js";

function emptyPane(id) {
  return {
    id,
    path: ROOT,
    entries: [], // those that were read
    shown: [], // the same in the order they are drawn in
    total: 0, // of all there are, but for the hidden ones that are left out
    leftOut: 0,
    next: undefined, // where more are to be read
    growing: null, // the reading of more
    names: [],
    selection: selection.NOTHING,
    status: "loading", // "ready", "failed"
    failure: null,
    scrollTop: 0,
    reading: 0,
  };
}

for (const id of ["left", "right"]) state.panes[id] = emptyPane(id);

export function activePane() {
  return state.panes[state.active];
}

export function otherPane() {
  return state.panes[state.active === "left" ? "right" : "left"];
}

export function shownPanes() {
  return twoPanes(state) ? [state.panes.left, state.panes.right] : [activePane()];
}

function arrange(pane) {
  pane.shown = sorted(pane.entries, preferences.sort);
  pane.names = pane.shown.map((entry) => entry.name);
  pane.selection = selection.restrict(pane.selection, pane.names);
}

export function arrangeAll() {
  Object.values(state.panes).forEach(arrange);
  changed();
}

function take(pane, { entries, total, left_out: leftOut, next }) {
  Object.assign(pane, { entries, total, leftOut, next, status: "ready", failure: null });
}

// Reads the pane's folder, as much of it as was read. Of several readings under way only the last one counts.
export async function refresh(pane) {
  const reading = ++pane.reading;
  try {
    const folder = await readFolder(pane.path, { count: Math.max(pane.entries.length, PAGE) });
    if (reading !== pane.reading) return;
    take(pane, folder);
    answered(pane.path);
  } catch (failure) {
    if (reading !== pane.reading) return;
    // What was read before stays on the page while the server is away.
    if (failure.kind !== "refused" && pane.status === "ready") return;
    Object.assign(pane, { entries: [], next: undefined, status: "failed", failure });
    if (failure.kind === "refused") askRemote(pane.path);
  }
  arrange(pane);
  changed();
}

async function grow(pane, count) {
  const { path, reading, next } = pane;
  const folder = await readFolder(path, { count, after: next });
  if (reading !== pane.reading) return;
  // What changes meanwhile may come once more further down.
  const known = new Set(pane.names);
  const added = folder.entries.filter(({ name }) => !known.has(name));
  take(pane, { ...folder, entries: pane.entries.concat(added) });
  arrange(pane);
  changed();
}

// Reads on where the list ends. When that fails it ends there, and can be asked for again.
export function more(pane, count = PAGE) {
  if (!pane.next) return Promise.resolve();
  pane.growing ??= grow(pane, count)
    .catch(() => {})
    .finally(() => {
      pane.growing = null;
    });
  return pane.growing;
}

// Reads all that is left of the folder, and draws it. False when that failed.
export async function whole(pane) {
  if (!pane.next) return true;
  while (pane.next) {
    const { next } = pane;
    await more(pane, Infinity);
    if (pane.next === next) return false;
  }
  await drawn();
  return true;
}

export function refreshAll(paths = null) {
  const wanted = (pane) => paths === null || paths.has(pane.path);
  return Promise.all(Object.values(state.panes).filter(wanted).map(refresh));
}

function place() {
  const { left, right } = state.panes;
  return { left: left.path, right: right.path, active: state.active };
}

async function show(pane, path, cursor) {
  Object.assign(pane, { path, entries: [], next: undefined, status: "loading", failure: null, scrollTop: 0 });
  pane.selection = { ...selection.NOTHING, cursor };
  arrange(pane);
  pane.selection = { ...selection.NOTHING, cursor };
  changed();
  remember("place", place());
  await refresh(pane);
}

// Goes to a folder; the browser's back button leads out of it again.
export async function open(pane, path) {
  const cursor = parent(pane.path) === path ? nameOf(pane.path) : null;
  const reading = show(pane, path, cursor);
  history.pushState(place(), "");
  await reading;
}

export async function openEntry(pane, entry) {
  if (entry.type === "share") return open(pane, entry.path);
  if (entry.type === "folder" || entry.type === "link") return open(pane, join(pane.path, entry.name));
  return undefined;
}

export function activate(pane) {
  if (state.active === pane.id) return;
  state.active = pane.id;
  remember("place", place());
  changed();
}

// Where this window was, or else the first two places.
export async function restore() {
  const first = state.places.map((each) => each.path);
  const was = { left: first[0] ?? ROOT, right: first[1] ?? first[0] ?? ROOT, ...recall("place") };
  state.active = was.active === "right" ? "right" : "left";
  history.replaceState({ left: was.left, right: was.right, active: state.active }, "");
  await Promise.all(["left", "right"].map((id) => show(state.panes[id], was[id], null)));
}

addEventListener("popstate", ({ state: was }) => {
  if (!was?.left) return;
  state.active = was.active;
  for (const id of ["left", "right"]) {
    if (state.panes[id].path !== was[id]) show(state.panes[id], was[id], null);
  }
  changed();
});

export function sortBy(key) {
  const { key: old, descending } = preferences.sort;
  // Sizes and times are asked for with the big and the new ones first.
  prefer({ sort: { key, descending: old === key ? !descending : key !== "name" } });
  arrangeAll();
  // Of a list that was not read to its end, others come first now.
  Object.values(state.panes).filter(({ next }) => next).forEach(refresh);
}

export function showHidden(hidden) {
  prefer({ hidden });
  refreshAll();
}

export function select(pane, next) {
  pane.selection = next;
  changed();
}

// The selected entries as sources of a copy or move; what cannot be named is left out.
export function selectedSources(pane) {
  if (pane.path === ROOT) return [];
  return pane.shown
    .filter((entry) => pane.selection.selected.has(entry.name) && !entry.damaged_name)
    .map(({ name, type, size, mtime }) => ({ name, type, size, mtime, path: join(pane.path, name) }));
}
