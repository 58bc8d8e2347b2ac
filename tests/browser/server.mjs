// A throw-away server on folders of its own, and what tests look up in its folders.

import { spawn } from "node:child_process";
import { once } from "node:events";
import fs from "node:fs";
import os from "node:os";
import path from "node:path";
import readline from "node:readline";
import { fileURLToPath } from "node:url";

const BUILD = process.env.FENNOX_BUILD ?? fileURLToPath(new URL("../../build/dev", import.meta.url));

export class Server {
  // `shares`: names of shares, each a folder of this name. `bandwidth`: "8MB" per second. `more`:
  // lines of its configuration.
  constructor({ shares = ["from", "to"], bandwidth = "0", readOnly = [], more = "" } = {}) {
    this.place = fs.mkdtempSync(path.join(os.tmpdir(), "fennox-browser-"));
    this.state = path.join(this.place, "state");
    for (const share of [...shares, ...readOnly]) fs.mkdirSync(this.path(share));
    this.config = path.join(this.place, "fennox.toml");
    this.port = 0;
    this.shares = shares;
    this.bandwidth = bandwidth;
    this.readOnly = readOnly;
    this.more = more;
  }

  path(...names) {
    return path.join(this.place, ...names);
  }

  writeConfig() {
    const shares = [...this.shares, ...this.readOnly].map(
      (name) => `[[share]]\nname = "${name}"\npath = "${this.path(name)}"\nread = ["*"]\n` +
        `write = [${this.readOnly.includes(name) ? "" : '"*"'}]\n`,
    );
    fs.writeFileSync(
      this.config,
      `[server]\nlisten = "127.0.0.1:${this.port}"\nstate = "${this.state}"\n${shares.join("")}` +
        `[bandwidth]\ndefault = "${this.bandwidth}"\n[copymove]\nfilebrowserxferlog = "yes"\n${this.more}`,
    );
  }

  // Starts, or starts again at the same port.
  async start() {
    this.writeConfig();
    const log = fs.openSync(this.path("log"), "a");
    this.process = spawn(path.join(BUILD, "fennoxd"), ["--log-stderr", "--config", this.config], {
      stdio: ["ignore", "pipe", log],
    });
    fs.closeSync(log);
    const lines = readline.createInterface({ input: this.process.stdout });
    // A server that ends instead has said why in its log.
    const [line] = await Promise.race([once(lines, "line"), once(this.process, "exit")]);
    const found = /http:\/\/127\.0\.0\.1:(\d+)\/$/.exec(line);
    if (!found) throw new Error(`no address in ${line}; ${fs.readFileSync(this.path("log"), "utf8")}`);
    this.port = Number(found[1]);
    this.token = fs.readFileSync(path.join(this.state, "token"), "utf8").trim();
    this.url = `http://127.0.0.1:${this.port}`;
    return this;
  }

  async stop() {
    if (!this.process || this.process.exitCode !== null) return;
    const gone = once(this.process, "exit");
    this.process.kill("SIGTERM");
    await gone;
  }

  async end() {
    await this.stop();
    fs.rmSync(this.place, { recursive: true, force: true });
  }

  // A call by another client than the page.
  async host(name, query = {}) {
    const response = await fetch(`${this.url}/host/${name}?${new URLSearchParams(query)}`, {
      headers: { Authorization: `Bearer ${this.token}` },
    });
    return (await response.json()).data;
  }

  // Takes the records of tasks that have ended.
  async forgetTasks() {
    const headers = { Authorization: `Bearer ${this.token}` };
    const status = `${this.url}/webapi/TAVO.Fennox.CopyMove?version=3&method=status&taskid=`;
    for (const { id, finished } of await this.host("tasks")) {
      if (finished) await fetch(status + id, { method: "POST", headers });
    }
  }

  // --- the folders behind the shares

  // A name that is no text is given as bytes.
  write(name, content = name) {
    const file = Buffer.concat([Buffer.from(`${this.place}/`), Buffer.from(name)]);
    fs.mkdirSync(file.subarray(0, file.lastIndexOf("/")), { recursive: true });
    fs.writeFileSync(file, content);
  }

  read(name) {
    return fs.readFileSync(this.path(name), "utf8");
  }

  has(name) {
    return fs.existsSync(this.path(name));
  }

  remove(name) {
    fs.rmSync(this.path(name), { recursive: true });
  }

  names(folder) {
    return fs.readdirSync(this.path(folder)).sort();
  }
}
