#!/usr/bin/python3
"""run.py [FILE]: runs the tests of that file beside a simulated LinuxCNC, else all of them; only where IXO_LABEL is
`linuxcnc`, as in `./test --label linuxcnc`, which installs what they need. Exits with 77 where something was left out,
after saying why. IXOCUT and IXOCUT_HAL name the programs."""
import os
import pathlib
import shutil
import sys
import unittest

SKIPPED = 77


def main():
    if os.environ.get("IXO_LABEL") != "linuxcnc":
        print("These tests need LinuxCNC (about 600 MB): ./test --label linuxcnc installs it and runs them.")
        return SKIPPED
    if not shutil.which("linuxcnc") or not os.path.exists(os.environ.get("IXOCUT_HAL", "")):
        print("These tests need LinuxCNC and ixocut-hal: apt-get install linuxcnc-uspace linuxcnc-uspace-dev, then build.")
        return SKIPPED
    tests = unittest.defaultTestLoader.discover(str(pathlib.Path(__file__).parent), pattern=(sys.argv[1:] or ["*.py"])[0])
    result = unittest.TextTestRunner(verbosity=2).run(tests)
    for test, reason in result.skipped:
        print("LEFT OUT: %s: %s" % (test, reason), file=sys.stderr)
    if not result.wasSuccessful() or not result.testsRun:
        return 1
    return SKIPPED if result.skipped else 0


if __name__ == "__main__":
    sys.exit(main())
