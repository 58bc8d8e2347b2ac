// The page beside a task that takes its time.

import assert from "node:assert/strict";
import { test } from "node:test";

import { launch, Window } from "./browser.mjs";
import { Server } from "./server.mjs";

test("A long task: the bar moves, a reload finds it, a lost server comes back, a question stops it", async () => {
  const browser = await launch();
  const slow = await new Server({ bandwidth: "2MB" }).start();
  try {
    slow.write("from/big", Buffer.alloc(100 << 20, "x"));
    const window = await (await Window.open(browser, slow)).login();
    await window.select("big");
    await window.page.keyboard.press("F5");
    await window.task("running");
    await window.page.reload();
    await window.task("running");
    // The record changes every five seconds; the bar has more steps than that.
    const seen = new Set();
    const bar = window.page.getByRole("progressbar").locator(".fill");
    while (seen.size < 6) {
      const done = Number(await bar.evaluate((fill) => fill.style.getPropertyValue("--done")));
      assert.ok(done <= 0.999, `${done} before the end`);
      assert.ok([...seen].every((earlier) => earlier <= done), "it never goes back");
      seen.add(done);
    }
    assert.match(await window.tasks().first().innerText(), /of 105 MB · .*\/s · .* left[^]*Now: \/from\/big/);
    await slow.stop();
    await window.page.getByRole("alert").filter({ hasText: "does not answer" }).waitFor();
    await slow.start();
    // Whoever's sessions did not survive logs in again.
    await window.page.getByRole("alert").filter({ hasText: "does not answer" }).waitFor({ state: "detached" });
    const token = window.page.getByLabel("Token");
    await Promise.race([token.waitFor(), window.page.locator(".task.running").waitFor()]);
    if (await token.count()) {
      await token.fill(slow.token);
      await window.page.keyboard.press("Enter");
    }
    await window.task("running");
    await window.button(/^Stop: Copy big/).click();
    await window.button("Go on").click();
    await window.task("running");
    await window.button(/^Stop: Copy big/).click();
    await window.button("Stop", window.dialog()).click();
    await window.task("stopped");
    assert.equal(slow.has("to/big"), false);
    assert.deepEqual(await slow.host("tasks"), []);
    await window.close();
  } finally {
    await browser.close();
    await slow.end();
  }
});
