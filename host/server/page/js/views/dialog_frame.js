// What all dialogs share: a title, Escape, and the way to close.

import { html } from "/vendor/lit-html/lit-html.js";

// The element is a modal dialog, which keeps the keyboard inside and gives Escape its meaning.
export function frame(dialog, title, body, buttons, classes = "") {
  const titleId = `dialog-${dialog.id}`;
  return html`
    <dialog class=${classes} aria-labelledby=${titleId}
      @cancel=${(event) => {
        event.preventDefault();
        dialog.answer(null);
      }}>
      <h2 id=${titleId}>${title}</h2>
      <div class="dialog-body">${body}</div>
      <div class="dialog-buttons">${buttons}</div>
    </dialog>`;
}

// Dialogs that have just been drawn become modal.
export function openNewDialogs() {
  for (const element of document.querySelectorAll("dialog:not([open])")) {
    element.showModal();
    element.querySelector("[data-first]")?.focus();
  }
}
