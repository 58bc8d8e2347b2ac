// The bar at the top.

import { html } from "/vendor/lit-html/lit-html.js";
import { ask } from "../dialogs.js";
import { readLog } from "../log.js";
import { changed, state } from "../store.js";
import { t } from "../words.js";
import { icon } from "./icons.js";

function show(view) {
  state.view = view;
  changed();
  if (view === "log") readLog();
}

function tab(view, label) {
  return html`<button
    class="tab"
    aria-current=${state.view === view ? "page" : "false"}
    @click=${() => show(view)}
  >${label}</button>`;
}

export function headerView() {
  return html`
    <header class="top">
      <h1 class="brand">${t("app.title")}</h1>
      <nav>${tab("files", t("app.files"))} ${tab("log", t("app.log"))}</nav>
      <span class="gap"></span>
      <span class="user">${state.user}</span>
      <button class="quiet" title=${t("app.settings")} aria-label=${t("app.settings")}
        @click=${() => ask("settings")}>${icon("settings")}</button>
    </header>
    ${offlineView()}`;
}

export function offlineView() {
  if (!state.offline) return "";
  return html`<p class="offline" role="alert">${icon("warn")} ${t("app.offline")}</p>`;
}
