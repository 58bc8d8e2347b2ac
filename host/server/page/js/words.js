// The page's words in the language of the page, and the server's texts for codes and notices.

import { host } from "./net.js";
import { preferences } from "./preferences.js";
import { changed } from "./store.js";
import { english } from "./texts/english.js";
import { german } from "./texts/german.js";

// By the names that the server's text tables have for languages.
const LANGUAGES = { enu: english, ger: german };
const LOCALES = { enu: "en", ger: "de" };

export const languages = Object.keys(LANGUAGES);

export function language() {
  if (preferences.language in LANGUAGES) return preferences.language;
  return navigator.language?.toLowerCase().startsWith("de") ? "ger" : "enu";
}

export function locale() {
  return LOCALES[language()];
}

// The text for a key; {0}, {1} … are replaced by the values.
export function t(key, ...values) {
  const text = LANGUAGES[language()][key] ?? english[key] ?? key;
  return text.replace(/\{(\d)\}/g, (_, index) => values[index] ?? "");
}

// A text that counts: KEY.one or KEY.other, with the number as {0}.
export function counted(key, number, ...values) {
  const shown = Math.round(number).toLocaleString(locale());
  return t(`${key}.${number === 1 ? "one" : "other"}`, shown, ...values);
}

let tables = { language: "", errors: {}, notices: {} };

export async function loadTables() {
  const wanted = language();
  if (tables.language === wanted) return;
  const answer = await host("texts", { language: wanted });
  tables = { ...answer, language: wanted };
  changed();
}

// The reason a code stands for, as a sentence, with the code for whoever has to ask.
export function reason(code) {
  const text = tables.errors[code] ?? tables.errors["-1"] ?? t("error.code");
  return `${text} (${code})`;
}

// What the server says about a task that ended; "" when it does not know the key.
export function notice(key, ...values) {
  const format = tables.notices[key];
  if (!format) return "";
  let next = 0;
  return format.replace(/%s/g, () => values[next++] ?? "");
}
