// The keyboard in a list of entries.

import { clip, paste, send } from "./actions.js";
import { open, openEntry, select, whole } from "./panes.js";
import { parent, ROOT } from "./paths.js";
import * as selection from "./selection.js";
import { reveal } from "./views/list_view.js";
import { rowHeight } from "./views/row_view.js";

let typed = "";
let typedAt = 0;

function step(event, pane, index) {
  const keys = { ctrl: event.ctrlKey || event.metaKey, shift: event.shiftKey };
  select(pane, selection.moveTo(pane.selection, pane.names, index, keys));
  reveal(pane, pane.names.indexOf(pane.selection.cursor));
}

function cursorOf(pane) {
  return pane.names.indexOf(pane.selection.cursor);
}

function page(event) {
  return Math.max(Math.floor(event.currentTarget.clientHeight / rowHeight()) - 2, 1);
}

function openCursor(pane) {
  const entry = pane.shown[cursorOf(pane)];
  if (entry) openEntry(pane, entry);
}

function toggleCursor(pane) {
  const { cursor } = pane.selection;
  if (cursor !== null) select(pane, selection.toggle(pane.selection, cursor));
}

const PLAIN = {
  ArrowDown: (event, pane) => step(event, pane, cursorOf(pane) + 1),
  ArrowUp: (event, pane) => step(event, pane, Math.max(cursorOf(pane) - 1, 0)),
  PageDown: (event, pane) => step(event, pane, cursorOf(pane) + page(event)),
  PageUp: (event, pane) => step(event, pane, cursorOf(pane) - page(event)),
  Home: (event, pane) => step(event, pane, 0),
  End: (event, pane) => whole(pane).then(() => step(event, pane, pane.names.length - 1)),
  Enter: (event, pane) => openCursor(pane),
  " ": (event, pane) => toggleCursor(pane),
  Insert: (event, pane) => {
    toggleCursor(pane);
    step({ ctrlKey: true }, pane, cursorOf(pane) + 1);
  },
  Backspace: (event, pane) => pane.path !== ROOT && open(pane, parent(pane.path)),
  Escape: (event, pane) => select(pane, selection.none(pane.selection)),
  F5: () => send(false),
  F6: () => send(true),
};

const WITH_CTRL = {
  // A part must not pass for all of them.
  a: async (event, pane) => (await whole(pane)) && select(pane, selection.all(pane.selection, pane.names)),
  c: () => clip(false),
  x: () => clip(true),
  v: () => paste(),
};

// Goes to the name that starts with what is typed in one go.
async function typeAhead(event, pane) {
  typed = event.timeStamp - typedAt > 800 ? event.key : typed + event.key;
  typedAt = event.timeStamp;
  const find = () => selection.find(pane.names, pane.selection.cursor, typed);
  if (find() < 0) await whole(pane);
  const index = find();
  if (index >= 0) step({}, pane, index);
}

export function onKey(event, pane) {
  // Keys of the buttons inside the grid are theirs.
  if (event.target !== event.currentTarget) return;
  const ctrl = event.ctrlKey || event.metaKey;
  const letter = event.key.toLowerCase();
  const plain = PLAIN[event.key];
  if (ctrl && !event.shiftKey && letter in WITH_CTRL) {
    event.preventDefault();
    // A key held down is pressed once.
    if (!event.repeat) WITH_CTRL[letter](event, pane);
  } else if (plain && !event.altKey) {
    event.preventDefault();
    const once = event.key === "F5" || event.key === "F6";
    if (!(once && event.repeat)) plain(event, pane);
  } else if (!ctrl && !event.altKey && event.key.length === 1) {
    typeAhead(event, pane);
  }
}
