// Who is logged in, and how one gets in and out.

import { hostPost, quiet, setCsrf, whenLoginIsNeeded } from "./net.js";
import { forgetWindow } from "./preferences.js";
import { changed, state } from "./store.js";

let onEntered = () => {};

export function whenEntered(callback) {
  onEntered = callback;
}

let lastUser = "";

// Nothing of one user's stays on the page for the next.
function startAfresh() {
  forgetWindow();
  location.reload();
}

async function enter(who) {
  if (lastUser !== "" && lastUser !== who.user) {
    startAfresh();
    return;
  }
  lastUser = who.user;
  setCsrf(who.csrf);
  state.user = who.user;
  state.loginMessage = "";
  changed();
  await onEntered();
}

function leave(message) {
  // What is behind the form stays as it is, so that one comes back to where one was.
  state.user = "";
  state.loginMessage = message;
  changed();
}

// The token of an address like "/#token=…", which must not stay in the history.
function takeTokenOfAddress() {
  const token = new URLSearchParams(location.hash.slice(1)).get("token");
  if (token) history.replaceState(history.state, "", location.pathname);
  return token;
}

async function readMethods() {
  try {
    const ways = await quiet("/host/login");
    state.loginMethods = ["password", "token"].filter((way) => ways[way]);
    changed();
  } catch {
    // Without an answer the form asks for a token, which every server takes.
  }
}

export async function begin() {
  whenLoginIsNeeded(() => {
    if (state.user) leave("login.expired");
  });
  const token = takeTokenOfAddress();
  if (token && (await login({ token }))) return;
  try {
    await enter(await quiet("/host/whoami"));
  } catch (failure) {
    if (failure.kind === "offline" || failure.kind === "busy") {
      setTimeout(begin, 2000);
      return;
    }
    leave(state.loginMessage);
    await readMethods();
  }
}

// True when it worked; otherwise the form has the reason.
export async function login(fields) {
  try {
    await enter(await quiet("/host/login", fields));
    return true;
  } catch (failure) {
    const messages = { offline: "login.offline", busy: "login.tooMany" };
    leave(messages[failure.kind] ?? "login.wrong");
    return false;
  }
}

// Fails when the server does not know of it: then the session goes on.
export async function logout({ everywhere = false } = {}) {
  await hostPost("logout", { all: everywhere });
  startAfresh();
}
