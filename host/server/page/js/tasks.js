// Follows the user's tasks for as long as the page is open.

import { announceEnd } from "./announce.js";
import { api, host } from "./net.js";
import { refreshAll } from "./panes.js";
import { parent } from "./paths.js";
import { recall, remember } from "./preferences.js";
import { changed, state } from "./store.js";
import { newTask, reconcile } from "./task_list.js";
import { ended, settled } from "./task_state.js";

// A short task ends promptly, a long one is asked about once a second, an idle page seldom.
const FIRST = 100;
const BUSY = 1000;
const IDLE = 5000;

let timer = 0;
let wait = FIRST;
let asking = false;
const fresh = new Set();
const dismissed = new Set();

export function seconds() {
  return performance.now() / 1000;
}

function running() {
  return state.tasks.some((task) => !ended(task));
}

function schedule() {
  clearTimeout(timer);
  if (!state.user) return;
  wait = state.offline ? 2000 : running() ? Math.min(wait * 1.25, BUSY) : IDLE;
  timer = setTimeout(poll, wait);
}

async function showResults(justEnded) {
  const paths = new Set();
  for (const { about } of justEnded) {
    paths.add(about.dest);
    for (const source of about.sources) paths.add(parent(source));
  }
  await refreshAll(paths);
}

async function poll() {
  if (asking) return;
  asking = true;
  const asked = new Set(fresh);
  const wasOffline = state.offline;
  try {
    const records = await host("tasks");
    const startedMeanwhile = new Set([...fresh].filter((id) => !asked.has(id)));
    asked.forEach((id) => fresh.delete(id));
    const options = { fresh: startedMeanwhile, dismissed };
    const { tasks, justEnded } = reconcile(state.tasks, records, seconds(), options);
    state.tasks = tasks;
    changed();
    justEnded.forEach(announceEnd);
    if (wasOffline) await refreshAll();
    else if (justEnded.length > 0) await showResults(justEnded);
  } catch {
    // Said where all of the page sees it: the connection or the login is gone.
  } finally {
    asking = false;
    schedule();
  }
}

export function follow() {
  wait = FIRST;
  clearTimeout(timer);
  return poll();
}

// A task that this page has just started; `known` is what its record does not keep.
export function track(id, known) {
  remember(`task.${id}`, known);
  fresh.add(id);
  if (!state.tasks.some((task) => task.id === id)) state.tasks = [newTask(id), ...state.tasks];
  state.trayOpen = true;
  changed();
  follow();
}

export function knownOf(id) {
  return recall(`task.${id}`);
}

function mark(id, change) {
  state.tasks = state.tasks.map((task) => (task.id === id ? { ...task, ...change } : task));
  changed();
}

export async function stop(id) {
  mark(id, { stop: "asked" });
  try {
    await api("stop", { taskid: id });
    const task = state.tasks.find((each) => each.id === id);
    mark(id, { stop: "done" });
    if (task) await showResults([task]);
  } catch (failure) {
    mark(id, { stop: "" });
    throw failure;
  }
}

// Takes an ended task off the list; asking for its status lets the server drop the record.
export async function dismiss(id) {
  dismissed.add(id);
  state.tasks = state.tasks.filter((task) => task.id !== id);
  changed();
  try {
    await api("status", { taskid: id });
  } catch {
    // The record is gone already, or goes when its time is over.
  }
}

// What failed stays until its user has seen to it.
export function dismissGood() {
  return Promise.all(state.tasks.filter(settled).map(({ id }) => dismiss(id)));
}
