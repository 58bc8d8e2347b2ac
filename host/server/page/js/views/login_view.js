// The login form: a token, or a name and a password, as the server asks for it.

import { html } from "/vendor/lit-html/lit-html.js";
import { login } from "../session.js";
import { changed, state } from "../store.js";
import { t } from "../words.js";

let pending = false;
let byToken = false; // where the server takes both and the user has a token

async function submit(event) {
  event.preventDefault();
  if (pending) return;
  const form = event.currentTarget;
  const fields = Object.fromEntries(new FormData(form));
  if (Object.values(fields).some((value) => value.trim() === "")) {
    state.loginMessage = "login.empty";
    changed();
    return;
  }
  if (fields.token) fields.token = fields.token.trim();
  pending = true;
  const worked = await login(fields);
  pending = false;
  if (worked) form.reset();
  else form.elements[0].select();
}

function passwordFields() {
  return html`
    <label>${t("login.user")}
      <input name="user" autocomplete="username" autocapitalize="none" />
    </label>
    <label>${t("login.password")}
      <input name="password" type="password" autocomplete="current-password" />
    </label>`;
}

function tokenField() {
  return html`
    <label>${t("login.token")}
      <input name="token" type="password" autocomplete="off" aria-describedby="token-hint" />
    </label>
    <p class="hint" id="token-hint">${t("login.tokenHint")}</p>`;
}

function otherWay() {
  byToken = !byToken;
  changed();
}

export function loginView() {
  const both = state.loginMethods.includes("password") && state.loginMethods.includes("token");
  const withPassword = state.loginMethods.includes("password") && !byToken;
  return html`
    <main class="login">
      <form @submit=${submit} aria-labelledby="login-title">
        <h1 id="login-title"><span class="brand">${t("app.title")}</span> ${t("login.title")}</h1>
        ${state.loginMessage
          ? html`<p class="message" role="alert">${t(state.loginMessage)}</p>`
          : ""}
        ${withPassword ? passwordFields() : tokenField()}
        <button class="primary">${t("login.submit")}</button>
        ${both
          ? html`<button type="button" class="quiet" @click=${otherWay}>
              ${t(byToken ? "login.withPassword" : "login.withToken")}</button>`
          : ""}
      </form>
    </main>`;
}
