// Remote mounts in the page, on a real WebDAV server.

import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { once } from "node:events";
import fs from "node:fs";
import os from "node:os";
import path from "node:path";
import readline from "node:readline";
import { after, before, test } from "node:test";
import { fileURLToPath } from "node:url";

import { launch, Window } from "./browser.mjs";
import { Server } from "./server.mjs";

const APACHE = fs.existsSync("/usr/sbin/apache2");
const WEBDAV = fileURLToPath(new URL("../servers/webdav.py", import.meta.url));
let browser;
let far; // the folder that the WebDAV server has
let web;
let server;

function remote(name, mount, { protocol, port, user, password_file }) {
  const values = { name, protocol, host: "127.0.0.1", port, user, password_file, path: far, mount };
  // JSON's texts and numbers are TOML's too.
  return "[[remote]]\n" + Object.entries(values).map(([key, value]) => `${key} = ${JSON.stringify(value)}\n`).join("");
}

before(async () => {
  if (!APACHE) return;
  far = fs.mkdtempSync(path.join(os.tmpdir(), "fennox-far-"));
  fs.chmodSync(far, 0o755);
  web = spawn("/usr/bin/python3", [WEBDAV, "--root", far], { stdio: ["pipe", "pipe", "inherit"] });
  const lines = readline.createInterface({ input: web.stdout });
  // One that ends instead has said why.
  const [line] = await Promise.race([once(lines, "line"), once(web, "exit")]);
  if (typeof line !== "string") throw new Error("the WebDAV server did not start");
  const settings = JSON.parse(line);
  const more = remote("far", far, settings) + remote("gone", "auto", { ...settings, port: 9 });
  server = await new Server({ bandwidth: "2MB", more }).start();
  browser = await launch();
});

after(async () => {
  await browser?.close();
  await server?.end();
  if (web?.exitCode === null) {
    web.stdin.end();
    await once(web, "exit");
  }
  if (far) fs.rmSync(far, { recursive: true, force: true });
});

const skip = APACHE ? false : "needs apache2-bin";
test("Remote mounts are places to copy to and from, and one that is away says why", { skip }, async () => {
  const contents = { last: "last" };
  for (const name of ["one", "three", "two"]) contents[name] = Buffer.alloc(10 << 20, name);
  for (const name in contents) server.write(`from/${name}`, contents[name]);
  fs.writeFileSync(path.join(far, "there"), "on the other server");
  const window = await (await Window.open(browser, server, { left: "/from", right: "webdav://far/" })).login();
  const places = window.page.getByRole("navigation", { name: "Places" });
  await places.getByRole("button", { name: "far connected" }).waitFor();
  // Three at a time.
  for (const name of ["one", "two", "three", "last"]) {
    await window.select(name);
    await window.page.keyboard.press("F5");
    await window.page.locator(".task", { hasText: `Copy ${name} to` }).waitFor();
  }
  await window.page.locator(".task", { hasText: /Copy last to[^]*Waiting in queue/ }).waitFor();
  await window.page.locator(".task.done").nth(3).waitFor();
  for (const name in contents) {
    await window.row(name, "right").waitFor();
    assert.ok(fs.readFileSync(path.join(far, name)).equals(Buffer.from(contents[name])));
  }
  await window.row("there", "right").locator(".text").click();
  await window.page.keyboard.press("F6");
  await window.row("there").waitFor();
  assert.equal(server.read("from/there"), "on the other server");
  assert.equal(fs.existsSync(path.join(far, "there")), false);
  await places.getByRole("button", { name: /^gone/ }).click();
  // Without FUSE this machine cannot even ask.
  const why = /The machine is there, but no server answers on it|The file server lacks something/;
  await window.pane("right").getByRole("alert").getByText(why).waitFor();
  await places.getByRole("button", { name: why }).waitFor();
  assert.deepEqual(await window.accessibilityFaults(), []);
  await window.close();
});
