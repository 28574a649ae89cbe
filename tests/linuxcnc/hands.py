"""Another's hands on the axes while a procedure runs, by LinuxCNC's own interface, the module that its screens use: the
procedure ends with its reason and the beam is dark; nothing moves but what those hands move, then or when the controller
is back; and what they have unhomed is refused. On LinuxCNC alone, and with the laser on Modbus."""
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time
import unittest

import fixture

DARK_MS = 3 * 500.0  # a bound in real time
JOG_MM = 20.0
NEAR_MM = 0.01


# --- beside one LinuxCNC ---

class Plant:
    """The device on Modbus, and when it was lit."""

    def __init__(self, machine, log):
        self.log = log
        self.process = subprocess.Popen([os.environ["IXOCUT"], "simulate", "machine", "--machine", machine, "--tcp", "1502",
                                         "--lang", "en"], stdout=open(log, "w", encoding="utf-8"))

    def happened(self):
        return [(int(ms), what) for ms, what in re.findall(r"^(\d+) laser: beam (lit|dark)$", self.log.read_text(), re.M)]

    def lit(self):
        return self.happened()[-1:] and self.happened()[-1][1] == "lit"


class Hands:
    def __init__(self, with_plant):
        sys.path.insert(0, str(fixture.ROOT / "scripts" / "linuxcnc.d"))
        import linuxcnc
        import machine
        import sweep
        machine.come_first()
        self.cnc, self.machine = linuxcnc, machine
        self.own = linuxcnc.command()
        folder = pathlib.Path(os.environ["XDG_STATE_HOME"]) / "hands"
        folder.mkdir()
        self.plant = Plant(folder.parent / "ixocut" / "machine.xml", folder / "plant.log") if with_plant else None
        if self.plant:
            machine.until("the plant listens", lambda: "Ctrl-C" in self.plant.log.read_text())
        self.mark, self.sampler = machine.Mark(), machine.Sampler()
        self.beside = sweep.Beside(folder, self.sampler, self.mark)
        self.served = self.beside.served

    def end(self):
        self.beside.end()
        if self.plant:
            self.plant.process.kill()

    def lit(self):
        return self.plant.lit() if self.plant else self.machine.signal_value("lighting.out")

    def manual(self):
        self.own.mode(self.cnc.MODE_MANUAL)
        self.own.wait_complete()
        self.own.teleop_enable(0)
        self.own.wait_complete()

    def jog(self):
        self.manual()
        self.own.jog(self.cnc.JOG_INCREMENT, True, 0, 50.0, JOG_MM)

    def escape(self):
        self.own.abort()
        self.manual()

    def unhome(self):
        self.manual()
        self.own.unhome(0)
        self.own.wait_complete()

    def home(self):
        self.manual()
        self.own.home(-1)
        self.machine.until("homed", lambda: all(self.machine.signal_value(f"joint.{n}.homed") for n in range(5)))

    def where(self):
        return [self.machine.signal_value(f"joint.{n}.pos-fb") for n in range(5)]

    def rest(self):
        """Where all joints stand, when they stand."""
        at = self.where()
        for _ in range(100):
            time.sleep(0.3)
            before, at = at, self.where()
            if before == at:
                return at
        raise TimeoutError("they do not come to rest")

    def begun(self, procedure, params, ready):
        """The run of a procedure that is in its middle, and where the joints stood."""
        for _ in range(3):
            self.served.ready()
            before = self.rest()
            run = self.served.start("/runs", {"procedure": procedure, "params": params})
            self.machine.until("it is in its middle", lambda: ready() or self.report(run)["outcome"])
            report = self.report(run)
            if not report["outcome"]:
                time.sleep(0.2)
                return run, before
        # Where the computer holds LinuxCNC up its latch falls, as it has to; not three times.
        raise RuntimeError(f"it has ended before its middle: {report}")

    def struck(self, procedure, params, ready, strike):
        run, before = self.begun(procedure, params, ready)
        lit = bool(self.lit())
        self.sampler.take()
        time.sleep(0.005)
        self.mark.set(True)
        from_ms = time.monotonic() * 1e3
        strike()
        after = self.rest()
        time.sleep(2.5)  # a lost command is taken again after 2 s
        rows = self.sampler.take()
        self.mark.set(False)
        return self.report(run) | {"lit": lit, "dark_ms": self.dark_ms(rows, from_ms), "before": before, "after": after,
                                   "again": bool(self.lit()), "later": self.rest()}

    def dark_ms(self, rows, from_ms):
        from rows import last_ms, marked_at
        if self.plant:
            return max([ms for ms, _ in self.plant.happened()] + [from_ms]) - from_ms
        return last_ms(rows, marked_at(rows), lambda i: rows["light"][i]) or 0.0

    def go(self):
        shot = ("shot", {"ms": 6000}, self.lit)
        rows = {"jogged": self.struck(*shot, self.jog)}
        self.served.ready()
        rows["jogged"]["later"] = self.rest()
        # A long way, and its middle.
        rows["escaped"] = self.struck("safe-move", {"x": 2500, "y": 1200, "speed": 500},
                                      lambda: self.where()[0] > 300, self.escape)
        rows["unhomed"] = self.struck(*shot, self.unhome)
        rows["refused"] = self.moved()
        self.home()
        rows["homed"] = self.moved()
        if self.plant:
            rows["stopped"] = self.struck(*shot, self.stop)
            self.mend()
            rows["killed"] = self.killed(shot)
        return rows

    # Where the beam passes the latch in HAL, scripts/linuxcnc proof has these two.

    def stop(self):
        self.own.state(self.cnc.STATE_ESTOP)

    def mend(self):
        for state in (self.cnc.STATE_ESTOP_RESET, self.cnc.STATE_ON):
            self.own.state(state)
            self.own.wait_complete()

    def killed(self, shot):
        self.begun(*shot)
        from_ms = time.monotonic() * 1e3
        self.served.process.kill()
        time.sleep(2)
        return {"dark_ms": self.dark_ms(None, from_ms), "again": bool(self.lit())}

    def moved(self):
        """What comes of a move after the operator's reset."""
        self.served.ready()
        run = self.served.start("/runs", {"procedure": "safe-move", "params": {"x": 100, "y": 100}})
        self.served.wait("it has ended", lambda: self.served.outcome(run).get("outcome"), 20)
        return self.report(run) | {"at": self.rest()}

    def report(self, run):
        report = self.served.outcome(run)
        return {"outcome": report.get("outcome"), "why": (report.get("problem") or {}).get("why", "")}


def inside(out, with_plant):
    hands = Hands(with_plant)
    try:
        pathlib.Path(out).write_text(json.dumps(hands.go()))
    finally:
        hands.end()


# --- the tests ---

class TakenOver(unittest.TestCase):
    def struck(self, file, with_plant):
        with tempfile.TemporaryDirectory() as folder:
            out = os.path.join(folder, "rows.json")
            os.chmod(folder, 0o777)
            ran = fixture.beside("/usr/bin/python3", __file__, "inside", out, str(int(with_plant)), within_s=200,
                                 LINUXCNC_MACHINE=str(fixture.MACHINES / file))
            self.assertEqual(ran.returncode, 0, ran.stdout + ran.stderr)
            return json.loads(pathlib.Path(out).read_text())

    def near(self, at, wanted):
        self.assertTrue(all(abs(a - b) < NEAR_MM for a, b in zip(at, wanted)), f"{at}, not {wanted}")

    def judge(self, rows):
        for name, why in (("jogged", "X of LinuxCNC was moved by somebody else"), ("escaped", "the mode MANUAL by somebody"),
                            ("unhomed", "axis X of LinuxCNC was unhomed|the mode MANUAL by somebody")):
            row = rows[name]
            print(name, row)
            self.assertEqual(row["lit"], name != "escaped", name)
            self.assertFalse(row["again"], name)
            self.assertLess(row["dark_ms"], DARK_MS, name)
            self.assertNotEqual(row["outcome"], "success", name)
            self.assertRegex(row["why"], why, name)
            self.near(row["later"], row["after"])
        # Those hands' jog is stopped, too, which makes it no longer.
        jogged = rows["jogged"]["after"][0] - rows["jogged"]["before"][0]
        self.assertTrue(0 < jogged < JOG_MM + NEAR_MM, jogged)
        self.near(rows["jogged"]["after"][1:], rows["jogged"]["before"][1:])
        self.assertLess(rows["escaped"]["after"][0], 2400)
        self.near(rows["unhomed"]["after"], rows["unhomed"]["before"])
        self.assertNotEqual(rows["refused"]["outcome"], "success")
        self.assertIn("axis X of LinuxCNC is not homed", rows["refused"]["why"])
        self.near(rows["refused"]["at"], rows["unhomed"]["later"])
        self.assertEqual(rows["homed"]["outcome"], "success")
        self.near(rows["homed"]["at"][:2], [100, 100])

    def test_on_linuxcnc(self):
        self.judge(self.struck("linuxcnc.xml", False))

    def test_with_the_laser_on_modbus(self):
        rows = self.struck("linuxcnc-modbus.xml", True)
        self.judge(rows)
        for name, limit in (("stopped", DARK_MS), ("killed", 3 * 200.0)):
            print(name, rows[name])
            self.assertFalse(rows[name]["again"], name)
            self.assertTrue(0 < rows[name]["dark_ms"] < limit, name)
        self.assertRegex(rows["stopped"]["why"], "LinuxCNC has gone into emergency stop|beside the laser's own has fallen")


if __name__ == "__main__":
    if sys.argv[1:2] == ["inside"]:
        inside(sys.argv[2], sys.argv[3] == "1")
    else:
        unittest.main()
