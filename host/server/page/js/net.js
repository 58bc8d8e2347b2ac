// Calls to the server. Every failure is a Failure, whose kind says what can be done about it.

import * as connection from "./connection.js";

const API = "/webapi/TAVO.Fennox.CopyMove?version=3&method=";

// kind: "refused" (the server says no, with a code), "login" (no session), "busy" (ask again
// later), "offline" (no answer).
export class Failure extends Error {
  constructor(kind, code = 0, detail = null, message = "") {
    super(message || `${kind} ${code}`);
    this.kind = kind;
    this.code = code;
    this.detail = detail;
  }
}

let csrf = "";
let onLoginNeeded = () => {};

export function setCsrf(token) {
  csrf = token;
}

export function whenLoginIsNeeded(callback) {
  onLoginNeeded = callback;
}

async function send(path, options) {
  let response;
  try {
    response = await fetch(path, { ...options, signal: AbortSignal.timeout(90000) });
  } catch {
    connection.lost();
    throw new Failure("offline");
  }
  connection.found();
  return response;
}

async function read(response) {
  if (response.status === 429 || response.status === 503) throw new Failure("busy");
  let answer;
  try {
    answer = await response.json();
  } catch {
    // A proxy in front of the server answers in its own words while the server is away.
    if (response.status >= 500) connection.lost();
    throw new Failure("offline");
  }
  if (answer.success) return answer.data;
  const { code = 0, detail = null } = answer.error ?? {};
  throw new Failure(response.status === 401 ? "login" : "refused", code, detail, detail?.message);
}

async function once(path, body) {
  const options = { headers: {} };
  if (body !== undefined) {
    options.method = "POST";
    options.headers["Content-Type"] = "application/json";
    options.headers["X-CSRF-Token"] = csrf;
    options.body = JSON.stringify(body);
  }
  const response = await send(path, options);
  // A login in another window gives this browser a new session with another token.
  if (response.status === 403 && body !== undefined) return null;
  return read(response);
}

async function call(path, body) {
  try {
    const answer = await once(path, body);
    if (answer !== null || body === undefined) return answer;
    const who = await once("/host/whoami");
    if (who.csrf === csrf) throw new Failure("refused", 407);
    csrf = who.csrf;
    return await once(path, body);
  } catch (failure) {
    if (failure.kind === "login") onLoginNeeded();
    throw failure;
  }
}

export function host(name, query = {}) {
  const fields = new URLSearchParams(query).toString();
  return call(`/host/${name}${fields ? "?" + fields : ""}`);
}

export function hostPost(name, body = {}) {
  return call(`/host/${name}`, body);
}

export function api(method, params) {
  return call(API + method, params);
}

// Without the reaction to a missing session, which is what a login ends.
export async function quiet(path, body) {
  const options = {};
  if (body !== undefined) {
    options.method = "POST";
    options.headers = { "Content-Type": "application/json" };
    options.body = JSON.stringify(body);
  }
  return read(await send(path, options));
}
