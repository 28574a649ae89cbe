"""judge.py ROOT COVERAGE.JSON MISSING.TXT: holds what gcovr has counted against the gates below and against
tests/coverage.txt, and writes every line that no test runs into MISSING.TXT, with its reason where one is listed.

tests/coverage.txt: the path of a file; below it, indented by two, lines of it as they stand there; below those, indented by
four, the reason, for the lines since the last one. A line is known by its text, so that the list stays true when others
move; a text that stands several times is listed as often as it is not run. `*` stands for a file that does not run at all.
In the strict rooms every line that no test runs has to be listed. A listed line that runs or is gone is an error anywhere.
"""
import collections
import json
import pathlib
import sys

ROOMS = ("ixocamglue", "controller", "machines", "verify", "commandline", "ixocut")
ALL_LINES = 95.0
STRICT_BRANCHES = 95.0
STRICT = {
    "motion": ("ixocamglue/motion/",),
    "state framework": ("ixocamglue/platform/states/",),
    "supervisor": ("controller/safety/Supervisor.", "controller/safety/LeafWatch.", "controller/safety/ThreadWatch."),
    "guards": ("controller/panel/PanelGuard.", "controller/gas/GasCalibration.", "controller/safety/EffectWatch."),
}
LIST = "tests/coverage.txt"

Line = collections.namedtuple("Line", "number text runs branches taken")
Listed = collections.namedtuple("Listed", "at text reason")


def read_files(root, report):
    files = {}
    for file in json.loads(report.read_text(encoding="utf-8"))["files"]:
        path = file["file"]
        if path.split("/")[0] not in ROOMS or not (root / path).is_file():
            continue
        texts = (root / path).read_text(encoding="utf-8").splitlines()
        files[path] = [
            Line(line["line_number"], texts[line["line_number"] - 1].strip(), line["count"] > 0, len(line["branches"]),
                 sum(branch["count"] > 0 for branch in line["branches"]))
            for line in file["lines"] if not line["gcovr/noncode"] and line["line_number"] <= len(texts)]
    return files


def read_list(path, complain):
    listed = collections.defaultdict(list)
    file, reason = None, []
    for at, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        text = line.strip()
        indent = len(line) - len(line.lstrip())
        if not text or line.startswith("#"):
            continue
        if indent == 0:
            file, reason = text, []
        elif indent == 2 and file:
            if reason:
                reason = []
            listed[file].append(Listed(at, text, reason))
        elif indent == 4 and file and listed[file]:
            reason.append(text)
        else:
            complain(at, "is neither a file, nor two further in a line of it, nor four further in a reason")
    for entries in listed.values():
        for entry in entries:
            if not entry.reason:
                complain(entry.at, "has no reason")
    return listed


def reasons_of(lines, entries, complain):
    """The reason of each line that is listed, by its number."""
    missing = [line for line in lines if not line.runs]
    reasons = {}
    for entry in entries:
        if entry.text == "*":
            if len(missing) < len(lines):
                complain(entry.at, "something of this file runs")
            reasons.update((line.number, " ".join(entry.reason)) for line in missing)
            continue
        line = next((line for line in missing if line.text == entry.text and line.number not in reasons), None)
        if line:
            reasons[line.number] = " ".join(entry.reason)
        else:
            complain(entry.at, f"this line runs or is gone: {entry.text}")
    return reasons


def percent(part, whole):
    return 100.0 if whole == 0 else 100.0 * part / whole


class Sum:
    """Lines and branches of some files."""

    def __init__(self, files):
        lines = [line for file in files for line in file]
        self.lines, self.run = len(lines), sum(line.runs for line in lines)
        self.branches, self.taken = sum(line.branches for line in lines), sum(line.taken for line in lines)
        self.line_share, self.branch_share = percent(self.run, self.lines), percent(self.taken, self.branches)

    def row(self, name):
        return (f"{name:<46}{self.lines:>7}{self.lines - self.run:>7}{self.line_share:>8.1f} %"
                f"{self.branches:>9}{self.branch_share:>8.1f} %")


HEAD = f"{'':<46}{'lines':>7}{'not run':>8}{'run':>9}{'branches':>9}{'taken':>10}"


def main(root, report, missing_path):
    problems = []

    def complain(at, what):
        problems.append(f"{LIST}:{at}: {what}")

    files = read_files(root, report)
    listed = read_list(root / LIST, complain)
    for path in listed.keys() - files.keys():
        complain(listed[path][0].at, f"{path} is no file that is counted")
    reasons = {path: reasons_of(lines, listed.get(path, []), complain) for path, lines in files.items()}

    print(HEAD)
    rooms = collections.defaultdict(list)
    for path, lines in files.items():
        rooms[path.rsplit("/", 1)[0]].append(lines)
    for room in sorted(rooms):
        print(Sum(rooms[room]).row(room))
    total = Sum(files.values())
    print(total.row("together"))
    if total.line_share < ALL_LINES:
        problems.append(f"{total.line_share:.1f} % of all lines run, {ALL_LINES:.0f} % have to")

    for name, prefixes in STRICT.items():
        print(f"\n{name}: every line, and {STRICT_BRANCHES:.0f} % of the branches")
        for prefix in prefixes:
            if not any(path.startswith(prefix) for path in files):
                problems.append(f"{name}: there is no {prefix}")
        mine = {path: lines for path, lines in sorted(files.items()) if path.startswith(prefixes)}
        for path, lines in mine.items():
            print(Sum([lines]).row("  " + path))
            for line in lines:
                if not line.runs and line.number not in reasons[path]:
                    problems.append(f"{path}:{line.number}: no test runs this, and it is not listed: {line.text}")
        whole = Sum(mine.values())
        print(whole.row(name))
        if whole.branch_share < STRICT_BRANCHES:
            problems.append(f"{name}: {whole.branch_share:.1f} % of the branches are taken, {STRICT_BRANCHES:.0f} % have to be")

    with missing_path.open("w", encoding="utf-8") as out:
        for path, lines in sorted(files.items()):
            strict = any(path.startswith(prefixes) for prefixes in STRICT.values())
            for line in lines:
                if not line.runs:
                    reason = reasons[path].get(line.number)
                    print(f"{path}:{line.number}: {line.text}" + (f"  -- {reason}" if reason else ""), file=out)
                elif strict and line.taken < line.branches:
                    print(f"{path}:{line.number}: {line.taken} of {line.branches} branches: {line.text}", file=out)
    known = sum(len(of_file) for of_file in reasons.values())
    print(f"\n{total.lines - total.run} lines are not run, {known} of them with their reason: {missing_path}")
    for problem in problems:
        print(problem, file=sys.stderr)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(*map(pathlib.Path, sys.argv[1:])))
