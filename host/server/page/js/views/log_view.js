// The transfer log as a table that can be searched.

import { html } from "/vendor/lit-html/lit-html.js";
import { repeat } from "/vendor/lit-html/directives/repeat.js";
import * as format from "../format.js";
import { matching, readLog } from "../log.js";
import { shown } from "../shown.js";
import { changed, state } from "../store.js";
import { t } from "../words.js";
import { icon } from "./icons.js";

function search(event) {
  state.log.text = event.currentTarget.value;
  changed();
}

function lineView(line) {
  return html`<tr>
    <td class="time">${format.shortTime(line.time)}</td>
    <td>${t(line.action === "move" ? "log.move" : "log.copy")}</td>
    <td class="what">${shown(line.text)}</td>
    <td class="size">${line.folder ? t("pane.folder") : format.bytes(line.size)}</td>
  </tr>`;
}

function tableView(lines) {
  return html`<table>
    <thead><tr>
      ${["time", "action", "what", "size"].map((key) => html`<th scope="col" class=${key}>${t(`log.${key}`)}</th>`)}
    </tr></thead>
    <tbody>${repeat(lines, lineView)}</tbody>
  </table>`;
}

function bodyView(lines) {
  const { status, text } = state.log;
  if (status === "failed") return html`<p class="blank" role="alert">${t("log.failed")}</p>`;
  if (lines.length > 0) return tableView(lines);
  if (status === "loading") return html`<p class="blank hint">${t("pane.loading")}</p>`;
  return html`<p class="blank hint">${text ? t("log.noMatch", text) : t("log.none")}</p>`;
}

export function logView() {
  const lines = matching(state.log.lines, state.log.text);
  const shown = t("log.shown", format.count(lines.length), format.count(state.log.lines.length));
  return html`
    <main class="log">
      <div class="tools">
        <label class="search">${t("log.search")}
          <input type="search" .value=${state.log.text} @input=${search} /></label>
        <button class="quiet" aria-label=${t("log.refresh")} title=${t("log.refresh")} @click=${readLog}>
          ${icon("refresh")}</button>
        <span class="gap"></span>
        <span class="hint" role="status">${shown}</span>
      </div>
      <div class="table-frame" tabindex="0" role="group" aria-label=${t("app.log")}>${bodyView(lines)}</div>
    </main>`;
}
