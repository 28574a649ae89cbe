"""Proofs of the HAL circuit, by HAL and plant alone: no controller of ours takes part, but a client of ixocut-hal that
beats. Beside one LinuxCNC (proof.py)."""

import os
import signal
import statistics
import subprocess
import time

import machine
from rows import lit_again, marked_at, ms_until

LIMIT_MS = 200.0

# What is done to whom; whether the realtime process survives it, which writes the rows.
CASES = {
    "controller KILL": ("controller", signal.SIGKILL, True),
    "controller STOP": ("controller", signal.SIGSTOP, True),
    "ixocut-hal KILL": ("ixocut-hal", signal.SIGKILL, True),
    "ixocut-hal STOP": ("ixocut-hal", signal.SIGSTOP, True),
    "rtapi_app STOP": ("rtapi_app", signal.SIGSTOP, False),
    "ixocut-hal TERM": ("ixocut-hal", signal.SIGTERM, True),
    "rtapi_app KILL": ("rtapi_app", signal.SIGKILL, False),
    "linuxcncrsh KILL": ("linuxcncrsh", signal.SIGKILL, False),
}


def latch(case, again, sampler, mark):
    """A row of the table. `again`: which time it is."""
    who, what, rows_live = CASES[case]
    controller = machine.Controller()
    machine.light_up(controller)
    target = controller.process.pid if who == "controller" else machine.pid_of(who)
    plant = None if rows_live else machine.PlantBeside()
    time.sleep(0.05)
    sampler.take()
    edges = plant.edges if plant else 0
    mark.set(True)
    hit = time.monotonic()
    os.kill(target, what)
    time.sleep(0.2 if again % 2 else 0.6)  # before and after ixocut-hal takes the controller for gone
    if plant:
        dark_ms = (plant.last - hit) * 1e3 + 20.0
        lit, edges = edges > 0, plant.edges
    if what == signal.SIGSTOP:
        os.kill(target, signal.SIGCONT)
    time.sleep(0.5)
    if plant:
        plant.end()
        relit = plant.edges - edges
    else:
        rows = sampler.take()
        at = marked_at(rows)
        lit = at > 0 and rows["light"][at - 1] == 1.0
        dark_ms = ms_until(rows, at, lambda i: not rows["light"][i])
        relit = lit_again(rows, at)
    controller.process.kill()
    controller.process.wait()
    mark.set(False)
    if case == "ixocut-hal KILL":
        recovered()
    wrong = [text for text, bad in (("not lit", not lit), ("dark late", dark_ms is None or dark_ms > LIMIT_MS),
                                    ("lit again", relit)) if bad]
    return {"lit": lit, "dark_ms": dark_ms, "limit_ms": LIMIT_MS, "wrong": wrong}


def recovered():
    """A killed ixocut-hal is back under its own name, with every output off and its nets."""
    def back():
        shown = subprocess.run(["halcmd", "show", "pin", "ixocut-hal"], capture_output=True, text=True).stdout
        outputs = [line for line in shown.splitlines() if " OUT " in line]
        off = all("FALSE" in line or "  0  " in line or "heartbeat" in line for line in outputs)
        return off and "ixocut-hal.laser ==> laser" in shown
    machine.until("ixocut-hal is back", back, 5.0, 0.1)
    machine.until("its socket is back", (machine.FOLDER / "ixocut-hal.sock").exists)
    time.sleep(0.1)


def figure(name, values, limit):
    worst = max(values)
    return {"figure": name, "worst": worst, "median": statistics.median(values), "limit": limit, "rows": len(values)}


def follow(sampler):
    """A row of the table: how well the sensor keeps its curve, and the follower its height."""
    text = machine.TextInterface()
    controller = machine.Controller()
    controller.say("rearm")
    machine.until("the latch is up", lambda: machine.signal_value("beam-latch.ok-out"))
    text.set("mode mdi")

    def go(line, joint, target):
        text.set(f"mdi G90 G21 G94 G53 {line}")
        if not machine.signal_value("beam-latch.ok-out"):
            raise RuntimeError("the latch has fallen and holds the axes: the computer is too busy for this proof")
        machine.until(line, lambda: abs(machine.signal_value(f"joint.{joint}.pos-fb") - target) < 0.005, 30.0)

    go("G1 X0 F60000", 0, 0.0)
    sampler.take()
    go("G1 Z-79.9 F3000", 2, -79.9)
    rows = sampler.take()
    sensor = figure("sensor off its stated curve, %",
                    [100 * abs(v * (g + 1) / 10 - 1) for v, g in zip(rows["sensor"], rows["gap"]) if 0.05 <= g <= 15], 1.0)
    go("G1 Z-70 F3000", 2, -70.0)
    controller.say("set follow-height 1")
    controller.say("set follow-speed 80")
    controller.say("set follow 1")
    machine.until("the height is kept", lambda: abs(machine.signal_value("gap-true.out") - 1) < 0.005)
    time.sleep(0.3)
    sampler.take()
    for target in (3000.0, 0.0):
        go(f"G1 X{target} F30000", 0, target)
    rows = sampler.take()
    gap = figure("gap off its 1 mm at 500 mm/s over 6 m, mm", [abs(g - 1) for g in rows["gap"]], 0.05)
    controller.say("set follow 0")
    controller.say("set follow-clear 1")
    machine.until("the offset is given back", lambda: abs(machine.signal_value("axis.z.eoffset")) < 1e-6)
    machine.until("Z is where it was", lambda: abs(machine.signal_value("joint.2.pos-fb") + 70) < 0.005)
    controller.say("set follow-clear 0")
    go("G1 Z-10 F3000", 2, -10.0)
    controller.end()
    figures = [sensor, gap]
    return {"lit": False, "dark_ms": None, "figures": figures,
            "wrong": [f["figure"] for f in figures if f["worst"] > f["limit"]]}
