// The failed entries of a task, to be run again. Pure functions.

import { isInside } from "./paths.js";

function listed(value, index) {
  if (Array.isArray(value)) return String(value[index]) === "true";
  if (typeof value === "string" && value.includes(",")) return value.split(",")[index] === "true";
  return value === true || value === "true";
}

// The policy the task had for its source `index`; `known` is what this page sent, for what the
// record does not keep.
function policy(params, known, index) {
  if (known.rename && listed(known.rename, index)) return "both";
  if (params.overwrite === undefined || params.overwrite === "") return "";
  return listed(params.overwrite, index) ? "replace" : "skip";
}

// [{ path, policy }] of the sources that failed, each once. A failure below a source is the
// source's own; a task that ended as a whole failed with all it was asked to do.
export function failedSources(record, known = {}) {
  const params = record.data?.params ?? {};
  const sources = params.path ?? [];
  const errors = record.data?.errors ?? [];
  const whole = record.progress < 0 || errors.some(({ path }) => !path);
  const failed = (source) => whole || errors.some(({ path }) => isInside(path, source));
  return sources
    .map((path, index) => ({ path, policy: policy(params, known, index) }))
    .filter(({ path }) => failed(path));
}
