// Smooth progress out of rare figures: pure functions.
//
// A worker writes its figures at most every five seconds. Between two writes the estimate
// follows the measured transfer rate, for no longer than one such interval, so it never runs
// ahead of what the rate predicts until the next write. It never goes back, and only a real
// figure makes it a whole.

const WRITE_INTERVAL = 5;
const ALMOST = 0.999;

export const UNKNOWN = { last: null, seenAt: 0, floor: 0 };

function sameWrite(a, b) {
  return ["finished", "ratio", "total", "processed", "rate", "state", "path", "foundFiles"].every(
    (key) => a[key] === b[key],
  );
}

export function measured(figures) {
  return figures.ratio >= 0 && figures.total > 0;
}

function real(figures) {
  return measured(figures) ? Math.min(Math.max(figures.ratio, 0), 1) : 0;
}

function hasRate(figures) {
  return figures.inBytes && Number.isFinite(figures.rate) && figures.rate > 0;
}

function predicted({ last, seenAt }, now) {
  const done = real(last);
  if (!measured(last) || last.finished || !hasRate(last) || done >= 1) return done;
  const age = Math.min(Math.max(now - seenAt, 0), WRITE_INTERVAL);
  return Math.max(done, Math.min(done + (last.rate * age) / last.total, ALMOST));
}

// The model after `figures` were received at `now`, in seconds of any steady clock. An
// answer that repeats the figures of the latest write changes nothing.
export function observe(model, figures, now) {
  if (model.last && sameWrite(model.last, figures)) return model;
  return { last: figures, seenAt: now, floor: estimate(model, now).fraction };
}

// { measured, fraction: 0 to 1, remaining: seconds, negative when not known }
export function estimate(model, now) {
  if (!model.last) return { measured: false, fraction: 0, remaining: -1 };
  const fraction = Math.max(model.floor, predicted(model, now));
  const isMeasured = measured(model.last);
  const remaining =
    isMeasured && hasRate(model.last)
      ? ((1 - fraction) * model.last.total) / model.last.rate
      : -1;
  return { measured: isMeasured, fraction, remaining };
}
