"use strict";

const api = "/webapi/TAVO.Fennox.CopyMove?version=3&method=";
const element = (id) => document.getElementById(id);
let csrf = "";

async function call(path, body) {
  const options = { headers: { "X-CSRF-Token": csrf } };
  if (body !== undefined) {
    options.method = "POST";
    options.headers["Content-Type"] = "application/json";
    options.body = JSON.stringify(body);
  }
  const response = await fetch(path, options);
  if (response.status === 401) show(false);
  return response.json();
}

function show(loggedIn) {
  element("login").hidden = loggedIn;
  document.querySelector("main").hidden = !loggedIn;
}

function row(task) {
  const data = task.data || {};
  const line = document.createElement("tr");
  for (const text of [task.id, data.status || "", Math.round(task.progress * 100) + " %",
                      data.processing_path || ""]) {
    line.appendChild(document.createElement("td")).textContent = text;
  }
  return line;
}

async function refresh() {
  const answer = await call("/host/tasks");
  if (answer.success) element("tasks").replaceChildren(...answer.data.map(row));
}

async function enter(answer) {
  if (!answer.success) return;
  csrf = answer.data.csrf;
  show(true);
  await refresh();
}

element("login").addEventListener("submit", async (event) => {
  event.preventDefault();
  await enter(await call("/host/login", { token: element("token").value }));
});

element("copy").addEventListener("submit", async (event) => {
  event.preventDefault();
  const answer = await call(api + "start", {
    path: [element("source").value],
    dest_folder_path: element("destination").value,
  });
  element("message").textContent =
    answer.success ? answer.data.taskid : "Error " + answer.error.code;
  await refresh();
});

call("/host/whoami").then(enter);
setInterval(() => csrf && refresh(), 2000);
