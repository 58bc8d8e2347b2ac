// The page's list of tasks against the records the server has. Pure functions.

import { observe, UNKNOWN } from "./progress_model.js";
import { aboutOf, ended, figuresOf } from "./task_state.js";

export function newTask(id) {
  return {
    id,
    record: { id, finished: false, progress: 0, data: null },
    about: { move: false, sources: [], dest: "", created: 0 },
    model: UNKNOWN,
    stop: "", // "asked", "done"
    gone: false,
  };
}

function updated(task, record, now) {
  // A record without data is one that its worker has yet to fill.
  const about = record.data ? aboutOf(record) : task.about;
  return { ...task, record, about, model: observe(task.model, figuresOf(record), now) };
}

// A record that went away belongs to a stopped task, or someone else asked how it ended.
function without(task) {
  if (ended(task)) return task.stop === "done" || task.gone ? task : null;
  return task.stop ? { ...task, stop: "done" } : { ...task, gone: true };
}

// `fresh` holds the ids that were started after the records were asked for. The result has the
// tasks, newest first, and those of them that ended since.
export function reconcile(tasks, records, now, { fresh = new Set(), dismissed = new Set() } = {}) {
  const byId = new Map(records.map((record) => [record.id, record]));
  const known = new Set(tasks.map((task) => task.id));
  const next = tasks
    .map((task) => {
      const record = byId.get(task.id);
      if (record) return updated(task, record, now);
      return fresh.has(task.id) ? task : without(task);
    })
    .filter((task) => task !== null);
  const added = records
    .filter((record) => !known.has(record.id) && !dismissed.has(record.id))
    .map((record) => updated(newTask(record.id), record, now))
    .reverse();
  const before = new Map(tasks.map((task) => [task.id, task]));
  const justEnded = next.filter((task) => ended(task) && !ended(before.get(task.id)));
  return { tasks: [...added, ...next], justEnded };
}
