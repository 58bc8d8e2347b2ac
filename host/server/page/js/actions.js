// What the buttons and keys do.

import { ask } from "./dialogs.js";
import { say } from "./notices.js";
import { activePane, otherPane, selectedSources } from "./panes.js";
import { ROOT } from "./paths.js";
import { twoPanes } from "./preferences.js";
import { changed, state } from "./store.js";
import { stop } from "./tasks.js";
import { explain, transfer } from "./transfer.js";
import { counted, t } from "./words.js";

function chosen() {
  const pane = activePane();
  const sources = selectedSources(pane);
  const { selected } = pane.selection;
  if (pane.path !== ROOT && sources.length < selected.size) {
    say("bad", t("pane.damaged"));
    return [];
  }
  if (sources.length === 0) say("info", t(pane.path === ROOT ? "act.places" : "act.nothing"));
  return sources;
}

// To the other pane, or to a folder that the user picks when there is none.
export async function send(move) {
  if (state.busy) return;
  const sources = chosen();
  if (sources.length === 0) return;
  if (twoPanes(state)) {
    await transfer({ move, sources, dest: otherPane().path });
    return;
  }
  const dest = await ask("pick", { move, sources, start: activePane().path });
  if (dest) await transfer({ move, sources, dest });
}

export function clip(move) {
  const sources = chosen();
  if (sources.length === 0) return;
  state.clipboard = { move, sources };
  say("info", counted(move ? "act.cut" : "act.copied", sources.length));
  changed();
}

export async function paste() {
  if (!state.clipboard) {
    say("info", t("act.emptyClipboard"));
    return;
  }
  const { move, sources } = state.clipboard;
  const started = await transfer({ move, sources, dest: activePane().path });
  // What was moved is not where it was: it can be pasted once.
  if (started && move) {
    state.clipboard = null;
    changed();
  }
}

export async function askToStop(task) {
  if (!(await ask("stop", { task }))) return;
  try {
    await stop(task.id);
  } catch (failure) {
    if (failure.kind !== "login") say("bad", explain(failure));
  }
}
