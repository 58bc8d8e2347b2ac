// Line icons, drawn in the color of the text beside them.

import { svg } from "/vendor/lit-html/lit-html.js";

const SHAPES = {
  folder: svg`<path d="M2.5 5.5a1 1 0 0 1 1-1h4l2 2h7a1 1 0 0 1 1 1v7a1 1 0 0 1-1 1h-13a1 1 0 0 1-1-1z"/>`,
  file: svg`<path d="M5 2.5h6.5L15 6v11.5H5zM11.5 2.5V6H15"/>`,
  link: svg`<path d="M8.5 11.5l3-3M7 9l-2 2a2.8 2.8 0 0 0 4 4l2-2M13 11l2-2a2.8 2.8 0 0 0-4-4L9 7"/>`,
  other: svg`<circle cx="10" cy="10" r="6"/><path d="M10 7v3.5M10 13v.2"/>`,
  share: svg`<path d="M3 4.5h14v5H3zM3 10.5h14v5H3zM6 7v.1M6 13v.1"/>`,
  remote: svg`<path d="M6 14.5h8.5a3 3 0 0 0 .4-6 5 5 0 0 0-9.6 1A2.6 2.6 0 0 0 6 14.5z"/>`,
  up: svg`<path d="M10 16V4.5M5 9.5l5-5 5 5"/>`,
  refresh: svg`<path d="M16 10a6 6 0 1 1-1.8-4.3M16 3v3.5h-3.5"/>`,
  copy: svg`<path d="M7 7h9v9H7zM4 13V4h9"/>`,
  move: svg`<path d="M3 10h13M11.5 5.5L16 10l-4.5 4.5"/>`,
  paste: svg`<path d="M5 4.5h10v12H5zM8 3h4v3H8z"/>`,
  close: svg`<path d="M5 5l10 10M15 5L5 15"/>`,
  stop: svg`<path d="M5.5 5.5h9v9h-9z"/>`,
  check: svg`<path d="M4 10.5l4 4 8-9"/>`,
  warn: svg`<path d="M10 3l7.5 13.5h-15zM10 8v4M10 14.2v.1"/>`,
  settings: svg`<path d="M3 6h8M15 6h2M3 14h2M9 14h8"/><circle cx="13" cy="6" r="2"/><circle cx="7" cy="14" r="2"/>`,
  home: svg`<path d="M3 9.5L10 3.5l7 6M5 8.5v8h10v-8"/>`,
  down: svg`<path d="M5 8l5 5 5-5"/>`,
  upward: svg`<path d="M5 12l5-5 5 5"/>`,
  again: svg`<path d="M4 10a6 6 0 1 0 1.8-4.3M4 3v3.5h3.5"/>`,
};

export function icon(name) {
  return svg`<svg class="icon" viewBox="0 0 20 20" aria-hidden="true" focusable="false">${SHAPES[name]}</svg>`;
}

export function iconOf(entry) {
  if (entry.type === "share") return icon(entry.remote ? "remote" : "share");
  return icon(entry.type in SHAPES ? entry.type : "other");
}
