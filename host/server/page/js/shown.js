// Names as they are shown. What could hide or turn around a part of a name is made visible;
// what is sent to the server is always the name itself.

const CONTROL = /[\u0000-\u001f\u007f]/g;
// Marks that change the direction of what follows, or take no room.
const INVISIBLE = /[\u061c\u200b\u200e\u200f\u202a-\u202e\u2060\u2066-\u2069\ufeff]/g;

function picture(character) {
  const code = character.charCodeAt(0);
  return String.fromCharCode(code === 0x7f ? 0x2421 : 0x2400 + code);
}

function codePoint(character) {
  return `\u27e8U+${character.charCodeAt(0).toString(16).toUpperCase().padStart(4, "0")}\u27e9`;
}

export function shown(name) {
  return name.replace(CONTROL, picture).replace(INVISIBLE, codePoint);
}
