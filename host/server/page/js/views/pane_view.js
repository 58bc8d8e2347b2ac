// One folder: where it is, its list, and a line about it.

import { html } from "/vendor/lit-html/lit-html.js";
import { dragLeave, dragOver, drop } from "../drag.js";
import * as format from "../format.js";
import { activate, open, refresh, shownPanes } from "../panes.js";
import { crumbs, parent, ROOT } from "../paths.js";
import { detailOf, troubleOf } from "../remotes.js";
import { shown } from "../shown.js";
import { state } from "../store.js";
import { counted, reason, t } from "../words.js";
import { icon } from "./icons.js";
import { listView } from "./list_view.js";

function crumbView(pane, crumb, isLast) {
  const label = crumb.path === ROOT ? icon("home") : shown(crumb.name);
  return html`<li>
    <button
      class="crumb ${state.drop?.folder === crumb.path && !isLast ? "drop" : ""}"
      aria-label=${crumb.path === ROOT ? t("app.places") : shown(crumb.name)}
      aria-current=${isLast ? "location" : "false"}
      @click=${() => open(pane, crumb.path)}
      @dragover=${(event) => dragOver(event, crumb.path)}
      @dragleave=${(event) => dragLeave(event, crumb.path)}
      @drop=${(event) => drop(event, crumb.path)}
    >${label}</button>
  </li>`;
}

function barView(pane, label) {
  const list = crumbs(pane.path);
  return html`
    <div class="pane-bar">
      <button class="quiet" aria-label=${t("pane.up")} title=${t("pane.up")}
        ?disabled=${pane.path === ROOT} @click=${() => open(pane, parent(pane.path))}>${icon("up")}</button>
      <nav aria-label="${label}: ${t("pane.path")}">
        <ol class="crumbs">${list.map((crumb, i) => crumbView(pane, crumb, i === list.length - 1))}</ol>
      </nav>
      <button class="quiet" aria-label=${t("pane.refresh")} title=${t("pane.refresh")}
        @click=${() => refresh(pane)}>${icon("refresh")}</button>
    </div>`;
}

function failureView(pane) {
  const refused = pane.failure.kind === "refused";
  const why = refused ? troubleOf(pane.path) || reason(pane.failure.code) : t("app.offline");
  const detail = refused ? detailOf(pane.path) : "";
  return html`<div class="blank" role="alert">
    <p>${t("pane.failed")}</p>
    <p>${shown(why)}</p>
    ${detail ? html`<p class="hint">${shown(detail)}</p>` : ""}
    <button @click=${() => refresh(pane)}>${t("pane.again")}</button>
  </div>`;
}

function blankView(pane) {
  if (pane.status === "failed") return failureView(pane);
  if (pane.status === "loading") return html`<p class="blank hint late">${t("pane.loading")}</p>`;
  if (pane.shown.length > 0) return "";
  const text = pane.leftOut > 0 ? "pane.onlyHidden" : pane.path === ROOT ? "app.noPlaces" : "pane.empty";
  return html`<p class="blank hint">${t(text)}</p>`;
}

function footText(pane) {
  const parts = [counted("pane.entries", pane.total)];
  if (pane.leftOut > 0) parts.push(counted("pane.hiddenCount", pane.leftOut));
  const { selected } = pane.selection;
  if (selected.size > 0) {
    const chosen = pane.shown.filter((entry) => selected.has(entry.name));
    const size = chosen.reduce((sum, entry) => sum + entry.size, 0);
    const key = chosen.every((entry) => entry.type === "folder") ? "pane.selectedFolders" : "pane.selected";
    parts.push(counted(key, selected.size, format.bytes(size)));
  }
  return parts.join(" · ");
}

export function paneView(pane) {
  const label = shownPanes().length === 1 ? t("pane.only") : t(`pane.${pane.id}`);
  const classes = ["pane", pane.id === state.active ? "active" : "", state.drop?.folder === pane.path ? "drop" : ""];
  return html`
    <section class=${classes.join(" ")} id=${`pane-${pane.id}`} aria-label=${label}
      @focusin=${() => activate(pane)} @pointerdown=${() => activate(pane)}
      @dragover=${(event) => dragOver(event, pane.path)}
      @dragleave=${(event) => dragLeave(event, pane.path)}
      @drop=${(event) => drop(event, pane.path)}>
      ${barView(pane, label)}
      <div class="list-frame">${listView(pane, label)} ${blankView(pane)}</div>
      <p class="pane-foot">${pane.status === "ready" ? footText(pane) : ""}</p>
    </section>`;
}
