// How the remote mounts are: connected, not yet, or what is wrong with one.

import { host } from "./net.js";
import { changed, state } from "./store.js";
import { t } from "./words.js";

export function remoteOf(path) {
  return state.places.find((place) => place.remote && path.startsWith(place.path));
}

// What was wrong stays known until the server behind it answers: a list does not ask them.
function keep(remote) {
  state.remotes[remote.name] = { ...state.remotes[remote.name], ...remote };
  changed();
}

export async function readRemotes() {
  if (!state.places.some(({ remote }) => remote)) return;
  try {
    const remotes = await host("remotes");
    remotes.forEach(keep);
    // What is mounted may be away all the same.
    remotes.filter(({ mounted }) => mounted).forEach(({ path }) => askRemote(path));
  } catch {
    // The places are shown without it.
  }
}

// Asks the server behind a path whether it is ready; keeps what it says for all of the page.
export async function askRemote(path) {
  const place = remoteOf(path);
  if (!place) return;
  try {
    keep(await host("remote", { name: place.name }));
  } catch {
    // Whoever needed the answer has a failure of their own to show.
  }
}

// A listing that worked shows that the server is there.
export function answered(path) {
  const place = remoteOf(path);
  if (place) keep({ name: place.name, ready: true, problem: "", words: "" });
}

// "ready", "away", "idle": nobody has asked it yet
export function stateOf(place) {
  const known = state.remotes[place.name];
  if (known?.problem) return "away";
  return known?.ready ? "ready" : "idle";
}

// What is wrong with the server behind a path, as a sentence; "" when nothing is known of it.
export function troubleOf(path) {
  const place = remoteOf(path);
  const problem = place && state.remotes[place.name]?.problem;
  if (!problem) return "";
  const key = `remote.${problem}`;
  const text = t(key);
  return text === key ? problem : text;
}

// The words of the program that could not connect, for whoever has to ask.
export function detailOf(path) {
  return state.remotes[remoteOf(path)?.name]?.words ?? "";
}
