"""The promises of the ports, on the simulated LinuxCNC."""
import os
import pathlib
import subprocess
import unittest

SCRIPT = str(pathlib.Path(__file__).resolve().parent.parent.parent / "scripts" / "linuxcnc")
CANNOT = 77


class Contracts(unittest.TestCase):
    def test_are_kept(self):
        # As LinuxCNC itself where that may be: a controller that is not given the processor has lost it.
        first = ["chrt", "--rr", "1"]
        if subprocess.run([*first, "true"], capture_output=True).returncode != 0:
            first = []
        ran = subprocess.run([*first, SCRIPT, os.environ["IXO_THREADED_TESTS"], "--gtest_filter=LinuxcncContracts.*"],
                             capture_output=True, text=True, timeout=200)
        if ran.returncode == CANNOT:
            self.skipTest(ran.stderr)
        self.assertEqual(ran.returncode, 0, ran.stdout + ran.stderr)
        self.assertIn("[  PASSED  ] 1 test.", ran.stdout)
        self.assertNotIn("SKIPPED", ran.stdout)


if __name__ == "__main__":
    unittest.main()
