// The user's tasks, at the bottom.

import { html } from "/vendor/lit-html/lit-html.js";
import { repeat } from "/vendor/lit-html/directives/repeat.js";
import { changed, state } from "../store.js";
import { ended, settled } from "../task_state.js";
import { dismissGood } from "../tasks.js";
import { counted, t } from "../words.js";
import { icon } from "./icons.js";
import { taskView } from "./task_view.js";

function fold() {
  state.trayOpen = !state.trayOpen;
  changed();
}

export function trayView() {
  const running = state.tasks.filter((task) => !ended(task)).length;
  const label = t(state.trayOpen ? "tray.hide" : "tray.show");
  return html`
    <section class="tray" aria-labelledby="tray-title">
      <div class="tray-bar">
        <button class="quiet" aria-expanded=${state.trayOpen ? "true" : "false"} aria-controls="tasks"
          aria-label=${label} title=${label} @click=${fold}>${icon(state.trayOpen ? "down" : "upward")}</button>
        <h2 id="tray-title">${t("tray.title")}</h2>
        <span class="hint">${running > 0 ? counted("tray.running", running) : ""}</span>
        <span class="gap"></span>
        ${state.tasks.some(settled)
          ? html`<button class="quiet" @click=${dismissGood}>${t("tray.clear")}</button>`
          : ""}
      </div>
      <ul id="tasks" ?hidden=${!state.trayOpen || state.tasks.length === 0}>
        ${state.trayOpen ? repeat(state.tasks, (task) => task.id, taskView) : ""}
      </ul>
    </section>`;
}
