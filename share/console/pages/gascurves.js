// Curves of gas valves, as points {volt, bar} with rising voltage: values between them, and what has become of them.

// On the straight line between two points; null outside of them.
function between(points, from, to, value) {
  for (let i = 1; i < points.length; ++i) {
    const [low, high] = [points[i - 1], points[i]];
    if (value < low[from] || value > high[from]) continue;
    const width = high[from] - low[from];
    return width > 0 ? low[to] + ((high[to] - low[to]) * (value - low[from])) / width : low[to];
  }
  return null;
}

export const barAt = (points, volt) => between(points, "volt", "bar", volt);
export const voltAt = (points, bar) => between(points, "bar", "volt", bar);

// In bar, at the points of either; null where they have no voltage in common.
export function largestDifference(before, now) {
  let largest = null;
  for (const {volt} of [...before, ...now]) {
    const [a, b] = [barAt(before, volt), barAt(now, volt)];
    if (a !== null && b !== null) largest = Math.max(largest ?? 0, Math.abs(a - b));
  }
  return largest;
}

// The tables before the differences of the machine file, {gas: points}, of those branches that differ. `properties`:
// of the machine file's gas branches, which tell the gas of each.
export function formerTables(branches, properties, differences) {
  const former = {};
  const place = /^(GasBranches\/GasBranch\[\d+\])\/DAAdjustTable\/Item\[(\d+)\]\/(Volt|Press)$/;
  for (const {path, from} of differences) {
    const [, branch, item, member] = place.exec(path) ?? [];
    const now = branch && branches.find(({type}) => type === properties[branch + "/GasType"]);
    if (!now) continue;
    former[now.gas] ??= now.table.points.map((point) => ({...point}));
    const row = (former[now.gas][Number(item) - 1] ??= {});
    row[member === "Volt" ? "volt" : "bar"] = from;
  }
  for (const gas of Object.keys(former)) former[gas] = former[gas].filter(({volt, bar}) => volt !== null && bar !== null);
  return former;
}
