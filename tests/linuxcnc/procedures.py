"""The controller's procedures on the simulated LinuxCNC, against the same ones on the simulated machine: their journals
of commands are equal but for DIFFERENCES."""
import difflib
import os
import pathlib
import re
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
SCRIPT = str(ROOT / "scripts" / "linuxcnc")
CANNOT = 77

PROCEDURES = {
    "shot": ["run", "shot", "--ms", "300"],
    "safe-move": ["run", "safe-move", "--x", "500", "--y", "300"],
    "square": ["run", "square"],
    "change-nozzle": ["run", "change-nozzle"],
    "clean-nozzle": ["run", "clean-nozzle-manual"],
    "gas": ["gas", "calibrate", "--gas", "Air", "--nozzle", "S", "--size", "1.5"],
    "capacitance": ["run", "auto-calibrate"],
    "cover": ["run", "cover"],
}

# A line of one journal that the other has not, as a regular expression, and why; at most ten, none about laser or gas.
DIFFERENCES = {
    r"axes\.SaveFlagPos": "the simulated machine keeps the flag positions of its file",
}


def told_again(command, found):
    """What is told again and again counts once; an off is, until it is read back, whatever the other devices are told."""
    device = command.partition(".")[0]
    of_device = [other for other in found if other.startswith(device + ".")]
    is_off = re.search(r"off$|Off$|OutputDA 0\.00$", command)
    return command in found[-2:] or (is_off and command in of_device[-2:])


def commands(text):
    """The commands from the procedure's start to its end."""
    found, inside = [], False
    for line in text.splitlines():
        entry = re.match(r"\d{8,} (.*)", line)
        if not entry:
            continue
        inside = (inside or entry[1].startswith("state 20")) and entry[1] != "state 0"
        command = re.match(r"(\w+\.[A-Z]\w+.*)", entry[1])
        if inside and command and not told_again(command[1], found):
            found.append(command[1])
    return found


class Procedures(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        """All of them beside one LinuxCNC, its start shared."""
        cls.folder = tempfile.TemporaryDirectory()
        out = pathlib.Path(cls.folder.name)
        # The simulated machine begins each at X 0, Y 0, Z 0.
        lines = ['"$IXOCUT" run safe-move-xyz --x 0 --y 0 --z 0 --realtime --local >/dev/null; '
                 f'"$IXOCUT" {" ".join(call)} --realtime --journal --local --lang en >{out}/{name} 2>&1; '
                 f'echo "exit $?" >>{out}/{name}' for name, call in PROCEDURES.items()]
        # As LinuxCNC itself where that may be: a controller that is not given the processor has lost it.
        first = ["chrt", "--rr", "1"]
        if subprocess.run([*first, "true"], capture_output=True).returncode != 0:
            first = []
        ran = subprocess.run([*first, SCRIPT, "bash", "-c", "\n".join(lines)], timeout=240, capture_output=True, text=True)
        if ran.returncode == CANNOT:
            raise unittest.SkipTest(ran.stderr)
        if ran.returncode != 0:
            raise RuntimeError(ran.stdout + ran.stderr)
        cls.texts = {name: (out / name).read_text() for name in PROCEDURES}

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def simulated(self, call):
        with tempfile.TemporaryDirectory() as state:
            ran = subprocess.run([os.environ["IXOCUT"], *call, "--journal", "--lang", "en", "--state", state],
                                 capture_output=True, text=True, timeout=120)
            return ran.stdout

    def test_each_ends_well_with_the_simulated_machine_s_commands(self):
        self.assertLessEqual(len(DIFFERENCES), 10)
        self.assertFalse([pattern for pattern in DIFFERENCES if re.match("laser|gas", pattern)])
        for name, call in PROCEDURES.items():
            with self.subTest(name):
                text = self.texts[name]
                self.assertTrue(text.rstrip().endswith("exit 0"), text[-2000:])
                here, there = commands(self.simulated(call)), commands(text)
                self.assertTrue(here, "the journal of the simulated machine has no command")
                difference = [line for line in difflib.ndiff(here, there)
                              if line[0] in "+-" and not any(re.match(p, line[2:]) for p in DIFFERENCES)]
                self.assertEqual(difference, [])


if __name__ == "__main__":
    unittest.main()
