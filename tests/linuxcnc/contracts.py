"""The promises of the ports, on the simulated LinuxCNC alone, and with laser, gas and ports on Modbus as one machine."""
import os
import pathlib
import subprocess
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
SCRIPT = str(ROOT / "scripts" / "linuxcnc")
CANNOT = 77
# The command beside the device on Modbus, once that listens.
BESIDE_PLANT = """
"$IXOCUT" simulate machine --machine "$XDG_STATE_HOME/ixocut/machine.xml" --tcp 1502 --lang en >/dev/null &
trap "kill -KILL $!" EXIT
for i in {1..150}; do (exec 3<>/dev/tcp/127.0.0.1/1502) 2>/dev/null && break; sleep 0.1; done
"$@"
"""


class Contracts(unittest.TestCase):
    def kept(self, machine, *before):
        # As LinuxCNC itself where that may be: a controller that is not given the processor has lost it.
        first = ["chrt", "--rr", "1"]
        if subprocess.run([*first, "true"], capture_output=True).returncode != 0:
            first = []
        ran = subprocess.run([*first, SCRIPT, *before, os.environ["IXO_THREADED_TESTS"],
                              "--gtest_filter=LinuxcncContracts.*"], capture_output=True, text=True, timeout=200,
                             env=os.environ | {"LINUXCNC_MACHINE": str(ROOT / "share" / "machines" / machine)})
        if ran.returncode == CANNOT:
            self.skipTest(ran.stderr)
        self.assertEqual(ran.returncode, 0, ran.stdout + ran.stderr)
        self.assertIn("[  PASSED  ] 1 test.", ran.stdout)
        self.assertNotIn("SKIPPED", ran.stdout)

    def test_are_kept(self):
        self.kept("linuxcnc.xml")

    def test_are_kept_with_the_rest_on_modbus(self):
        self.kept("linuxcnc-modbus.xml", "bash", "-c", BESIDE_PLANT, "beside")


if __name__ == "__main__":
    unittest.main()
