// The transfer log: what was copied and moved, newest first.

import { host } from "./net.js";
import { changed, state } from "./store.js";

const MOST = 1000;

export async function readLog() {
  state.log.status = "loading";
  changed();
  try {
    state.log.lines = await host("log", { limit: MOST });
    state.log.status = "ready";
  } catch {
    state.log.status = "failed";
  }
  changed();
}

// The lines that hold every word of `text`.
export function matching(lines, text) {
  const words = text.toLocaleLowerCase().split(/\s+/).filter(Boolean);
  if (words.length === 0) return lines;
  return lines.filter((line) => {
    const all = `${line.text} ${line.action}`.toLocaleLowerCase();
    return words.every((word) => all.includes(word));
  });
}
