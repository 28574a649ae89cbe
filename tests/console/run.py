#!/usr/bin/python3
"""run.py [FILE]: runs the console's tests of that file, else all of them; only where IXO_LABEL is `console`, as in
`./test --label console`, which installs what they need. Exits with 77 where something was left out, after saying why.
IXOCUT names the program, else it is the debug build's."""
import os
import pathlib
import sys
import unittest

SKIPPED = 77


def main():
    if os.environ.get("IXO_LABEL") != "console":
        print("The console's tests need a browser: ./test --label console installs it and runs them.")
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
