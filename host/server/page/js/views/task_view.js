// One task: what it does, how far it is, how it ended.

import { html, nothing } from "/vendor/lit-html/lit-html.js";
import { askToStop } from "../actions.js";
import { tryAgain } from "../again.js";
import * as format from "../format.js";
import { nameOf } from "../paths.js";
import { shown } from "../shown.js";
import { state } from "../store.js";
import { describe } from "../task_state.js";
import { dismiss, seconds } from "../tasks.js";
import { counted, reason, t } from "../words.js";
import { icon } from "./icons.js";
import { styled } from "./styled.js";

export function titleOf({ about }) {
  const verb = about.move ? "move" : "copy";
  if (about.sources.length === 0) return t("task.starting");
  const dest = shown(about.dest);
  if (about.sources.length === 1) return t(`task.${verb}One`, shown(nameOf(about.sources[0])), dest);
  return t(`task.${verb}Many`, format.count(about.sources.length), dest);
}

function amount({ figures, estimate }) {
  if (!figures.inBytes) {
    return t("task.entries", format.count(figures.processed), format.count(figures.total));
  }
  return t("task.bytes", format.bytes(estimate.fraction * figures.total), format.bytes(figures.total));
}

function runningText(said) {
  const { figures, estimate } = said;
  const parts = [format.percent(estimate.fraction), amount(said)];
  if (figures.inBytes && figures.rate > 0) parts.push(t("task.rate", format.bytes(figures.rate)));
  if (estimate.remaining >= 0) parts.push(t("task.left", format.duration(estimate.remaining)));
  return parts.join(" · ");
}

function countingText({ figures }) {
  if (figures.foundFiles <= 0) return t("task.counting");
  const found = t("task.found", format.count(figures.foundFiles), format.bytes(figures.foundBytes));
  return `${t("task.counting")} ${found}`;
}

function doneText({ figures }) {
  if (figures.total <= 0) return t("task.done");
  if (figures.inBytes) return t("task.doneBytes", format.bytes(figures.total));
  return counted("task.doneEntries", figures.total);
}

function stateText(said) {
  switch (said.stage) {
    case "running":
      return runningText(said);
    case "counting":
      return countingText(said);
    case "done":
      return doneText(said);
    case "failures":
      return counted("task.failures", said.errors.length);
    default:
      return t(`task.${said.stage}`);
  }
}

function barView(task, said) {
  const known = said.estimate.measured;
  return html`
    <div class="bar ${known ? "" : "wandering"}" role="progressbar" aria-valuemin="0" aria-valuemax="100"
      aria-label=${t("task.progress", titleOf(task))}
      aria-valuenow=${known ? Math.floor(said.estimate.fraction * 100) : nothing}>
      <div class="fill" ${styled({ "--done": known ? said.estimate.fraction.toFixed(4) : "1" })}></div>
    </div>`;
}

function failuresView({ errors }) {
  if (errors.length === 0) return "";
  return html`
    <details class="failures" open>
      <summary>${t("task.failureList")} (${format.count(errors.length)})</summary>
      <table>
        <thead><tr><th scope="col">${t("task.failedPath")}</th><th scope="col">${t("task.failedReason")}</th></tr></thead>
        <tbody>
          ${errors.map(({ path, code }) => html`<tr><td>${path ? shown(path) : t("task.allOfIt")}</td><td>${reason(code)}</td></tr>`)}
        </tbody>
      </table>
    </details>`;
}

function buttonsView(task, said) {
  const title = titleOf(task);
  if (!said.ended) {
    return html`<button ?disabled=${task.stop !== ""} aria-label=${t("task.stopNamed", title)}
      @click=${() => askToStop(task)}>${icon("stop")} ${t("task.stop")}</button>`;
  }
  const mayRepeat = said.stage === "failures" || said.stage === "failed";
  return html`
    ${mayRepeat && task.about.sources.length > 0
      ? html`<button ?disabled=${state.busy !== ""} aria-label=${t("task.againNamed", title)}
          @click=${() => tryAgain(task)}>${icon("again")} ${t("task.again")}</button>`
      : ""}
    <button class="quiet" aria-label=${t("task.dismissNamed", title)} title=${t("task.dismiss")}
      @click=${() => dismiss(task.id)}>${icon("close")}</button>`;
}

function markOf(said) {
  if (said.good) return "check";
  if (said.stage === "failed" || said.stage === "failures") return "warn";
  return "";
}

export function taskView(task) {
  const said = describe(task, seconds());
  const mark = markOf(said);
  return html`
    <li class="task ${said.stage}" data-task=${task.id}>
      <span class="mark">${mark ? icon(mark) : icon(task.about.move ? "move" : "copy")}</span>
      <div class="what">
        <p class="title">${titleOf(task)}</p>
        ${said.ended ? "" : barView(task, said)}
        <p class="state">${stateText(said)}</p>
        ${said.ended || !said.figures.path
          ? ""
          : html`<p class="hint path">${t("task.now", shown(said.figures.path))}</p>`}
        ${said.ended ? failuresView(said) : ""}
      </div>
      <div class="buttons">${buttonsView(task, said)}</div>
    </li>`;
}
