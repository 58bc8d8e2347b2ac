// Starts copies and moves: checks what can be known before, asks about conflicts, tells the server.

import * as conflicts from "./conflicts.js";
import { ask } from "./dialogs.js";
import { entriesNamed, placeOf } from "./listing.js";
import { api } from "./net.js";
import { say } from "./notices.js";
import { isInside, nameOf, parent, ROOT } from "./paths.js";
import { changed, state } from "./store.js";
import { track } from "./tasks.js";
import { reason, t } from "./words.js";

const CONFLICT = 1003;
// Share restrictions under which the server gives new names by itself.
const KEEPS_WHAT_IS_THERE = 3;

// Why this cannot be done at all; "" when it can.
function obstacle({ move, sources, dest }) {
  if (sources.length === 0) return t("act.nothing");
  if (dest === ROOT) return t("act.noTarget");
  if (placeOf(dest)?.writable === false) return t("act.readonly", nameOf(dest));
  const inside = sources.find((source) => isInside(dest, source.path) && source.type !== "file");
  if (inside) return t("act.inside", inside.name);
  if (move && sources.every((source) => parent(source.path) === dest)) return t("act.sameFolder");
  return "";
}

function mayReplace(dest) {
  return ((placeOf(dest)?.restrictions ?? 0) & KEEPS_WHAT_IS_THERE) === 0;
}

export function explain(failure) {
  if (failure.kind === "offline") return t("act.offline");
  if (failure.kind === "busy") return t("act.busy");
  const first = Array.isArray(failure.detail) ? failure.detail[0] : null;
  if (first?.path) return t("act.refusedPath", first.path, reason(first.code));
  const said = failure.detail?.message;
  return t("act.refused", said ? `${reason(failure.code)} ${said}` : reason(failure.code));
}

function isConflict(failure) {
  return Array.isArray(failure.detail) && failure.detail.some((each) => each.code === CONFLICT);
}

// Asks about the names that are taken. Null when the user wants none of it.
async function settle(order) {
  // A copy beside its original needs no question: both stay.
  if (order.sources.every((source) => parent(source.path) === order.dest)) {
    // The server refuses a taken name unless it is told what to do about what is there.
    return { sources: order.sources, overwrite: false, rename: true };
  }
  const existing = await entriesNamed(order.dest, order.sources.map(({ name }) => name));
  const found = conflicts.find(order.sources, existing, { mayReplace: mayReplace(order.dest) });
  if (found.length === 0) return { sources: order.sources };
  const answered = await ask("conflicts", { order, conflicts: found });
  if (!answered) return null;
  return conflicts.decide(order.sources, answered);
}

function parameters(order, settled) {
  const params = {
    path: settled.sources.map((source) => source.path),
    dest_folder_path: order.dest,
    remove_src: order.move,
  };
  if (settled.overwrite !== undefined) params.overwrite = settled.overwrite;
  if (settled.rename !== undefined) params.rename = settled.rename;
  return params;
}

async function start(order, settled) {
  const params = parameters(order, settled);
  try {
    const { taskid } = await api("start", params);
    track(taskid, { rename: params.rename });
    return taskid;
  } catch (failure) {
    if (failure.kind !== "offline") throw failure;
    // The request may have reached the server before the connection broke.
    say("bad", t("act.unsure"));
    return null;
  }
}

async function settleAndStart(order) {
  // A name may be taken between the look and the start: then the question comes again.
  for (let round = 0; ; round++) {
    const settled = await settle(order);
    if (settled === null) return null;
    if (settled.sources.length === 0) {
      say("info", t("act.skippedAll"));
      return null;
    }
    try {
      return await start(order, settled);
    } catch (failure) {
      if (!isConflict(failure) || round >= 2) throw failure;
    }
  }
}

// One action at a time: a second click while the first is on its way does nothing.
async function alone(what, action) {
  if (state.busy) return null;
  state.busy = what;
  changed();
  try {
    return await action();
  } catch (failure) {
    if (failure.kind !== "login") say("bad", explain(failure));
    return null;
  } finally {
    state.busy = "";
    changed();
  }
}

// order: { move, sources: [{ path, name, type, size, mtime }], dest }. The task's id, or null.
export function transfer(order) {
  const why = obstacle(order);
  if (why) {
    say("bad", why);
    return Promise.resolve(null);
  }
  return alone(order.move ? "move" : "copy", () => settleAndStart(order));
}

// Runs an order again whose policy for each path is known.
export function transferWith(order, settled) {
  return alone("again", () => start(order, settled));
}
