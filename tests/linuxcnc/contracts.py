"""The promises of the ports, on the simulated LinuxCNC alone, and with laser, gas and ports on Modbus as one machine."""
import os
import unittest

import fixture

# The command beside the device on Modbus, once that listens.
BESIDE_PLANT = """
"$IXOCUT" simulate machine --machine "$XDG_STATE_HOME/ixocut/machine.xml" --tcp 1502 --lang en >/dev/null &
trap "kill -KILL $!" EXIT
for i in {1..150}; do (exec 3<>/dev/tcp/127.0.0.1/1502) 2>/dev/null && break; sleep 0.1; done
"$@"
"""


class Contracts(unittest.TestCase):
    def kept(self, machine, *before):
        ran = fixture.beside(*before, os.environ["IXO_THREADED_TESTS"], "--gtest_filter=LinuxcncContracts.*",
                             within_s=200, before=fixture.first(), LINUXCNC_MACHINE=str(fixture.MACHINES / machine))
        self.assertEqual(ran.returncode, 0, ran.stdout + ran.stderr)
        self.assertIn("[  PASSED  ] 1 test.", ran.stdout)
        self.assertNotIn("SKIPPED", ran.stdout)

    def test_are_kept(self):
        self.kept("linuxcnc.xml")

    def test_are_kept_with_the_rest_on_modbus(self):
        self.kept("linuxcnc-modbus.xml", "bash", "-c", BESIDE_PLANT, "beside")


if __name__ == "__main__":
    unittest.main()
