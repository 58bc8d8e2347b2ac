// Where the page begins.

import { html, render } from "/vendor/lit-html/lit-html.js";
import { percent } from "./format.js";
import { readPlaces } from "./listing.js";
import { refreshAll, restore, shownPanes } from "./panes.js";
import { begin, whenEntered } from "./session.js";
import { changed, state, whenChanged } from "./store.js";
import { describe, ended } from "./task_state.js";
import { follow, seconds } from "./tasks.js";
import { dialogsView } from "./views/dialogs_view.js";
import { openNewDialogs } from "./views/dialog_frame.js";
import { headerView, offlineView } from "./views/header_view.js";
import { logView } from "./views/log_view.js";
import { loginView } from "./views/login_view.js";
import { noticesView } from "./views/notices_view.js";
import { paneView } from "./views/pane_view.js";
import { placesView } from "./views/places_view.js";
import { applyAppearance } from "./views/settings_view.js";
import { toolbarView } from "./views/toolbar_view.js";
import { trayView } from "./views/tray_view.js";
import { loadTables, locale, t } from "./words.js";

const TICK = 100; // milliseconds between two steps of a bar

function filesView() {
  const panes = shownPanes();
  return html`
    <div class="files">
      ${placesView()}
      <main>
        ${toolbarView()}
        <div class="panes ${panes.length === 2 ? "two" : ""}">${panes.map(paneView)}</div>
      </main>
    </div>`;
}

function pageView() {
  if (state.user === null) return offlineView();
  if (state.user === "") return loginView();
  return html`
    ${headerView()}
    ${state.view === "log" ? logView() : filesView()}
    ${trayView()} ${dialogsView()} ${noticesView()}`;
}

let atLogin = false;

// How far the tasks are, for whoever looks at another tab.
function titleText() {
  const running = state.tasks.filter((task) => !ended(task));
  const estimates = running.map((task) => describe(task, seconds()).estimate);
  const known = estimates.filter((estimate) => estimate.measured);
  if (known.length === 0) return t("app.title");
  const mean = known.reduce((sum, estimate) => sum + estimate.fraction, 0) / known.length;
  return `${percent(mean)} · ${t("app.title")}`;
}

function draw() {
  document.title = titleText();
  document.documentElement.lang = locale();
  render(pageView(), document.getElementById("page"));
  openNewDialogs();
  // The form has the keyboard when it appears, also in the middle of something.
  if (state.user === "" && !atLogin) document.querySelector(".login input").focus();
  atLogin = state.user === "";
}

function watchWidth() {
  const narrow = matchMedia("(max-width: 760px)");
  const apply = () => {
    state.narrow = narrow.matches;
    changed();
  };
  narrow.addEventListener("change", apply);
  apply();
}

let visited = false;

// At the first login, and after every other.
async function entered() {
  await Promise.all([loadTables(), readPlaces()]);
  follow();
  if (visited) {
    await refreshAll();
    return;
  }
  visited = true;
  await restore();
}

// Bars move between the figures that the server has.
setInterval(() => {
  if (!document.hidden && state.tasks.some((task) => !ended(task))) changed();
}, TICK);
addEventListener("resize", changed);
document.addEventListener("visibilitychange", () => {
  if (!document.hidden && state.user) follow();
});

whenChanged(draw);
whenEntered(entered);
applyAppearance();
watchWidth();
begin();
