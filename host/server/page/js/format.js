// Figures for people, in the language of the page.

import { locale } from "./words.js";

const UNITS = ["B", "kB", "MB", "GB", "TB", "PB"];

export function bytes(count) {
  let value = Math.max(count, 0);
  let unit = 0;
  while (value >= 999.5 && unit < UNITS.length - 1) {
    value /= 1000;
    unit++;
  }
  const digits = unit === 0 || value >= 99.5 ? 0 : 1;
  const text = value.toLocaleString(locale(), {
    minimumFractionDigits: digits,
    maximumFractionDigits: digits,
  });
  return `${text} ${UNITS[unit]}`;
}

export function count(number) {
  return Math.round(number).toLocaleString(locale());
}

export function percent(fraction) {
  // Only what is whole is a hundred.
  const whole = fraction >= 1 ? 100 : Math.min(Math.floor(fraction * 100), 99);
  return `${whole} %`;
}

// As short as a table column wants it, and sortable by eye.
export function shortTime(seconds) {
  const date = new Date(seconds * 1000);
  const two = (number) => String(number).padStart(2, "0");
  return (
    `${date.getFullYear()}-${two(date.getMonth() + 1)}-${two(date.getDate())} ` +
    `${two(date.getHours())}:${two(date.getMinutes())}`
  );
}

export function duration(seconds) {
  const whole = Math.max(Math.ceil(seconds), 1);
  if (whole < 60) return `${whole} s`;
  if (whole < 3600) return `${Math.floor(whole / 60)} min ${whole % 60} s`;
  return `${Math.floor(whole / 3600)} h ${Math.floor((whole % 3600) / 60)} min`;
}
