// The question about names that are taken, for each and for all, before anything starts.

import { html } from "/vendor/lit-html/lit-html.js";
import { live } from "/vendor/lit-html/directives/live.js";
import { CHOICES, merges } from "../conflicts.js";
import * as format from "../format.js";
import { shown } from "../shown.js";
import { changed } from "../store.js";
import { counted, t } from "../words.js";
import { frame } from "./dialog_frame.js";
import { iconOf } from "./icons.js";

function wordsOf(conflict, choice) {
  if (!merges(conflict) || choice === "both") return t(`conflict.${choice}`);
  return t(choice === "skip" ? "conflict.mergeSkip" : "conflict.mergeReplace");
}

function choose(conflict, choice) {
  if (conflict.choices.includes(choice)) conflict.choice = choice;
  changed();
}

function factsView(entry, other) {
  return html`
    <td class="size">${entry.type === "folder" ? t("pane.folder") : format.bytes(entry.size)}</td>
    <td class="time">${entry.mtime ? format.shortTime(entry.mtime) : ""}
      ${entry.mtime > other.mtime ? html`<span class="tag">${t("conflict.newer")}</span>` : ""}</td>`;
}

function choiceView(conflict, choice) {
  return html`<option value=${choice} ?selected=${conflict.choice === choice}>${wordsOf(conflict, choice)}</option>`;
}

function conflictView(conflict) {
  const { source, existing } = conflict;
  return html`
    <tbody>
      <tr>
        <th scope="rowgroup" rowspan="2">${iconOf(source)} <span class="text">${shown(source.name)}</span>
          ${conflict.choices.length < CHOICES.length && (source.type === "folder") !== (existing.type === "folder")
            ? html`<p class="hint">${t("conflict.mixed")}</p>`
            : ""}</th>
        <td>${t("conflict.new")}</td>
        ${factsView(source, existing)}
        <td rowspan="2">
          <select aria-label=${t("conflict.choice", shown(source.name))} .value=${live(conflict.choice)}
            @change=${(event) => choose(conflict, event.currentTarget.value)}>
            ${conflict.choices.map((choice) => choiceView(conflict, choice))}
          </select>
        </td>
      </tr>
      <tr><td>${t("conflict.existing")}</td>${factsView(existing, source)}</tr>
    </tbody>`;
}

function forAllView(conflicts) {
  if (conflicts.length < 2) return "";
  const forAll = (choice) => conflicts.forEach((conflict) => choose(conflict, choice));
  return html`<p class="for-all"><span>${t("conflict.forAll")}</span>
    ${CHOICES.map((choice) => {
      const pressed = conflicts.every((conflict) => conflict.choice === choice);
      return html`<button aria-pressed=${pressed ? "true" : "false"} data-all=${choice}
        @click=${() => forAll(choice)}>${t(`conflict.${choice}`)}</button>`;
    })}</p>`;
}

export function conflictDialog(dialog) {
  const { order, conflicts } = dialog;
  const body = html`
    <p class="hint">${t("conflict.explain")}</p>
    ${forAllView(conflicts)}
    <div class="table-frame" tabindex="0" role="group" aria-labelledby=${`dialog-${dialog.id}`}>
      <table class="conflicts">${conflicts.map(conflictView)}</table>
    </div>`;
  const buttons = html`
    <button @click=${() => dialog.answer(null)}>${t("dialog.cancel")}</button>
    <button class="primary" data-first @click=${() => dialog.answer(conflicts)}>
      ${t(order.move ? "conflict.move" : "conflict.copy")}
    </button>`;
  return frame(dialog, counted("conflict.title", conflicts.length, shown(order.dest)), body, buttons, "wide");
}
