// Whether the server answers.

import { changed, state } from "./store.js";

export function lost() {
  if (state.offline) return;
  state.offline = true;
  changed();
}

export function found() {
  if (!state.offline) return;
  state.offline = false;
  changed();
}
