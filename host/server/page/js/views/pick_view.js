// The destination picker: folders only.

import { html } from "/vendor/lit-html/lit-html.js";
import { repeat } from "/vendor/lit-html/directives/repeat.js";
import { readFolders, sorted } from "../listing.js";
import { crumbs, join, ROOT } from "../paths.js";
import { askRemote, troubleOf } from "../remotes.js";
import { shown } from "../shown.js";
import { changed } from "../store.js";
import { counted, reason, t } from "../words.js";
import { frame } from "./dialog_frame.js";
import { icon, iconOf } from "./icons.js";

async function goTo(dialog, path) {
  Object.assign(dialog, { path, folders: null, failure: null });
  changed();
  try {
    const folders = await readFolders(path);
    if (dialog.path !== path) return;
    dialog.folders = sorted(folders, { key: "name", descending: false });
  } catch (failure) {
    if (dialog.path === path) dialog.failure = failure;
    if (failure.kind === "refused") askRemote(path);
  }
  changed();
}

function folderView(dialog, folder) {
  const path = folder.type === "share" ? folder.path : join(dialog.path, folder.name);
  return html`<li><button class="place" @click=${() => goTo(dialog, path)}>
    ${iconOf(folder)} <span class="name">${shown(folder.name)}</span></button></li>`;
}

function foldersView(dialog) {
  const { failure, folders } = dialog;
  if (failure) {
    const why = failure.kind === "refused" ? troubleOf(dialog.path) || reason(failure.code) : t("app.offline");
    return html`<p class="hint" role="alert">${shown(why)}</p>`;
  }
  if (!folders) return html`<p class="hint">${t("pane.loading")}</p>`;
  if (folders.length === 0) return html`<p class="hint">${t("pick.noFolders")}</p>`;
  return html`<ul class="folders">
    ${repeat(folders, ({ name }) => name, (folder) => folderView(dialog, folder))}
  </ul>`;
}

export function pickDialog(dialog) {
  if (dialog.path === undefined) goTo(dialog, dialog.start);
  const verb = dialog.move ? "move" : "copy";
  const body = html`
    <p class="hint">${counted("pick.what", dialog.sources.length)}</p>
    <nav aria-label=${t("pane.path")}><ol class="crumbs">
      ${crumbs(dialog.path).map(({ name, path }) => html`<li>
        <button class="crumb" aria-label=${path === ROOT ? t("app.places") : shown(name)}
          @click=${() => goTo(dialog, path)}>${path === ROOT ? icon("home") : shown(name)}</button></li>`)}
    </ol></nav>
    ${foldersView(dialog)}`;
  const possible = dialog.path !== ROOT && !dialog.failure;
  const buttons = html`
    <button @click=${() => dialog.answer(null)}>${t("dialog.cancel")}</button>
    <button class="primary" ?disabled=${!possible} @click=${() => dialog.answer(dialog.path)}>
      ${t(`pick.${verb}Here`)}
    </button>`;
  return frame(dialog, t(`pick.${verb}Title`), body, buttons, "tall");
}
