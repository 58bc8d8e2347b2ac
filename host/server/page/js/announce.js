// Says how a task ended.

import { say, sayOnDesktop } from "./notices.js";
import { nameOf } from "./paths.js";
import { describe } from "./task_state.js";
import { counted, notice, reason, t } from "./words.js";

function namesOf(sources) {
  const names = sources.slice(0, 3).map(nameOf).join(", ");
  return sources.length > 3 ? `${names} …` : names;
}

function words(task) {
  const { stage, errors } = describe(task, 0);
  const verb = task.about.move ? "move" : "copy";
  if (stage === "stopped" || stage === "gone") return t(`task.${stage}`);
  if (errors.length === 1 && errors[0].path) {
    const text = notice(`filebrowser:filebrowser_${verb}_failed`, nameOf(errors[0].path), reason(errors[0].code));
    if (text) return text;
  }
  if (stage === "failures") return counted("task.failures", errors.length);
  if (stage === "failed") return t("task.failed");
  const suffix = { skippedAll: "_skip_all", skippedSome: "_skip_some" }[stage] ?? "";
  const key = `filebrowser:filebrowser_${verb}_completed${suffix}`;
  return notice(key, namesOf(task.about.sources)) || t("task.done");
}

export function announceEnd(task) {
  const { good, stage } = describe(task, 0);
  // Whoever stopped it knows.
  if (stage === "stopped") return;
  const text = words(task);
  say(good ? "good" : stage === "gone" ? "info" : "bad", text);
  sayOnDesktop(text, task.id);
}
