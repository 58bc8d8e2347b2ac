// What this browser remembers: how things are shown, and where one was.

const KEY = "fennox";

const defaults = {
  language: "", // "": what the browser asks for
  theme: "auto",
  twoPanes: true,
  hidden: false,
  sort: { key: "name", descending: false },
  desktopNotices: false,
};

function stored(storage, key) {
  try {
    return JSON.parse(storage.getItem(key)) ?? {};
  } catch {
    return {};
  }
}

function keep(storage, key, value) {
  try {
    storage.setItem(key, JSON.stringify(value));
  } catch {
    // Private windows may refuse; then things are as they were at the next visit.
  }
}

export const preferences = { ...defaults, ...stored(localStorage, KEY) };

export function prefer(values) {
  Object.assign(preferences, values);
  keep(localStorage, KEY, preferences);
}

// Of this window only, and only while it is open.
export function recall(key) {
  return stored(sessionStorage, `${KEY}.${key}`);
}

export function remember(key, value) {
  keep(sessionStorage, `${KEY}.${key}`, value);
}

export function forgetWindow() {
  sessionStorage.clear();
}

export function twoPanes(state) {
  return preferences.twoPanes && !state.narrow;
}
