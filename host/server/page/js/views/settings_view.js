// How the page looks and speaks, and the way out.

import { html } from "/vendor/lit-html/lit-html.js";
import { live } from "/vendor/lit-html/directives/live.js";
import { allowDesktop, desktopPossible, say } from "../notices.js";
import { prefer, preferences } from "../preferences.js";
import { logout } from "../session.js";
import { changed, state } from "../store.js";
import { explain } from "../transfer.js";
import { languages, loadTables, t } from "../words.js";
import { frame } from "./dialog_frame.js";

const LANGUAGE_NAMES = { enu: "English", ger: "Deutsch" };
const KEYS = [
  ["↑ ↓ Home End", "keys.move"],
  ["Space", "keys.space"],
  ["Enter", "keys.enter"],
  ["Backspace", "keys.up"],
  ["Ctrl+A", "keys.all"],
  ["Ctrl+X  Ctrl+C  Ctrl+V", "keys.clipboard"],
  ["F5", "keys.copy"],
  ["F6", "keys.moveTo"],
];

function set(values) {
  prefer(values);
  applyAppearance();
  changed();
}

async function setLanguage(language) {
  set({ language });
  await loadTables();
}

async function setDesktopNotices(wanted) {
  set({ desktopNotices: wanted && (await allowDesktop()) });
}

const darkSystem = matchMedia("(prefers-color-scheme: dark)");
darkSystem.addEventListener("change", () => applyAppearance());

// The style sheet knows the appearance by an attribute, and the system's only from here.
export function applyAppearance() {
  const dark = preferences.theme === "auto" ? darkSystem.matches : preferences.theme === "dark";
  document.documentElement.dataset.theme = dark ? "dark" : "light";
}

function optionView(value, label, chosen) {
  return html`<option value=${value} ?selected=${value === chosen}>${label}</option>`;
}

function keysView() {
  return html`<details><summary>${t("settings.keys")}</summary>
    <dl class="keys">${KEYS.map(([keys, key]) => html`<dt><kbd>${keys}</kbd></dt><dd>${t(key)}</dd>`)}</dl>
    <p class="hint">${t("keys.drag")}</p></details>`;
}

export function settingsDialog(dialog) {
  const leave = (everywhere) => {
    dialog.answer(null);
    logout({ everywhere }).catch((failure) => failure.kind !== "login" && say("bad", explain(failure)));
  };
  const body = html`
    <label class="field">${t("settings.language")}
      <select data-first @change=${(event) => setLanguage(event.currentTarget.value)}>
        ${optionView("", t("settings.languageAuto"), preferences.language)}
        ${languages.map((each) => optionView(each, LANGUAGE_NAMES[each], preferences.language))}
      </select></label>
    <label class="field">${t("settings.theme")}
      <select @change=${(event) => set({ theme: event.currentTarget.value })}>
        ${["auto", "light", "dark"].map((each) => optionView(each, t(`settings.${each}`), preferences.theme))}
      </select></label>
    <label class="switch"><input type="checkbox" role="switch" .checked=${live(preferences.desktopNotices)}
      ?disabled=${!desktopPossible()} @change=${(event) => setDesktopNotices(event.currentTarget.checked)} />
      ${t("settings.desktop")}</label>
    ${desktopPossible() ? "" : html`<p class="hint">${t("settings.desktopDenied")}</p>`}
    ${keysView()}
    <p class="hint">${t("settings.user", state.user)} ·
      <a href="/vendor/lit-html/LICENSE" target="_blank" rel="noopener">${t("settings.licenses")}</a></p>`;
  const buttons = html`
    <button @click=${() => leave(true)}>${t("settings.logoutAll")}</button>
    <button @click=${() => leave(false)}>${t("settings.logout")}</button>
    <button class="primary" @click=${() => dialog.answer(null)}>${t("dialog.close")}</button>`;
  return frame(dialog, t("app.settings"), body, buttons);
}
