// Notices, above all else.

import { html } from "/vendor/lit-html/lit-html.js";
import { repeat } from "/vendor/lit-html/directives/repeat.js";
import { close } from "../notices.js";
import { nameOf } from "../paths.js";
import { shown } from "../shown.js";
import { state } from "../store.js";
import { t } from "../words.js";
import { icon } from "./icons.js";

const ICONS = { good: "check", bad: "warn", info: "other" };

function noticeView({ id, kind, text }) {
  return html`
    <div class="notice ${kind}">
      ${icon(ICONS[kind])} <span>${shown(text)}</span>
      <button class="quiet" aria-label=${t("notice.close")} @click=${() => close(id)}>${icon("close")}</button>
    </div>`;
}

function dropView() {
  if (!state.drop) return "";
  const key = state.drop.move ? "drop.move" : "drop.copy";
  return html`<div class="notice info">${t(key, shown(nameOf(state.drop.folder)))}</div>`;
}

export function noticesView() {
  return html`
    <div class="notices" role="status" aria-live="polite" aria-label=${t("notice.region")}>
      ${repeat(state.notices, (notice) => notice.id, noticeView)} ${dropView()}
    </div>`;
}
