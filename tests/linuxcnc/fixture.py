"""What the tests beside a simulated LinuxCNC share: a command beside one of its own."""
import os
import pathlib
import subprocess
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
MACHINES = ROOT / "share" / "machines"
SCRIPT = str(ROOT / "scripts" / "linuxcnc")
CANNOT = 77


def first():
    """The start of a command that is given the processor before others, as LinuxCNC itself is, where that may be: a
    controller that is not has lost it."""
    before = ["chrt", "--rr", "1"]
    return before if subprocess.run([*before, "true"], capture_output=True).returncode == 0 else []


def beside(*command, within_s, before=(), **environment):
    """What came of `scripts/linuxcnc command`; skips the test where there is no LinuxCNC."""
    ran = subprocess.run([*before, SCRIPT, *command], capture_output=True, text=True, timeout=within_s,
                         env=os.environ | environment)
    if ran.returncode == CANNOT:
        raise unittest.SkipTest(ran.stderr)
    return ran
