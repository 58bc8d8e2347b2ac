// The two folders on the page: where they are and what is in them.

import { readFolder, sorted, visible } from "./listing.js";
import { join, nameOf, parent, ROOT } from "./paths.js";
import { prefer, preferences, recall, remember, twoPanes } from "./preferences.js";
import { answered, askRemote } from "./remotes.js";
import * as selection from "./selection.js";
import { changed, state } from "./store.js";

function emptyPane(id) {
  return {
    id,
    path: ROOT,
    entries: [],
    shown: [], // the entries in the order they are drawn in
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
  pane.shown = sorted(visible(pane.entries, preferences.hidden), preferences.sort);
  pane.names = pane.shown.map((entry) => entry.name);
  pane.selection = selection.restrict(pane.selection, pane.names);
}

export function arrangeAll() {
  Object.values(state.panes).forEach(arrange);
  changed();
}

// Reads the pane's folder. Of several readings under way only the last one counts.
export async function refresh(pane) {
  const reading = ++pane.reading;
  try {
    const entries = await readFolder(pane.path);
    if (reading !== pane.reading) return;
    Object.assign(pane, { entries, status: "ready", failure: null });
    answered(pane.path);
  } catch (failure) {
    if (reading !== pane.reading) return;
    // What was read before stays on the page while the server is away.
    if (failure.kind !== "refused" && pane.status === "ready") return;
    Object.assign(pane, { entries: [], status: "failed", failure });
    if (failure.kind === "refused") askRemote(pane.path);
  }
  arrange(pane);
  changed();
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
  Object.assign(pane, { path, entries: [], status: "loading", failure: null, scrollTop: 0 });
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
}

export function showHidden(hidden) {
  prefer({ hidden });
  arrangeAll();
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
