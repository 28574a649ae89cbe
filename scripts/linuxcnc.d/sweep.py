"""The controller's procedures on the simulated LinuxCNC, ended at seeded moments in four ways; and what comes of a beam
that is lit when somebody fails. Beside one LinuxCNC (proof.py)."""

import os
import random
import signal
import subprocess
import time

SEED = 18
PASS_MS = 10.0  # of the state thread, which takes up what is asked for
BEAM_MS = PASS_MS + 20.0
BRAKE_MS = 10.0  # from the controller's stop
AWAY_MS = 500.0
HUNG_MS = 400.0
ACCELERATION = 12000.0  # of X and Y in ixocut.ini; LinuxCNC brakes with half of it
ENDINGS = ("stop", "pause", "alarm", "cut")
MOMENTS = 10  # of each ending

# Name, the call's path and body, and how long it takes (s): the moments lie within it.
PROCEDURES = {
    "shot": ("/runs", {"procedure": "shot", "params": {"ms": 1500}}, 2.4),
    "safe-move": ("/runs", {"procedure": "safe-move"}, 1.4),
    "square": ("/runs", {"procedure": "square"}, 2.2),
    "change-nozzle": ("/runs", {"procedure": "change-nozzle"}, 39.0),
    "clean-nozzle": ("/runs", {"procedure": "clean-nozzle-manual"}, 5.0),
    "gas calibration": ("/gas/calibrate", {"gases": ["Air"], "nozzle": "S", "size": 1.5}, 6.0),
    "capacitance calibration": ("/runs", {"procedure": "auto-calibrate"}, 2.2),
    "cover": ("/runs", {"procedure": "cover"}, 0.5),
}

# Who fails while the beam is lit, and within how many ms it has to be dark.
FAILURES = {
    "milltask STOP": AWAY_MS,
    "linuxcncrsh STOP": AWAY_MS,
    "network cut": AWAY_MS,
    "text interface closed": AWAY_MS,
    "enable stolen": AWAY_MS,
    "emergency stop": AWAY_MS,
    "state thread hung": HUNG_MS,
    "milltask KILL": AWAY_MS,
}


def moments():
    """(procedure, ending, moment): the same ones in every run."""
    rng = random.Random(SEED)
    return [(name, ending, rng.uniform(0.02, 1.0) * row[2])
            for name, row in PROCEDURES.items() for ending in ENDINGS for _ in range(MOMENTS)]


class Beside:
    """What the points share."""

    def __init__(self, folder, sampler, mark):
        from controller import Relay, Served
        self.sampler = sampler
        self.mark = mark
        self.relay = Relay(5007)
        self.served = Served(folder)

    def end(self):
        self.served.end()


def refill_rack():
    """The nozzles as at the start, wherever a change was ended."""
    places = {"take-00": "0x8000", "take-11": "0x8000", "put-01": "0xffff8000", "put-10": "0xffff8000"}
    for values in (dict.fromkeys(places, "0xffffffff"), places):
        for place, value in values.items():
            subprocess.run(["halcmd", "setp", f"{place}.function", value], check=True)


def begin(name, beside):
    path, body, _ = PROCEDURES[name]
    if name == "change-nozzle":
        refill_rack()
    if name == "safe-move":  # a long way
        x = 2500 if beside.served.status()["signals"]["position"]["xMm"] < 1300 else 100
        body = dict(body, params={"x": x, "y": 1200, "speed": 1000})
    return beside.served.start(path, body)


def end_it(how, beside):
    import machine
    if how in ("stop", "pause"):
        answer = beside.served.ask("POST", "/" + how, {})
        if "detail" in answer:
            raise RuntimeError(f"{how} is refused: {answer['detail']}")
    elif how == "alarm":
        machine.TextInterface().set("estop on")  # LinuxCNC's own interface: an alarm of the driver
    else:
        beside.relay.cut(True)


def mend(how, beside):
    import machine
    if how == "cut":
        beside.relay.cut(False)
    if how == "alarm":
        for _ in range(4):  # the driver may take its command back meanwhile
            text = machine.TextInterface()
            text.set("estop off")
            text.set("machine on")
            text.socket.close()
            if machine.signal_value("motion.motion-enabled"):
                break
    beside.served.ready()


def judge(how, row):
    """What is wrong with a point."""
    wrong = []
    asked = how in ("stop", "pause")
    if row["lit"] and row["dark_ms"] > (BEAM_MS if asked else AWAY_MS):
        wrong.append("dark late")
    if asked and row["asked_ms"] is not None:
        if row["brake_ms"] is None or row["brake_ms"] > BRAKE_MS or row["asked_ms"] > PASS_MS + BRAKE_MS:
            wrong.append("brakes late")
    if asked and row["rest_ms"] > row["speed"] / (ACCELERATION / 2) * 1e3 + 150.0:
        wrong.append("rests late")
    return wrong


def sweep(point, beside):
    from rows import last_ms, marked_at, ms_until, speed_at
    name, how, moment = point
    beside.served.ready()
    run = begin(name, beside)
    time.sleep(moment)
    beside.served.take_lease()  # a pause needs one that has not run out
    beside.sampler.take()
    time.sleep(0.005)
    beside.mark.set(True)
    end_it(how, beside)
    time.sleep(1.5)
    rows = beside.sampler.take()
    beside.mark.set(False)
    at = marked_at(rows)
    dark = last_ms(rows, at, lambda i: rows["beam"][i])  # whatever was lit behind the mark counts
    speed = speed_at(rows, at)
    moving = speed >= 5.0
    # The controller's own mark rises with its stop.
    stopped = next((i for i in range(at, len(rows["mark"])) if rows["mark"][i]), None)

    def brakes(i):
        return rows["feed_inhibit"][i] or speed_at(rows, i) < 0.98 * speed

    report = beside.served.outcome(run)
    row = {"lit": dark is not None, "dark_ms": dark, "speed": round(speed, 1),
           "asked_ms": ms_until(rows, at, brakes) if moving else None,
           "brake_ms": ms_until(rows, max(at, stopped), brakes) if moving and stopped is not None else None,
           "rest_ms": round(last_ms(rows, at + 1, lambda i: speed_at(rows, i - 1) > 0.05) or 0.0, 1),
           "outcome": report.get("outcome"), "words": report.get("words"), "cause": report.get("cause")}
    row["wrong"] = judge(how, row)
    mend(how, beside)
    return row


def strike(case, beside):
    """Lets it fail; what undoes that."""
    import machine
    from controller import Held
    who, _, what = case.rpartition(" ")
    if what in ("STOP", "KILL"):
        pid = machine.pid_of(who)
        os.kill(pid, getattr(signal, "SIG" + what))
        return (lambda: os.kill(pid, signal.SIGCONT)) if what == "STOP" else (lambda: None)
    if case == "network cut":
        beside.relay.cut(True)
        return lambda: beside.relay.cut(False)
    if case == "text interface closed":
        beside.relay.close(True)
        return lambda: beside.relay.close(False)
    if case == "enable stolen":
        text = machine.TextInterface()
        return text.socket.close
    if case == "emergency stop":
        text = machine.TextInterface()
        text.set("estop on")
        text.socket.close()
        return lambda: mend("alarm", beside)
    held = Held(beside.served.process.pid, "ixo-state")
    return held.let_go


def failure(case, beside):
    import machine
    from rows import last_ms, marked_at
    beside.served.ready()
    run = beside.served.start("/runs", {"procedure": "shot", "params": {"ms": 6000}})
    machine.until("the beam is lit", lambda: machine.signal_value("lighting.out"), 10)
    time.sleep(0.3)
    beside.sampler.take()
    time.sleep(0.005)
    beside.mark.set(True)
    undo = strike(case, beside)
    time.sleep(1.5)
    rows = beside.sampler.take()
    beside.mark.set(False)
    at = marked_at(rows)
    undo()
    time.sleep(1.0)
    report = beside.served.outcome(run)
    lit = at > 0 and rows["beam"][at - 1] == 1.0  # it may be dark in the very row of the mark
    row = {"lit": lit, "dark_ms": last_ms(rows, at, lambda i: rows["beam"][i]) or 0.0,
           "limit_ms": FAILURES[case], "outcome": report.get("outcome"), "words": report.get("words"),
           "cause": report.get("cause")}
    again = any(beside.sampler.take()["beam"])
    row["wrong"] = [text for text, bad in (("not lit", not row["lit"]), ("lit again", again),
                                           ("dark late", row["dark_ms"] > row["limit_ms"]),
                                           ("without a reason", row["outcome"] in (None, "success") or not row["cause"]))
                    if bad]
    return row
