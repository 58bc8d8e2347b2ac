// The buttons above the panes.

import { html } from "/vendor/lit-html/lit-html.js";
import { live } from "/vendor/lit-html/directives/live.js";
import { paste, send } from "../actions.js";
import { activePane, selectedSources, showHidden } from "../panes.js";
import { prefer, preferences, twoPanes } from "../preferences.js";
import { changed, state } from "../store.js";
import { counted, t } from "../words.js";
import { icon } from "./icons.js";

function sendButton(move) {
  const picks = twoPanes(state) ? "" : "To";
  const verb = move ? "move" : "copy";
  return html`
    <button
      class=${move ? "" : "primary"}
      ?disabled=${state.busy !== "" || selectedSources(activePane()).length === 0}
      aria-keyshortcuts=${move ? "F6" : "F5"}
      @click=${() => send(move)}
    >${icon(verb)} ${t(`tools.${verb}${picks}`)} <kbd>${move ? "F6" : "F5"}</kbd></button>`;
}

function pasteButton() {
  if (!state.clipboard) return "";
  return html`<button ?disabled=${state.busy !== ""} @click=${paste}>
    ${icon("paste")} ${counted("tools.paste", state.clipboard.sources.length)}
  </button>`;
}

function toggle(label, checked, change, extra = "") {
  return html`<label class="switch ${extra}">
    <input type="checkbox" role="switch" .checked=${live(checked)}
      @change=${(event) => change(event.currentTarget.checked)} />
    ${label}
  </label>`;
}

function setTwoPanes(twoPanesWanted) {
  prefer({ twoPanes: twoPanesWanted });
  changed();
}

export function toolbarView() {
  return html`
    <div class="tools" role="toolbar" aria-label=${t("tools.label")}>
      ${sendButton(false)} ${sendButton(true)} ${pasteButton()}
      <span class="gap"></span>
      ${toggle(t("tools.hidden"), preferences.hidden, showHidden)}
      ${toggle(t("tools.twoPanes"), preferences.twoPanes, setTwoPanes, "wide-only")}
    </div>`;
}
