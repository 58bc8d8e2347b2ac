// Dragging entries to a folder: moves, or copies with Ctrl (Option on a Mac).

import { activate, select, selectedSources } from "./panes.js";
import { isInside, parent, ROOT } from "./paths.js";
import * as selection from "./selection.js";
import { changed, state } from "./store.js";
import { transfer } from "./transfer.js";

let dragged = null; // the sources in the air

export function dragStart(event, pane, entry) {
  if (pane.path === ROOT || entry.damaged_name) {
    event.preventDefault();
    return;
  }
  activate(pane);
  if (!pane.selection.selected.has(entry.name)) {
    select(pane, selection.click(pane.selection, pane.names, entry.name));
  }
  dragged = selectedSources(pane);
  event.dataTransfer.effectAllowed = "copyMove";
  event.dataTransfer.setData("text/plain", dragged.map(({ path }) => path).join("\n"));
}

export function dragEnd() {
  dragged = null;
  setDrop(null);
}

function setDrop(drop) {
  const same = drop?.folder === state.drop?.folder && drop?.move === state.drop?.move;
  if (same) return;
  state.drop = drop;
  changed();
}

function accepts(folder, move) {
  if (!dragged || folder === ROOT) return false;
  if (dragged.some(({ path, type }) => type !== "file" && isInside(folder, path))) return false;
  return !(move && dragged.every(({ path }) => parent(path) === folder));
}

export function dragOver(event, folder) {
  const move = !(event.ctrlKey || event.altKey);
  if (!accepts(folder, move)) {
    setDrop(null);
    return;
  }
  event.preventDefault();
  event.stopPropagation();
  event.dataTransfer.dropEffect = move ? "move" : "copy";
  setDrop({ folder, move });
}

export function dragLeave(event, folder) {
  if (event.currentTarget.contains(event.relatedTarget)) return;
  if (state.drop?.folder === folder) setDrop(null);
}

export function drop(event, folder) {
  const move = !(event.ctrlKey || event.altKey);
  const sources = dragged;
  if (!accepts(folder, move)) return;
  event.preventDefault();
  event.stopPropagation();
  dragEnd();
  transfer({ move, sources, dest: folder });
}
