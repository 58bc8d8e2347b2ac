// Entries of folders: read, sorted, and filtered.

import { host } from "./net.js";
import { ROOT } from "./paths.js";
import { readRemotes } from "./remotes.js";
import { state } from "./store.js";
import { locale } from "./words.js";

export async function readPlaces() {
  state.places = await host("shares");
  await readRemotes();
}

// The place that a path lies in.
export function placeOf(path) {
  return state.places.find((place) =>
    place.remote ? path.startsWith(place.path) : path === place.path || path.startsWith(place.path + "/"),
  );
}

function placeEntry(place) {
  return { name: place.name, path: place.path, type: "share", remote: place.remote, size: 0, mtime: 0 };
}

export async function readFolder(path) {
  if (path === ROOT) {
    await readPlaces();
    return state.places.map(placeEntry);
  }
  return (await host("list", { path })).entries;
}

const COMPARE = {
  size: (a, b) => a.size - b.size,
  time: (a, b) => a.mtime - b.mtime,
  name: () => 0,
};

// Folders first, whatever the order; names decide what is otherwise equal.
export function sorted(entries, { key, descending }) {
  const names = new Intl.Collator(locale(), { numeric: true, sensitivity: "base" });
  const rank = (entry) => (entry.type === "folder" || entry.type === "share" ? 0 : 1);
  const sign = descending ? -1 : 1;
  return [...entries].sort(
    (a, b) =>
      rank(a) - rank(b) ||
      sign * (COMPARE[key](a, b) || names.compare(a.name, b.name)) ||
      (a.name < b.name ? -1 : 1),
  );
}

export function visible(entries, showHidden) {
  return showHidden ? entries : entries.filter((entry) => !entry.hidden);
}
