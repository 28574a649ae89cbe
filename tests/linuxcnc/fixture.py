"""What the tests beside a simulated LinuxCNC share: a command beside one of its own."""
import os
import pathlib
import signal
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
    arguments = [*before, SCRIPT, *command]
    with subprocess.Popen(arguments, env=os.environ | environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                          start_new_session=True) as process:
        try:
            out, err = process.communicate(timeout=within_s)
        finally:
            if process.poll() is None:  # with whatever it has started: a LinuxCNC that hangs keeps a processor for itself
                os.killpg(process.pid, signal.SIGTERM)
    if process.returncode == CANNOT:
        raise unittest.SkipTest(err)
    return subprocess.CompletedProcess(arguments, process.returncode, out, err)
