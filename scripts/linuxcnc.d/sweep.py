"""The abort sweep on the simulated LinuxCNC: procedures ended at seeded moments in four ways, and what the rows of the
realtime sampler say of it; and what kills and hangs of LinuxCNC's programs do while the beam is lit.

sweep.py [--from N] [--to M] [--table FILE]: every point of the table, or some; a line for each, continued in FILE.
sweep.py inside N M FILE: the part that runs beside one LinuxCNC."""

import argparse
import http.client
import json
import os
import random
import signal
import socket
import statistics
import subprocess
import sys
import threading
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
SCRIPT = ROOT / "scripts" / "linuxcnc"
SEED = 18

# name, parameters, the time within which the moments lie (s), whether it lights the beam
PROCEDURES = [
    ("shot", {"ms": 1500}, 2.6, True),
    ("safe-move", {"x": 2500, "y": 1200, "speed": 1000}, 3.0, False),
    ("square", {}, 3.5, True),
    ("change-nozzle", {}, 18.0, False),
    ("clean-nozzle-manual", {}, 4.0, False),
    ("auto-calibrate", {}, 2.5, False),
]
ENDINGS = ("stop", "pause", "alarm", "cut")
MOMENTS = 10  # of each ending
BEAM_MS = 30.0   # one pass and 20 ms
BRAKE_MS = 10.0
AWAY_MS = 500.0

# Who is killed or stopped while the beam is lit, and within how many ms it has to be dark.
KILLS = {
    "milltask STOP": ("milltask", signal.SIGSTOP, AWAY_MS),
    "milltask KILL": ("milltask", signal.SIGKILL, AWAY_MS),
    "linuxcncrsh STOP": ("linuxcncrsh", signal.SIGSTOP, AWAY_MS),
    "network cut": ("relay", None, AWAY_MS),
}


def points():
    """(number, procedure, ending, moment): the same ones in every run."""
    rng = random.Random(SEED)
    return [(name, params, lit, ending, rng.uniform(0.02, 1.0) * span)
            for name, params, span, lit in PROCEDURES for ending in ENDINGS for _ in range(MOMENTS)]


class Relay:
    """Stands between the driver and the text interface; cut, it takes everything and forwards nothing."""

    def __init__(self, port, to):
        self.cut = False
        self.to = to
        self.listener = socket.create_server(("127.0.0.1", port))
        threading.Thread(target=self._accept, daemon=True).start()

    def _accept(self):
        while True:
            client, _ = self.listener.accept()
            server = socket.create_connection(("127.0.0.1", self.to))
            for a, b in ((client, server), (server, client)):
                a.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                threading.Thread(target=self._forward, args=(a, b), daemon=True).start()

    def _forward(self, a, b):
        try:
            while data := a.recv(4096):
                while self.cut:
                    time.sleep(0.005)
                b.sendall(data)
        except OSError:
            pass
        for end in (a, b):
            try:
                end.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass


class Served:
    """`ixocut serve` on the LinuxCNC, asked over its socket."""

    RELAY = 5008

    def __init__(self, folder):
        self.folder = folder
        machine = Path(os.environ["XDG_STATE_HOME"]) / "ixocut" / "machine.xml"
        text = machine.read_text().replace('Port="5007"', f'Port="{self.RELAY}"')
        (folder / "machine.xml").write_text(text)
        self.log = open(folder / "serve.log", "w")
        self.process = subprocess.Popen([ixocut(), "serve", "--machine", folder / "machine.xml", "--state", folder,
                                         "--port", "0", "--lang", "en"], stdout=self.log, stderr=self.log)
        self.lease = ""
        self.wait("it answers", lambda: self.ask("GET", "/health")["lives"], 30)
        self.take_lease()

    def ask(self, verb, path, body=None):
        wire = http.client.HTTPConnection("localhost", timeout=10)
        wire.sock = socket.socket(socket.AF_UNIX)
        wire.sock.settimeout(10)
        wire.sock.connect(str(self.folder / "controller.sock"))
        headers = {"Content-Type": "application/json"}
        if self.lease:
            headers["Lease"] = self.lease
        wire.request(verb, "/api/v1" + path, None if body is None else json.dumps(body), headers)
        answer = wire.getresponse()
        text = answer.read()
        wire.close()
        return json.loads(text) if text else {}

    def wait(self, what, condition, limit):
        end = time.monotonic() + limit
        while True:
            try:
                if condition():
                    return
            except (OSError, KeyError, json.JSONDecodeError):
                pass
            if time.monotonic() > end:
                raise TimeoutError(f"within {limit:g} s not so: {what}")
            time.sleep(0.02)

    def take_lease(self):
        self.lease = self.ask("POST", "/lease", {"takeOver": True})["lease"]

    def status(self):
        return self.ask("GET", "/status")

    def ready(self):
        """Standby, the latch up and nothing forbidden: as after an operator's reset."""
        self.wait("standby", lambda: not self.status()["running"] and self.status()["stateNumber"] == 0, 20)
        for _ in range(40):
            now = self.status()
            if not now["latched"] and now["allowMove"] and now["allowLaser"]:
                return
            self.take_lease()
            refused = self.ask("POST", "/reset", {}).get("detail", "")
            time.sleep(0.25)
        raise TimeoutError(f"it does not become ready: {refused} {json.dumps(self.status())[:400]}")

    def start(self, name, params):
        self.take_lease()
        answer = self.ask("POST", "/runs", {"procedure": name, "params": params, "detach": True})
        if "id" not in answer:
            raise RuntimeError(f"{name} is refused: {answer.get('detail', answer)}")
        return answer["id"]

    def outcome(self, run):
        return self.ask("GET", f"/runs/{run}")

    def end(self):
        self.process.terminate()
        self.process.wait(20)


def ixocut():
    return os.environ.get("IXOCUT", str(ROOT / "run"))


def marked_at(rows):
    """The row in which the mark was raised; the sampler may still have had rows of an earlier one."""
    marks = rows["proof_mark"]
    rises = [i for i, on in enumerate(marks) if on and (i == 0 or not marks[i - 1])]
    if not rises:
        raise RuntimeError("the sampler has no row of the mark")
    return rises[-1]


def ms_until(rows, mark, condition):
    """ms from the row of the mark to the first one that fulfils the condition."""
    elapsed = 0.0
    for i in range(mark, len(rows["period"])):
        if condition(i):
            return elapsed
        elapsed += rows["period"][i] / 1e6
    return None


def dark_ms(rows, mark, column="beam"):
    """ms from the row of the mark to behind the last lit one; None: never lit after it."""
    last, elapsed = None, 0.0
    for i in range(mark, len(rows["period"])):
        elapsed += rows["period"][i] / 1e6
        if rows[column][i]:
            last = elapsed
    return last


def rest_ms(rows, mark):
    """ms from the mark to the last row in which X, Y or Z still moves."""
    last, elapsed = 0.0, 0.0
    for i in range(mark + 1, len(rows["x"])):
        elapsed += rows["period"][i] / 1e6
        if any(abs(rows[a][i] - rows[a][i - 1]) > 5e-5 for a in "xyz"):
            last = elapsed
    return last


def speed_at(rows, i):
    ahead = min(i + 1, len(rows["x"]) - 1)
    return sum((rows[a][ahead] - rows[a][ahead - 1]) ** 2 for a in "xyz") ** 0.5 * 1e3  # a row each ms


def braking_ms(rows, mark, speed):
    """ms from the mark to the first row with a lower speed than at the mark; 0 where nothing moved."""
    if speed < 5.0:
        return 0.0
    return ms_until(rows, mark, lambda i: speed_at(rows, i) < 0.98 * speed or rows["feed_inhibit"][i])


def end_it(how, served, machine, relay):
    if how in ("stop", "pause"):
        answer = served.ask("POST", "/" + how, {})
        if "detail" in answer:
            raise RuntimeError(f"{how} is refused: {answer['detail']}")
    elif how == "alarm":
        machine.TextInterface().set("estop on")  # LinuxCNC's own interface: an alarm of the driver
    else:
        relay.cut = True


def mend(how, served, machine, relay):
    if how == "cut":
        relay.cut = False
    if how == "alarm":
        for _ in range(4):  # the driver may take its command back meanwhile
            text = machine.TextInterface()
            text.set("estop off")
            text.set("machine on")
            text.socket.close()
            if machine.signal_value("motion.motion-enabled"):
                break
    served.ready()


def judge(how, row):
    """What is wrong with a point."""
    wrong = []
    limit = BEAM_MS if how in ("stop", "pause") else AWAY_MS
    if row["lit"] and row["dark_ms"] > limit:
        wrong.append("dark late")
    if how in ("stop", "pause") and row["brake_ms"] is not None and row["brake_ms"] > BRAKE_MS + 10:
        wrong.append("brakes late")
    ramp = row["speed"] / 6000.0 * 1e3
    if how in ("stop", "pause") and row["rest_ms"] > ramp + 150.0:
        wrong.append("rests late")
    return wrong


def one_point(number, served, machine, relay, sampler, mark):
    name, params, lights, how, moment = points()[number]
    served.ready()
    sampler.take()
    run = served.start(name, params)
    time.sleep(moment)
    served.take_lease()  # a pause needs one that has not run out
    mark.set(True)
    end_it(how, served, machine, relay)
    time.sleep(1.5)
    rows = sampler.take()
    mark.set(False)
    at = marked_at(rows)
    dark = dark_ms(rows, at)
    speed = speed_at(rows, at)
    report = served.outcome(run)
    row = {"point": number, "procedure": name, "ending": how, "moment_ms": round(moment * 1e3), "lit": dark is not None,
           "dark_ms": dark,
           "speed": round(speed, 1), "brake_ms": braking_ms(rows, at, speed), "rest_ms": round(rest_ms(rows, at), 1),
           "outcome": report.get("outcome"), "words": report.get("words")}
    row["wrong"] = judge(how, row)
    mend(how, served, machine, relay)
    return row


def one_kill(name, served, machine, relay, sampler, mark):
    who, what, limit = KILLS[name]
    served.ready()
    run = served.start("shot", {"ms": 6000})
    machine.until("the beam is lit", lambda: machine.signal_value("lighting.out"), 10)
    time.sleep(0.3)
    sampler.take()
    mark.set(True)
    pid = None
    if who == "relay":
        relay.cut = True
    else:
        pid = machine.pid_of(who)
        os.kill(pid, what)
    time.sleep(1.5)
    rows = sampler.take()
    mark.set(False)
    at = marked_at(rows)
    row = {"point": name, "lit": rows["beam"][at] == 1.0, "dark_ms": dark_ms(rows, at),
           "limit_ms": limit, "words": served.outcome(run).get("words")}
    if what == signal.SIGSTOP:
        os.kill(pid, signal.SIGCONT)
    if who == "relay":
        relay.cut = False
    time.sleep(1.0)
    row["again"] = any(sampler.take()["beam"])
    row["wrong"] = [text for text, bad in (("not lit", not row["lit"]), ("lit again", row["again"]),
                                           ("dark late", row["dark_ms"] is None or row["dark_ms"] > limit)) if bad]
    return row


def inside(what, table):
    import machine
    folder = Path(os.environ["XDG_STATE_HOME"]) / "sweep"
    folder.mkdir()
    relay = Relay(Served.RELAY, 5007)
    mark, sampler = machine.Mark(), machine.Sampler()
    served = Served(folder)
    try:
        for point in what:
            act = one_kill if point in KILLS else one_point
            row = act(point if point in KILLS else int(point), served, machine, relay, sampler, mark)
            with open(table, "a", encoding="utf-8") as out:
                out.write(json.dumps(row) + "\n")
            print(json.dumps(row), flush=True)
    except Exception:
        served.log.flush()
        print((folder / "serve.log").read_text()[-3000:], file=sys.stderr)
        raise
    finally:
        sampler.end()
        served.end()


def beside(what, table):
    return subprocess.run([SCRIPT, sys.executable, __file__, "inside", table, *map(str, what)]).returncode


def summary(table):
    rows = [json.loads(line) for line in open(table, encoding="utf-8")]
    good = True
    print(f"{'':22} {'points':>6} {'lit':>4} {'dark, median':>13} {'worst':>8} {'rest, worst':>12}   wrong")
    def line(name, part):
        nonlocal good
        dark = [r["dark_ms"] for r in part if r["lit"] and r["dark_ms"] is not None]
        rest = [r["rest_ms"] for r in part if "rest_ms" in r]
        wrong = sum(bool(r["wrong"]) for r in part)
        good = good and not wrong
        figures = f"{statistics.median(dark):10.1f} ms {max(dark):5.0f} ms" if dark else f"{'-':>13} {'-':>8}"
        print(f"{name:22} {len(part):6} {sum(r['lit'] for r in part):4} {figures}"
              f" {f'{max(rest):9.0f} ms' if rest else '-':>12}   {wrong or 'none'}")
    for how in ENDINGS:
        part = [r for r in rows if r.get("ending") == how]
        if part:
            line(how, part)
    for name in KILLS:
        part = [r for r in rows if r["point"] == name]
        if part:
            line(name, part)
    return good


def main():
    if len(sys.argv) > 1 and sys.argv[1] == "inside":
        inside(sys.argv[3:], sys.argv[2])
        return 0
    options = argparse.ArgumentParser(prog="scripts/linuxcnc proof-sweep", description=__doc__)
    options.add_argument("--from", dest="first", type=int, default=0, help="the first point (0)")
    options.add_argument("--to", type=int, default=len(points()), help="the point after the last")
    options.add_argument("--kills", type=int, default=0, help="how often each program is killed or stopped")
    options.add_argument("--every", type=int, default=1, help="only every so many points")
    options.add_argument("--table", default="linuxcnc-sweep.jsonl", help="a line for each point; what it has is not done again")
    given = options.parse_args()
    table = Path(given.table).resolve()
    done = {json.loads(line)["point"] for line in open(table)} if table.exists() else set()
    todo = [n for n in range(given.first, min(given.to, len(points())), given.every) if n not in done]
    while todo:  # LinuxCNC is shared by so many points
        part, todo = todo[:20], todo[20:]
        code = beside(part, table)
        if code:
            return code
    for name in KILLS:
        for _ in range(given.kills):
            if code := beside([name], table):
                return code
    return 0 if summary(table) else 1


if __name__ == "__main__":
    sys.exit(main())
