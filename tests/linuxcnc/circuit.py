"""The HAL circuit, ixocut-hal and scripts/linuxcnc, without a controller."""
import os
import re
import subprocess
import tempfile
import unittest

import fixture

SHARE = fixture.MACHINES / "linuxcnc"
STATED = 0.01  # of the sensor's curve


def curve(name):
    text = (SHARE / "follow.hal").read_text()
    values = {axis: [float(value) for value in re.findall(rf"setp {name}\.{axis}-val-\d+ (\S+)", text)] for axis in "xy"}
    return list(zip(values["x"], values["y"]))


def interpolated(points, x):
    for (x0, y0), (x1, y1) in zip(points, points[1:]):
        if x0 <= x <= x1:
            return y0 + (y1 - y0) * (x - x0) / (x1 - x0)
    return points[0][1] if x < points[0][0] else points[-1][1]


class Files(unittest.TestCase):
    def test_sensor_is_its_stated_curve_and_the_height_its_inverse(self):
        sensor, height = curve("sensor-curve"), curve("height-curve")
        self.assertEqual((len(sensor), len(height)), (16, 16))
        self.assertEqual(height, [(v, g) for g, v in reversed(sensor)])
        for step in range(5, 1501):
            gap = step / 100
            stated = 10 / (gap + 1)
            self.assertLess(abs(interpolated(sensor, gap) / stated - 1), STATED, gap)

    def test_every_pin_of_the_list_is_netted_and_no_other(self):
        listed = {line.split()[2] for line in (SHARE / "ixocut-hal.pins").read_text().splitlines()
                  if line.split("#")[0].strip()}
        netted = set()
        for file in ("nets.hal", "limits.hal"):
            netted |= set(re.findall(r"\bixocut-hal\.(\S+)", "\n".join(
                line for line in (SHARE / file).read_text().splitlines() if line.startswith("net "))))
        self.assertEqual(netted, listed | {"heartbeat", "rearm", "servo-seconds"})


class Program(unittest.TestCase):
    def run_hal(self, *arguments):
        return subprocess.run([os.environ["IXOCUT_HAL"], *arguments], capture_output=True, text=True, timeout=20)

    def test_wrong_arguments_and_lists_are_explained(self):
        self.assertEqual(self.run_hal("--help").returncode, 0)
        for arguments in ([], ["--pins"], ["--pins", "x"], ["--pin", "x", "--socket", "y"]):
            ran = self.run_hal(*arguments)
            self.assertEqual(ran.returncode, 2, arguments)
            self.assertIn("ixocut-hal --pins FILE --socket PATH", ran.stderr)
        with tempfile.NamedTemporaryFile("w") as pins:
            pins.write("bit out laser\nbit sideways gap\n")
            pins.flush()
            ran = self.run_hal("--pins", pins.name, "--socket", pins.name + ".sock")
        self.assertEqual(ran.returncode, 1)
        self.assertIn(f'{pins.name}, line 2: this is no pin of ixocut-hal: "bit sideways gap"', ran.stderr)


class Script(unittest.TestCase):
    def test_runs_a_command_beside_linuxcnc_and_leaves_nothing(self):
        ran = fixture.beside("sh", "-c", 'ps -o uid= -p "$(pgrep -x milltask)"; echo "$LINUXCNC_FOLDER";'
                             ' test -S "$LINUXCNC_FOLDER/ixocut-hal.sock"; echo $?; halcmd getp ixocut-hal.x.max; exit 3',
                             within_s=60, LINUXCNC_EDIT="s/^MAX_LIMIT = 3050.01/MAX_LIMIT = 2000/")
        self.assertEqual(ran.returncode, 3, ran.stderr)
        uid, folder, socket, most = ran.stdout.split()
        if os.geteuid() == 0:  # everybody else is shown as root in his own namespaces
            self.assertNotEqual(uid, "0")
        self.assertEqual((socket, float(most)), ("0", 2000.0))
        self.assertFalse(os.path.exists(folder))


if __name__ == "__main__":
    unittest.main()
