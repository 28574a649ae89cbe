// Statistics of alarm rows: plain numbers of plain rows.

const kRateMs = 600000;
const kChatterMs = 60000;
const kChatterRaises = 3;  // so many of one identifier within kChatterMs
const kMostFrequent = 10;
const kMostBars = 144;  // a day of ten minutes

export const kFloodRaises = 10;  // more than so many in ten minutes are more than somebody can follow

// rows: [{identifier, raised, cleared}] in the order of their raises, nowMs: where those that stand end.
export function statisticsOf(rows, nowMs) {
  const raises = rows.map((row) => Date.parse(row.raised));
  const by = new Map();
  rows.forEach((row, i) => {
    if (!by.has(row.identifier)) by.set(row.identifier, {identifier: row.identifier, code: row.code, text: row.description, raises: [], standingMs: 0, longestMs: 0});
    const one = by.get(row.identifier);
    const lasted = Math.max(0, (row.cleared ? Date.parse(row.cleared) : nowMs) - raises[i]);
    one.raises.push(raises[i]);
    one.standingMs += lasted;
    one.longestMs = Math.max(one.longestMs, lasted);
  });
  const all = [...by.values()];
  for (const one of all) one.chatter = mostWithin(one.raises, kChatterMs);
  const most = (list, of) => list.toSorted((a, b) => of(b) - of(a)).slice(0, kMostFrequent);
  return {
    count: rows.length,
    busiest: mostWithin(raises, kRateMs),
    bars: barsOf(raises, nowMs),
    frequent: most(all, (one) => one.raises.length),
    chattering: most(all.filter((one) => one.chatter >= kChatterRaises), (one) => one.chatter),
    longest: most(all, (one) => one.longestMs),
  };
}

// The most of the ascending times that lie within any such span.
function mostWithin(times, spanMs) {
  let most = 0;
  for (let first = 0, last = 0; last < times.length; ++last) {
    while (times[last] - times[first] >= spanMs) ++first;
    most = Math.max(most, last - first + 1);
  }
  return most;
}

// Raises of each ten minutes until now, from the first raise on: [{fromMs, count}].
function barsOf(raises, nowMs) {
  const end = Math.floor(nowMs / kRateMs);
  const start = Math.max(end - kMostBars + 1, Math.floor((raises[0] ?? nowMs) / kRateMs));
  const bars = [];
  for (let i = start; i <= end; ++i) bars.push({fromMs: i * kRateMs, count: 0});
  for (const raise of raises) {
    const bar = bars[Math.floor(raise / kRateMs) - start];
    if (bar) ++bar.count;
  }
  return bars;
}
