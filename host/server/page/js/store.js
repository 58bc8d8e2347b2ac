// What the page knows, in one place, and the drawing that follows a change.
//
// Modules change `state` and then call changed(); all of the page is drawn from it, at most
// once a frame.

export const state = {
  user: null, // null: not known yet; "": nobody is logged in
  loginMethods: ["token"],
  loginMessage: "",
  offline: false,
  view: "files", // or "log"
  places: [],
  remotes: {}, // what is known of each, by its name
  panes: { left: null, right: null },
  active: "left",
  narrow: false,
  busy: "", // an action between its request and its answer
  clipboard: null, // { move, sources }
  drop: null, // { folder, move } while something is dragged
  dialogs: [],
  tasks: [], // newest first
  trayOpen: true,
  notices: [],
  log: { lines: [], text: "", status: "idle" },
};

let draw = () => {};
let due = false;
let waiting = [];

export function whenChanged(callback) {
  draw = callback;
}

export function changed() {
  if (due) return;
  due = true;
  // A hidden page gets no frames, but what it announces must still be true.
  const later = document.hidden ? (f) => setTimeout(f, 0) : requestAnimationFrame;
  later(() => {
    due = false;
    draw();
    const told = waiting;
    waiting = [];
    told.forEach((tell) => tell());
  });
}

// Resolves when what is known now is on the page.
export function drawn() {
  changed();
  return new Promise((resolve) => waiting.push(resolve));
}
