// Paths as people see them: "/share/rest" or "sftp://mount/rest". "/" is the list of places.

export const ROOT = "/";

const REMOTE = /^([a-z]+:\/\/[^/]+\/)(.*)$/;

// The place a path starts with ("/share", "sftp://mount/") and the names below it.
export function split(path) {
  const remote = REMOTE.exec(path);
  const base = remote ? remote[1] : "";
  const names = (remote ? remote[2] : path).split("/").filter((name) => name !== "");
  if (remote) return { base, names };
  return names.length === 0 ? { base: ROOT, names } : { base: "/" + names[0], names: names.slice(1) };
}

export function join(folder, name) {
  return folder.endsWith("/") ? folder + name : `${folder}/${name}`;
}

export function parent(path) {
  const { base, names } = split(path);
  if (names.length === 0) return ROOT;
  return names.slice(0, -1).reduce(join, base);
}

export function nameOf(path) {
  const { base, names } = split(path);
  return names.length > 0 ? names[names.length - 1] : placeName(base);
}

export function placeName(base) {
  return base.replace(/^[a-z]+:\/\//, "").replaceAll("/", "");
}

// [{ name, path }] from the list of places (name "") down to `path`.
export function crumbs(path) {
  const { base, names } = split(path);
  const list = [{ name: "", path: ROOT }];
  if (base === ROOT) return list;
  let at = base;
  list.push({ name: placeName(base), path: at });
  for (const name of names) {
    at = join(at, name);
    list.push({ name, path: at });
  }
  return list;
}

export function isInside(path, folder) {
  const start = folder.endsWith("/") ? folder : folder + "/";
  return path === folder || path.startsWith(start);
}
