// Questions to the user, one above the other. Each is answered once.

import { changed, state } from "./store.js";

let last = 0;

// Shows a dialog of this kind; resolves with what it was answered, null when it was closed.
export function ask(kind, values = {}) {
  return new Promise((resolve) => {
    const opener = document.activeElement;
    const dialog = { id: ++last, kind, ...values };
    dialog.answer = (value) => {
      if (!state.dialogs.includes(dialog)) return;
      state.dialogs = state.dialogs.filter((each) => each !== dialog);
      changed();
      // The one who asked has the keyboard again.
      if (opener?.isConnected) opener.focus();
      resolve(value);
    };
    state.dialogs = [...state.dialogs, dialog];
    changed();
  });
}
