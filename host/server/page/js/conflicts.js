// Names that are taken at the destination: which, and what to do about each. Pure functions.

// "both": the new one gets a free name. "skip": what exists stays. "replace": the new one
// takes the name. Folders are never replaced as a whole: they merge, and the choice holds for
// the files in them.
export const CHOICES = ["both", "skip", "replace"];

// [{ source, existing, choices, choice }] for the sources whose name `existing` has.
export function find(sources, existing, { mayReplace = true } = {}) {
  const taken = new Map(existing.map((entry) => [entry.name, entry]));
  return sources
    .filter((source) => taken.has(source.name))
    .map((source) => {
      const there = taken.get(source.name);
      const choices = allowed(source, there, mayReplace);
      return { source, existing: there, choices, choice: choices.includes("skip") ? "skip" : "both" };
    });
}

function allowed(source, there, mayReplace) {
  const sameKind = (source.type === "folder") === (there.type === "folder");
  return CHOICES.filter((choice) => choice !== "replace" || (sameKind && mayReplace));
}

// What to do with the sources once each conflict has its choice: the sources to send, and the
// two lists with a value for each of them. A source that can only be left out is left out.
export function decide(sources, conflicts) {
  const choices = new Map(conflicts.map((conflict) => [conflict.source.name, conflict]));
  const sent = sources.filter((source) => {
    const conflict = choices.get(source.name);
    return !(conflict && conflict.choice === "skip" && !merges(conflict));
  });
  const choiceOf = (source) => choices.get(source.name)?.choice;
  return {
    sources: sent,
    overwrite: sent.map((source) => choiceOf(source) === "replace"),
    rename: sent.map((source) => choiceOf(source) === "both"),
  };
}

// Skipping a folder still brings what the folder there lacks.
export function merges({ source, existing }) {
  return source.type === "folder" && existing.type === "folder";
}
