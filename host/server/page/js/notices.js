// Short words to the user, in the page and, where allowed, on the desktop.

import { preferences } from "./preferences.js";
import { changed, state } from "./store.js";

const SHOWN = { good: 6000, info: 6000, bad: 15000 };
const MOST = 4;
let last = 0;

// kind: "good", "info" or "bad"
export function say(kind, text) {
  const id = ++last;
  const others = state.notices.filter((notice) => notice.text !== text);
  state.notices = [...others, { id, kind, text }].slice(-MOST);
  changed();
  setTimeout(() => close(id), SHOWN[kind]);
}

export function close(id) {
  state.notices = state.notices.filter((notice) => notice.id !== id);
  changed();
}

export function desktopPossible() {
  return "Notification" in window && Notification.permission !== "denied";
}

export async function allowDesktop() {
  if (!("Notification" in window)) return false;
  return (await Notification.requestPermission()) === "granted";
}

// Someone who looks at the page needs no second notice.
export function sayOnDesktop(text, tag) {
  if (!preferences.desktopNotices || !document.hidden || !("Notification" in window)) return;
  if (Notification.permission !== "granted") return;
  try {
    new Notification("Fennox", { body: text, tag });
  } catch {
    // Some phones only allow notices from a service worker.
  }
}
