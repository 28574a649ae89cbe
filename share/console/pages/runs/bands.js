// What a run puts into plots: the steps of its list, and a line where an alarm came, unless it stood before.

export function alarmText({text}) {
  return "\u26a0 " + text;
}

// [{from, to, text, alarm}] in s; the run began at `atMs` of the plot.
export function bandsOf(run, atMs = 0) {
  const at = (ms) => (atMs + ms) / 1000;
  return [
    ...(run.steps ?? []).filter(({level}) => level === 0).map(({startMs, durationMs, number, description}) =>
      ({from: at(startMs), to: at(startMs + (durationMs ?? 0)), text: number + " " + description})),
    ...(run.alarms ?? []).filter((alarm) => alarm.atMs > 0).map((alarm) =>
      ({from: at(alarm.atMs), to: at(Math.max(alarm.atMs, alarm.clearedMs ?? run.durationMs)), text: alarmText(alarm), alarm: true})),
  ];
}
