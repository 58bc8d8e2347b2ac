// The shared folders and remote mounts, at the left.

import { html } from "/vendor/lit-html/lit-html.js";
import { repeat } from "/vendor/lit-html/directives/repeat.js";
import { dragLeave, dragOver, drop } from "../drag.js";
import { activePane, open } from "../panes.js";
import { isInside } from "../paths.js";
import { stateOf, troubleOf } from "../remotes.js";
import { state } from "../store.js";
import { t } from "../words.js";
import { icon } from "./icons.js";

function remoteView(place) {
  const now = stateOf(place);
  const words = now === "away" ? troubleOf(place.path) : t(`remote.${now}`);
  return html`<span class="dot ${now}" role="img" aria-label=${words} title=${words}></span>`;
}

function placeView(place) {
  const here = isInside(activePane().path, place.path);
  return html`
    <li>
      <button
        class="place ${state.drop?.folder === place.path ? "drop" : ""}"
        aria-current=${here ? "true" : "false"}
        @click=${() => open(activePane(), place.path)}
        @dragover=${(event) => dragOver(event, place.path)}
        @dragleave=${(event) => dragLeave(event, place.path)}
        @drop=${(event) => drop(event, place.path)}
      >
        ${icon(place.remote ? "remote" : "share")}
        <span class="name">${place.name}</span>
        ${place.remote ? remoteView(place) : ""}
        ${place.writable ? "" : html`<span class="tag">${t("app.readonly")}</span>`}
      </button>
    </li>`;
}

function group(label, places) {
  if (places.length === 0) return "";
  return html`
    <h2>${label}</h2>
    <ul>${repeat(places, (place) => place.path, placeView)}</ul>`;
}

export function placesView() {
  const local = state.places.filter((place) => !place.remote);
  const remote = state.places.filter((place) => place.remote);
  return html`
    <nav class="places" aria-label=${t("app.places")}>
      ${group(t("app.places"), local)} ${group(t("app.remote"), remote)}
      ${state.places.length === 0 ? html`<p class="hint">${t("app.noPlaces")}</p>` : ""}
    </nav>`;
}
