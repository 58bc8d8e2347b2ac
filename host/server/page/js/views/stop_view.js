// "Stop this task?"

import { html } from "/vendor/lit-html/lit-html.js";
import { t } from "../words.js";
import { frame } from "./dialog_frame.js";
import { titleOf } from "./task_view.js";

export function stopDialog(dialog) {
  const { task } = dialog;
  const body = html`<p><strong>${titleOf(task)}</strong></p>
    <p>${t(task.about.move ? "stop.move" : "stop.copy")}</p>`;
  const buttons = html`
    <button data-first @click=${() => dialog.answer(null)}>${t("stop.no")}</button>
    <button class="danger" @click=${() => dialog.answer(true)}>${t("stop.yes")}</button>`;
  return frame(dialog, t("stop.title"), body, buttons);
}
