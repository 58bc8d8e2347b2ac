// What a task record says, read once and safely. Pure functions.

import { estimate } from "./progress_model.js";

function number(value, fallback) {
  return typeof value === "number" ? value : fallback;
}

function text(value) {
  return typeof value === "string" ? value : "";
}

export function figuresOf(record) {
  const data = record.data ?? {};
  const inBytes = typeof data.processed_num !== "number" || typeof data.processed_size === "number";
  return {
    finished: record.finished === true,
    ratio: record.finished ? number(record.progress, -1) : number(data.progress, -1),
    total: number(data.total, -1),
    processed: number(inBytes ? data.processed_size : data.processed_num, 0),
    inBytes,
    rate: number(data.transfer_rate, -1),
    state: text(data.status),
    path: text(data.processing_path),
    foundFiles: number(data.found_file_num, 0),
    foundBytes: number(data.found_file_size, 0),
  };
}

export function errorsOf(record) {
  const list = Array.isArray(record.data?.errors) ? record.data.errors : [];
  return list.filter((each) => typeof each?.code === "number");
}

export function aboutOf(record) {
  const params = record.data?.params ?? {};
  const summary = record.data?.[record.id] ?? {};
  return {
    move: params.remove_src === true || params.remove_src === "true",
    sources: Array.isArray(params.path) ? params.path.map(String) : [],
    dest: text(params.dest_folder_path),
    created: number(summary.created, 0),
  };
}

// The skip status counts each name that was taken, also those that the task was to replace;
// where some were, it says nothing about the others.
function skippedOf(data) {
  const overwrite = data?.params?.overwrite;
  const replaced = Array.isArray(overwrite) && overwrite.some((each) => String(each) === "true");
  return replaced ? "" : data?.skipstatus?.status;
}

function endOf(record, figures) {
  if (figures.ratio < 0) return "failed";
  if (errorsOf(record).length > 0) return "failures";
  const skipped = skippedOf(record.data);
  if (skipped === "all") return "skippedAll";
  return skipped === "some" ? "skippedSome" : "done";
}

function stageOf(task, figures) {
  if (task.stop === "done") return "stopped";
  if (task.gone) return "gone";
  if (figures.finished) return endOf(task.record, figures);
  if (task.stop === "asked") return "stopping";
  if (figures.state === "NOT_STARTED" || figures.state === "") {
    return task.record.data?.is_vfs || task.record.data?.waiting_in_queue ? "queue" : "starting";
  }
  return figures.ratio >= 0 && figures.total > 0 ? "running" : "counting";
}

const ENDED = new Set(["stopped", "gone", "failed", "failures", "skippedAll", "skippedSome", "done"]);

export function ended(task) {
  return ENDED.has(stageOf(task, figuresOf(task.record)));
}

// Ended with nothing left to do about it.
export function settled(task) {
  const stage = stageOf(task, figuresOf(task.record));
  return ENDED.has(stage) && stage !== "failed" && stage !== "failures";
}

export function describe(task, now) {
  const figures = figuresOf(task.record);
  const stage = stageOf(task, figures);
  return {
    stage,
    ended: ENDED.has(stage),
    good: ["done", "skippedAll", "skippedSome"].includes(stage),
    figures,
    estimate: estimate(task.model, now),
    errors: errorsOf(task.record),
  };
}
