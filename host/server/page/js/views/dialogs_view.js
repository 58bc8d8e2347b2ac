// The open dialogs.

import { repeat } from "/vendor/lit-html/directives/repeat.js";
import { state } from "../store.js";
import { conflictDialog } from "./conflict_view.js";
import { pickDialog } from "./pick_view.js";
import { settingsDialog } from "./settings_view.js";
import { stopDialog } from "./stop_view.js";

const KINDS = {
  conflicts: conflictDialog,
  pick: pickDialog,
  settings: settingsDialog,
  stop: stopDialog,
};

export function dialogsView() {
  return repeat(state.dialogs, ({ id }) => id, (dialog) => KINDS[dialog.kind](dialog));
}
