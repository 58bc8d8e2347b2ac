// The browser, and what a person does with the page.

import assert from "node:assert/strict";
import { createRequire } from "node:module";

const require = createRequire(`${process.env.FENNOX_BROWSER_MODULES ?? import.meta.url}/`);
const { chromium } = require("playwright-core");
const axe = require("axe-core");

// Where the page's files are taken from instead of the server: work on them needs no build.
const PAGE = process.env.FENNOX_PAGE;
const TYPES = { css: "text/css", html: "text/html", js: "text/javascript", svg: "image/svg+xml" };

function servePage(route) {
  const { pathname } = new URL(route.request().url());
  const file = pathname === "/" ? "/index.html" : pathname;
  const contentType = TYPES[file.split(".").pop()];
  return route.fulfill({ path: PAGE + file, contentType });
}

export async function launch() {
  // Chromium's own sandbox cannot be set up by root; the pages are ours.
  const args = process.getuid() === 0 ? ["--no-sandbox"] : [];
  return chromium.launch({ executablePath: process.env.FENNOX_CHROMIUM ?? "/usr/bin/chromium", args });
}

// A window of a fresh profile. Whatever goes wrong in its scripts fails the test at close().
export class Window {
  static async open(browser, server, { left = "/from", right = "/to", ...options } = {}) {
    const context = await browser.newContext({ locale: "en-US", viewport: { width: 1280, height: 800 }, ...options });
    context.setDefaultTimeout(30000);
    // As if this window had been there before.
    await context.addInitScript((place) => {
      if (!sessionStorage.getItem("fennox.place")) sessionStorage.setItem("fennox.place", JSON.stringify(place));
    }, { left, right, active: "left" });
    if (PAGE) await context.route(/^[^?#]*\/(js\/.*|[a-z]+\.(css|svg)|)(#.*)?$/, servePage);
    const page = await context.newPage();
    return new Window(context, page, server);
  }

  constructor(context, page, server) {
    Object.assign(this, { context, page, server, faults: [] });
    page.on("pageerror", (error) => this.faults.push(String(error)));
    page.on("console", (message) => {
      if (message.text().includes("Content Security Policy")) this.faults.push(message.text());
    });
    page.on("request", (request) => {
      const own = new URL(request.url()).host === new URL(server.url).host;
      if (!own && !request.url().startsWith("data:")) this.faults.push(`another site: ${request.url()}`);
    });
  }

  async close() {
    await this.context.close();
    assert.deepEqual(this.faults, []);
  }

  async login() {
    await this.page.goto(`${this.server.url}/#token=${this.server.token}`);
    await this.row("keep").or(this.page.locator(".pane .row.file")).first().waitFor();
    assert.ok(!this.page.url().includes("token"), "the token stays out of the address");
    return this;
  }

  pane(id = "left") {
    return this.page.locator(`#pane-${id}`);
  }

  grid(id = "left") {
    return this.pane(id).getByRole("grid");
  }

  row(name, id = "left") {
    return this.pane(id).locator(".row").filter({ has: this.page.locator(".text", { hasText: exactly(name) }) });
  }

  dialog() {
    return this.page.getByRole("dialog");
  }

  button(name, within = this.page) {
    return within.getByRole("button", { name });
  }

  tasks() {
    return this.page.locator(".task");
  }

  // The newest task, once it has this stage.
  async task(stage) {
    const task = this.page.locator(".task").first();
    await this.page.locator(`.task.${stage}`).first().waitFor({ timeout: 60000 });
    assert.ok((await task.getAttribute("class")).split(" ").includes(stage));
    return task;
  }

  async select(...names) {
    await this.row(names[0]).locator(".text").click();
    for (const name of names.slice(1)) await this.row(name).locator(".text").click({ modifiers: ["Control"] });
  }

  // What an accessibility checker finds wrong with what is shown now.
  async accessibilityFaults() {
    await this.page.evaluate(axe.source);
    const { violations } = await this.page.evaluate(() => globalThis.axe.run(document));
    return violations.map(({ id, nodes }) => `${id}: ${nodes.map((node) => node.html).slice(0, 3).join(" ")}`);
  }
}

// Waits until it holds; for what no locator can wait for.
export async function until(holds, seconds = 30) {
  const end = Date.now() + seconds * 1000;
  while (!(await holds())) {
    assert.ok(Date.now() < end, `never: ${holds}`);
    await new Promise((resolve) => setTimeout(resolve, 20));
  }
}

function exactly(text) {
  return new RegExp(`^${text.replace(/[.*+?^${}()|[\]\\]/g, "\\$&")}$`);
}
