// The entries of a folder as a grid. Only the rows in sight are drawn: a folder may have very
// many. The grid has the keyboard; aria-activedescendant tells which row it is at.

import { html } from "/vendor/lit-html/lit-html.js";
import { repeat } from "/vendor/lit-html/directives/repeat.js";
import { onKey } from "../keys.js";
import { more, sortBy } from "../panes.js";
import { preferences } from "../preferences.js";
import { changed } from "../store.js";
import { t } from "../words.js";
import { icon } from "./icons.js";
import { rowHeight, rowId, rowView } from "./row_view.js";
import { styled } from "./styled.js";

const BEYOND = 8; // rows drawn above and below what is in sight

function scrolled(event, pane) {
  const { scrollTop, scrollHeight, clientHeight } = event.currentTarget;
  pane.scrollTop = scrollTop;
  if (scrollHeight - scrollTop < 4 * clientHeight) more(pane);
  changed();
}

function headCell(key) {
  const { key: sorted, descending } = preferences.sort;
  const order = sorted !== key ? "none" : descending ? "descending" : "ascending";
  return html`<span role="columnheader" class="cell ${key}" aria-sort=${order}>
    <button class="sort" @click=${() => sortBy(key)}>
      ${t(`pane.${key}`)} ${order === "none" ? "" : icon(descending ? "down" : "upward")}
    </button>
  </span>`;
}

// The first and last row to draw.
function windowOf(pane) {
  const height = rowHeight();
  const seen = Math.ceil((globalThis.innerHeight || 800) / height);
  const first = Math.max(Math.floor(pane.scrollTop / height) - BEYOND, 0);
  return { first, last: Math.min(first + seen + 2 * BEYOND, pane.shown.length) };
}

export function listView(pane, label) {
  const { first, last } = windowOf(pane);
  const height = rowHeight();
  const cursor = pane.names.indexOf(pane.selection.cursor);
  return html`
    <div role="grid" class="list" tabindex="0" aria-label="${label}: ${pane.path}"
      aria-multiselectable="true" aria-rowcount=${pane.total + 1}
      aria-activedescendant=${cursor < 0 ? "" : rowId(pane, cursor)}
      .scrollTop=${pane.scrollTop}
      @scroll=${(event) => scrolled(event, pane)} @keydown=${(event) => onKey(event, pane)}>
      <div role="row" class="row head" aria-rowindex="1">
        ${headCell("name")} ${headCell("size")} ${headCell("time")}
      </div>
      <div role="rowgroup" class="rows"
        ${styled({ "padding-top": `${first * height}px`,
                   "padding-bottom": `${(pane.shown.length - last) * height}px` })}>
        ${repeat(pane.shown.slice(first, last), (entry) => entry.name,
                 (entry, i) => rowView(pane, entry, first + i))}
      </div>
    </div>`;
}

// Brings the row at `index` into sight.
export function reveal(pane, index) {
  const list = document.querySelector(`#pane-${pane.id} .list`);
  if (!list) return;
  const height = rowHeight();
  const head = list.querySelector(".head").offsetHeight;
  const top = index * height;
  const space = list.clientHeight - head - height;
  pane.scrollTop = Math.max(Math.min(list.scrollTop, top), top - space, 0);
  list.scrollTop = pane.scrollTop;
}
