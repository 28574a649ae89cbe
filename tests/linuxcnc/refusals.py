"""A LinuxCNC that is not as the machine file has it, or not ready: refused with the reason and what is to be done, and
nothing moves."""
import unittest

import fixture

MOVE = '"$IXOCUT" run safe-move --x 100 --y 100 --realtime --local --lang en 2>&1; echo "exit $?"; '
WHERE = 'halcmd getp joint.0.pos-fb; '


class Refusals(unittest.TestCase):
    def beside(self, commands, **environment):
        ran = fixture.beside("bash", "-c", commands, within_s=90, **environment)
        return ran.stdout + ran.stderr

    def test_limits_that_are_narrower_than_the_machine_file_s(self):
        told = self.beside(MOVE + WHERE, LINUXCNC_EDIT="s/^MAX_LIMIT = 3050.01/MAX_LIMIT = 2000/")
        self.assertIn("the limits of axis X are wider than LinuxCNC's: 0 to 3050 (LinuxCNC has -0.01 to 2000)", told)
        self.assertIn("exit 3\n0\n", told)

    def test_inches(self):
        told = self.beside(MOVE + WHERE, LINUXCNC_EDIT="s/^LINEAR_UNITS = mm/LINEAR_UNITS = inch/")
        self.assertIn('LinuxCNC does not count in mm (its linear units are "INCH"); set LINEAR_UNITS = mm', told)
        self.assertIn("exit 3\n0\n", told)

    def test_emergency_stop_and_not_homed_until_a_person_has_mended_both(self):
        machine = '"$IXOCUT" machine {} --lang en; echo "exit $?"; '.format
        told = self.beside(MOVE + machine("arm") + MOVE + machine("try x --yes") + WHERE + machine("home") + MOVE + WHERE,
                           LINUXCNC_COLD="1")
        at = -1
        for text in ("why: LinuxCNC is in emergency stop", "exit 1", "linuxcnc: done", "exit 0",
                     'why: axis X of LinuxCNC is not homed; home it there, or by "ixocut machine home"', "exit 1",
                     "BAD  x:", "is not homed", "exit 1\n0\n", "linuxcnc: done", "exit 0", "Success", "exit 0\n100\n"):
            self.assertIn(text, told[at + 1:])
            at = told.index(text, at + 1)


if __name__ == "__main__":
    unittest.main()
