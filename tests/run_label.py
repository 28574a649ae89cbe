#!/usr/bin/python3
"""run_label.py LABEL [FILE]: runs the tests of that file in the folder LABEL, else all of them; only where IXO_LABEL is
LABEL, as in `./test --label LABEL`, which installs what they need. Exits with 77 where something was left out, after
saying why. IXOCUT names the program, else it is the debug build's."""
import os
import pathlib
import sys
import unittest

SKIPPED = 77
NEEDS = {"console": "a browser", "linuxcnc": "LinuxCNC (about 600 MB)"}


def main():
    label = sys.argv[1]
    if os.environ.get("IXO_LABEL") != label:
        print(f"These tests need {NEEDS[label]}: ./test --label {label} installs it and runs them.")
        return SKIPPED
    if label == "linuxcnc" and not os.path.exists(os.environ.get("IXOCUT_HAL", "")):
        print("These tests need ixocut-hal: apt-get install linuxcnc-uspace linuxcnc-uspace-dev, then build.")
        return SKIPPED
    folder = pathlib.Path(__file__).parent / label
    tests = unittest.defaultTestLoader.discover(str(folder), pattern=(sys.argv[2:] or ["*.py"])[0])
    result = unittest.TextTestRunner(verbosity=2).run(tests)
    for test, reason in result.skipped:
        print("LEFT OUT: %s: %s" % (test, reason), file=sys.stderr)
    if not result.wasSuccessful() or not result.testsRun:
        return 1
    return SKIPPED if result.skipped else 0


if __name__ == "__main__":
    sys.exit(main())
