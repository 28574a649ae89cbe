// What a page keeps over a reload and over another page: its choices, zoom, selection. Of this tab alone.

export function kept(name, defaults = {}) {
  const key = "kept." + name;
  let values = {...defaults};
  try {
    values = {...values, ...JSON.parse(sessionStorage.getItem(key) ?? "{}")};
  } catch {
    // What was kept by an older page is nothing.
  }
  return {
    get: (member) => values[member],
    set(changes) {
      values = {...values, ...changes};
      sessionStorage.setItem(key, JSON.stringify(values));
    },
  };
}
