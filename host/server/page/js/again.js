// "Try again" for what failed in a task.

import { entriesNamed } from "./listing.js";
import { say } from "./notices.js";
import { nameOf, parent } from "./paths.js";
import { failedSources } from "./retry.js";
import { knownOf } from "./tasks.js";
import { explain, transfer, transferWith } from "./transfer.js";

// Sizes and times of the sources as they are now.
async function describeSources(failed) {
  const folders = [...new Set(failed.map(({ path }) => parent(path)))];
  const paths = failed.map(({ path }) => path);
  const namesIn = (folder) => paths.filter((path) => parent(path) === folder).map(nameOf);
  const lists = await Promise.all(folders.map((folder) => entriesNamed(folder, namesIn(folder))));
  const known = new Map();
  folders.forEach((folder, index) => {
    for (const entry of lists[index]) known.set(`${folder}\n${entry.name}`, entry);
  });
  const described = failed.map(({ path, policy }) => {
    const entry = known.get(`${parent(path)}\n${nameOf(path)}`);
    const { type = "file", size = 0, mtime = 0 } = entry ?? {};
    return { path, policy, name: nameOf(path), type, size, mtime, there: Boolean(entry) };
  });
  // What a move brought over before it ended is not here any more. When nothing is here, the
  // server says so in its own words.
  const there = described.filter((source) => source.there);
  return there.length > 0 ? there : described;
}

export async function tryAgain(task) {
  const { move, dest } = task.about;
  try {
    const sources = await describeSources(failedSources(task.record, knownOf(task.id)));
    // A folder that failed is there in part: going on brings only what is missing.
    const settledAlready = sources.every(({ type, policy }) => policy || type === "folder");
    if (!settledAlready) return await transfer({ move, sources, dest });
    return await transferWith(
      { move, dest },
      {
        sources,
        overwrite: sources.map(({ policy }) => policy === "replace"),
        rename: sources.map(({ policy }) => policy === "both"),
      },
    );
  } catch (failure) {
    if (failure.kind !== "login") say("bad", explain(failure));
    return null;
  }
}
