// One entry of a folder.

import { html } from "/vendor/lit-html/lit-html.js";
import { dragEnd, dragLeave, dragOver, dragStart, drop } from "../drag.js";
import * as format from "../format.js";
import { openEntry, select } from "../panes.js";
import { join } from "../paths.js";
import * as selection from "../selection.js";
import { shown } from "../shown.js";
import { state } from "../store.js";
import { t } from "../words.js";
import { icon, iconOf } from "./icons.js";

const coarse = matchMedia("(pointer: coarse)");

// Fingers need more room. The style sheet has the same two heights.
export function rowHeight() {
  return coarse.matches ? 44 : 28;
}

export function rowId(pane, index) {
  return `${pane.id}-row-${index}`;
}

function opens(entry) {
  return entry.type === "folder" || entry.type === "share";
}

function onClick(event, pane, entry) {
  const box = event.target.closest(".box");
  if (box) {
    select(pane, selection.toggle(pane.selection, entry.name));
    return;
  }
  // A finger has no double click: it opens folders and selects the rest.
  if (event.pointerType === "touch") {
    if (opens(entry)) openEntry(pane, entry);
    else select(pane, selection.toggle(pane.selection, entry.name));
    return;
  }
  const keys = { ctrl: event.ctrlKey || event.metaKey, shift: event.shiftKey };
  select(pane, selection.click(pane.selection, pane.names, entry.name, keys));
}

function sizeText(entry) {
  if (entry.type === "file") return format.bytes(entry.size);
  return t(`pane.${["folder", "link", "share"].includes(entry.type) ? entry.type : "other"}`);
}

function classesOf(pane, entry, isSelected) {
  const classes = ["row", entry.type];
  if (isSelected) classes.push("selected");
  if (entry.name === pane.selection.cursor) classes.push("cursor");
  if (entry.hidden) classes.push("faint");
  if (state.clipboard?.move && state.clipboard.sources.some(({ path }) => path === join(pane.path, entry.name))) {
    classes.push("cut");
  }
  if (opens(entry) && state.drop?.folder === folderOf(pane, entry)) classes.push("drop");
  return classes.join(" ");
}

function folderOf(pane, entry) {
  return entry.type === "share" ? entry.path : join(pane.path, entry.name);
}

// Handlers that only a folder has; the pane behind takes what is dropped elsewhere.
function over(event, pane, entry) {
  if (opens(entry)) dragOver(event, folderOf(pane, entry));
}

export function rowView(pane, entry, index) {
  const isSelected = pane.selection.selected.has(entry.name);
  const folder = folderOf(pane, entry);
  return html`
    <div role="row" class=${classesOf(pane, entry, isSelected)} id=${rowId(pane, index)}
      aria-rowindex=${index + 2} aria-selected=${isSelected ? "true" : "false"} draggable="true"
      title=${entry.damaged_name ? t("pane.damaged") : shown(entry.name)}
      @click=${(event) => onClick(event, pane, entry)}
      @dblclick=${(event) => event.target.closest(".box") || openEntry(pane, entry)}
      @dragstart=${(event) => dragStart(event, pane, entry)} @dragend=${dragEnd}
      @dragover=${(event) => over(event, pane, entry)}
      @dragleave=${(event) => opens(entry) && dragLeave(event, folder)}
      @drop=${(event) => opens(entry) && drop(event, folder)}>
      <span role="gridcell" class="cell name">
        <span class="box" aria-hidden="true">${isSelected ? icon("check") : ""}</span>
        ${iconOf(entry)}<span class="text">${shown(entry.name)}</span>
        ${entry.damaged_name ? icon("warn") : ""}
      </span>
      <span role="gridcell" class="cell size">${sizeText(entry)}</span>
      <span role="gridcell" class="cell time">${entry.mtime ? format.shortTime(entry.mtime) : ""}</span>
    </div>`;
}
