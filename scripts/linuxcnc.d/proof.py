"""scripts/linuxcnc proof: what a LinuxCNC with the circuit of share/machines/linuxcnc and a controller do when somebody
stops, fails or is killed. Each point has a number and gives a line of the table; a point that the table has is not gone
through again, so that the whole can be split and continued.

A point that ends with something wrong is listed with it; with --again N it is gone through again, alone, at most N times,
and the last time counts. --sample SEED draws, for tests: 16 points of the sweep, and each of the others once."""

import argparse
import hashlib
import json
import os
import random
import statistics
import subprocess
import sys
import traceback
from pathlib import Path

import latch
import sweep

SCRIPT = Path(__file__).resolve().parent.parent / "linuxcnc"
TIMES = 10   # of each failure
SHARED = 20  # points beside one LinuxCNC
DRAWN = 16   # of the sweep
KILLS_IT = {"milltask KILL", "ixocut-hal TERM", "rtapi_app KILL", "linuxcncrsh KILL"}


def points():
    """(part, what): the same ones in every run."""
    return ([("sweep", moment) for moment in sweep.moments()]
            + [("failure", case) for case in sweep.FAILURES for _ in range(TIMES)]
            + [("latch", case) for case in latch.CASES for _ in range(TIMES)]
            + [("follow", "")])


def drawn(seed):
    """The numbers of a part of the points: every procedure and every ending of the sweep, the others once."""
    rng = random.Random(int.from_bytes(hashlib.sha256(seed.encode()).digest()[:8], "big"))
    numbers, once = [], {}
    for number, (part, what) in enumerate(points()):
        once.setdefault(what[:2] if part == "sweep" else (part, what), []).append(number)
    pairs = [key for key in once if key[0] in sweep.PROCEDURES]
    # 8 procedures by 4 endings: two endings of each procedure, the other two of the next.
    first = rng.randrange(2)
    for i, name in enumerate(sweep.PROCEDURES):
        endings = sweep.ENDINGS[(first + i) % 2::2]
        numbers += [rng.choice(once[pair]) for pair in pairs if pair[0] == name and pair[1] in endings]
    numbers += [rng.choice(of) for key, of in once.items() if key not in pairs]
    assert len(numbers) == DRAWN + len(sweep.FAILURES) + len(latch.CASES) + 1
    return sorted(numbers)


# --- beside one LinuxCNC ---

def inside(table, numbers):
    import machine
    machine.come_first()
    folder = Path(os.environ["XDG_STATE_HOME"]) / "proof"
    folder.mkdir()
    mark, sampler = machine.Mark(), machine.Sampler()
    beside = None
    for number in numbers:
        part, what = points()[number]
        try:
            if part in ("sweep", "failure"):
                beside = beside or sweep.Beside(folder, sampler, mark)
                row = (sweep.sweep if part == "sweep" else sweep.failure)(what, beside)
            else:
                if beside:
                    beside.end()
                    beside = None
                row = latch.follow(sampler) if part == "follow" else latch.latch(what, number, sampler, mark)
        except Exception as error:
            traceback.print_exc()
            if (folder / "serve.log").exists():
                print((folder / "serve.log").read_text()[-2000:], file=sys.stderr)
            row = {"lit": False, "dark_ms": None, "wrong": [f"{type(error).__name__}: {error}"]}
        head = {"point": number, "part": part}
        if part == "sweep":
            head |= {"procedure": what[0], "ending": what[1], "moment_ms": round(what[2] * 1e3)}
        elif what:
            head["case"] = what
        line = json.dumps(head | row)
        with open(table, "a", encoding="utf-8") as out:
            out.write(line + "\n")
        print(line, flush=True)
        if any(":" in wrong for wrong in row["wrong"]):
            return 1  # what comes next would be measured on what this has left
    return 0


# --- the runner ---

def read(table):
    """The last row of each point, and how many were gone through more than once."""
    rows, again = {}, 0
    for line in open(table, encoding="utf-8") if table.exists() else ():
        row = json.loads(line)
        again += row["point"] in rows
        rows[row["point"]] = row
    return rows, again


def batches(numbers):
    """What shares a LinuxCNC: so many points, up to one that it does not survive."""
    batch = []
    for number in numbers:
        batch.append(number)
        if len(batch) == SHARED or points()[number][1] in KILLS_IT:
            yield batch
            batch = []
    if batch:
        yield batch


def go_through(numbers, table):
    """False: LinuxCNC does not start here."""
    for batch in batches(numbers):
        while batch:
            command = [SCRIPT, sys.executable, __file__, "inside", table, *map(str, batch)]
            code = subprocess.run(command, stdout=sys.stdout).returncode
            if code in (70, 77):
                return code
            done, _ = read(table)
            left = [number for number in batch if number not in done]
            if len(left) == len(batch):
                return code or 1
            batch = left
    return 0


def summary(rows, again):
    good = True
    print(f"\n{'':28} {'points':>6} {'lit':>4} {'dark, median':>13} {'worst':>8} {'brakes':>8} {'rest':>8}   wrong")

    def line(name, part):
        nonlocal good
        if not part:
            return
        dark = [r["dark_ms"] for r in part if r["lit"] and r["dark_ms"] is not None]
        brake = [r["asked_ms"] for r in part if r.get("asked_ms") is not None]
        rest = [r["rest_ms"] for r in part if r.get("asked_ms") is not None]
        wrong = sum(bool(r["wrong"]) for r in part)
        good = good and not wrong
        cells = [f"{statistics.median(dark):10.1f} ms {max(dark):5.0f} ms" if dark else f"{'-':>13} {'-':>8}"]
        cells += [f"{max(values):5.0f} ms" if values else f"{'-':>8}" for values in (brake, rest)]
        print(f"{name:28} {len(part):6} {sum(r['lit'] for r in part):4} {' '.join(cells)}   {wrong or 'none'}")

    values = list(rows.values())
    for name in sweep.PROCEDURES:
        line(name, [r for r in values if r.get("procedure") == name])
    for how in sweep.ENDINGS:
        line(f"ended by {how}", [r for r in values if r.get("ending") == how])
    for part, cases in (("failure", sweep.FAILURES), ("latch", latch.CASES)):
        for case in cases:
            line(case, [r for r in values if r["part"] == part and r.get("case") == case])
    for row in values:
        for figure in row.get("figures", ()):
            print(f"{figure['figure']}: median {figure['median']:.4f}, worst {figure['worst']:.4f}, at most"
                  f" {figure['limit']:g} in {figure['rows']} rows")
    for row in values:
        if row["wrong"]:
            good = False
            print(f"WRONG at {row['point']}: {', '.join(row['wrong'])}")
    if again:
        print(f"gone through more than once: {again}")
    return good


def main():
    if sys.argv[1:2] == ["inside"]:
        return inside(sys.argv[2], [int(number) for number in sys.argv[3:]])
    options = argparse.ArgumentParser(prog="scripts/linuxcnc proof", description=__doc__,
                                      formatter_class=argparse.RawDescriptionHelpFormatter)
    options.add_argument("--from", dest="first", type=int, default=0, help="the first point (0)")
    options.add_argument("--to", type=int, default=len(points()), help=f"the point after the last ({len(points())})")
    options.add_argument("--sample", metavar="SEED", help="only a part of them, drawn by this text")
    options.add_argument("--again", metavar="N", type=int, default=0, help="go through what was wrong again, N times")
    options.add_argument("--table", type=Path, default=Path("linuxcnc-proof.jsonl"), help="a line for each point (%(default)s)")
    options.add_argument("--show", action="store_true", help="only show what the table has")
    given = options.parse_args()
    table = given.table.resolve()
    if not given.show:
        chosen = [number for number in (drawn(given.sample) if given.sample else range(len(points())))
                  if given.first <= number < given.to]
        done, _ = read(table)
        if code := go_through([number for number in chosen if number not in done], table):
            return code
        for _ in range(given.again):
            rows, _ = read(table)
            for number in [n for n, row in rows.items() if row["wrong"]]:
                subprocess.run([SCRIPT, sys.executable, __file__, "inside", table, str(number)], stdout=sys.stdout)
    rows, again = read(table)
    return 0 if summary(rows, again) else 1


if __name__ == "__main__":
    sys.exit(main())
