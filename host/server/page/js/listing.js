// Entries of folders: read and sorted.

import { host, hostPost } from "./net.js";
import { ROOT } from "./paths.js";
import { preferences } from "./preferences.js";
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

const MOST = 100000; // entries that the server gives at once
export const PAGE = 1000; // entries that are read before more are asked for

// The folder's first `count` entries in the order shown, or those behind `after`:
// { entries, total, left_out, next }. `next`, where there are more, is `after` for the rest.
export async function readFolder(path, { count = PAGE, after } = {}) {
  if (path === ROOT) {
    await readPlaces();
    return { entries: state.places.map(placeEntry), total: state.places.length, left_out: 0 };
  }
  const { hidden, sort } = preferences;
  const order = { sort: sort.key, descending: sort.descending, hidden };
  const entries = [];
  for (;;) {
    const limit = Math.min(count - entries.length, MOST);
    const part = await host("list", { path, ...order, limit, ...(after && { after }) });
    for (const entry of part.entries) entries.push(entry);
    if (!part.next || entries.length >= count) return { ...part, entries };
    after = part.next;
  }
}

// The folders in a folder, which come first in every order, or the places.
export async function readFolders(path) {
  let { entries, next } = await readFolder(path);
  while (next && entries.at(-1)?.type === "folder") {
    const more = await readFolder(path, { after: next });
    entries = entries.concat(more.entries);
    next = more.next;
  }
  return entries.filter(({ type }) => type === "folder" || type === "share");
}

// Those entries of a folder that have one of the names.
export async function entriesNamed(path, names) {
  if (path === ROOT) return (await readFolder(ROOT)).entries.filter(({ name }) => names.includes(name));
  return (await hostPost("list", { path, names })).entries;
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
