// What is selected in a list: pure functions. `names` is the list in the order shown.
//
// { selected: Set, cursor, anchor }: the cursor is the name that the keyboard is at, the
// anchor the fixed end of a range. Either may be null.

export const NOTHING = { selected: new Set(), cursor: null, anchor: null };

function range(names, from, to) {
  const a = Math.max(names.indexOf(from), 0);
  const b = names.indexOf(to);
  return names.slice(Math.min(a, b), Math.max(a, b) + 1);
}

export function toggle(selection, name) {
  const selected = new Set(selection.selected);
  if (!selected.delete(name)) selected.add(name);
  return { selected, cursor: name, anchor: name };
}

export function click(selection, names, name, { ctrl = false, shift = false } = {}) {
  if (shift) {
    const anchor = selection.anchor ?? names[0];
    const kept = ctrl ? selection.selected : [];
    return { selected: new Set([...kept, ...range(names, anchor, name)]), cursor: name, anchor };
  }
  if (ctrl) return toggle(selection, name);
  return { selected: new Set([name]), cursor: name, anchor: name };
}

// The cursor goes to `index`; with shift the selection grows to it, with ctrl it stays as it is.
export function moveTo(selection, names, index, { ctrl = false, shift = false } = {}) {
  if (names.length === 0) return selection;
  const name = names[Math.min(Math.max(index, 0), names.length - 1)];
  if (shift) return click(selection, names, name, { shift });
  if (ctrl) return { ...selection, cursor: name };
  return click(selection, names, name);
}

export function all(selection, names) {
  return { ...selection, selected: new Set(names) };
}

export function none(selection) {
  return { ...selection, selected: new Set() };
}

// After the list changed: what is gone is not selected any more.
export function restrict(selection, names) {
  const there = new Set(names);
  const keep = (name) => (there.has(name) ? name : null);
  return {
    selected: new Set([...selection.selected].filter((name) => there.has(name))),
    cursor: keep(selection.cursor),
    anchor: keep(selection.anchor),
  };
}

// The next name that starts with what was typed.
export function find(names, cursor, typed) {
  const wanted = typed.toLocaleLowerCase();
  const start = names.indexOf(cursor);
  for (let step = typed.length > 1 ? 0 : 1; step <= names.length; step++) {
    const index = (Math.max(start, typed.length > 1 ? 0 : -1) + step) % names.length;
    if (names[index]?.toLocaleLowerCase().startsWith(wanted)) return index;
  }
  return -1;
}
