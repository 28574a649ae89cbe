"""What axe-core finds on each page by WCAG A and AA, light and dark: nothing. npm fetches it into the build folder, by the
lock file beside this; where that cannot be, this is left out, unless IXO_AXE is `needed`."""
import os
import pathlib
import shutil
import subprocess
import unittest

import fixture

FOLDER = pathlib.Path(os.environ.get("IXO_NODE_FOLDER", str(fixture.ROOT / "build" / "debug" / "tests" / "console")))
HERE = pathlib.Path(__file__).parent
RUN = """
const done = arguments[arguments.length - 1];
axe.run(document, {runOnly: ["wcag2a", "wcag2aa", "wcag21a", "wcag21aa", "wcag22aa"], preload: false}).then(
  (found) => done(found.passes.length < 10 ? ["axe has looked at nothing"] : found.violations.flatMap((rule) => rule.nodes.map((node) =>
    rule.id + ": " + node.target.join(" ") + ": " + node.failureSummary.replace(/\\s+/g, " ")))),
  (error) => done([String(error)]));
"""


def axe():
    """Its script, or why there is none."""
    FOLDER.mkdir(parents=True, exist_ok=True)
    for name in ("package.json", "package-lock.json"):
        shutil.copy(HERE / name, FOLDER / name)
    script = FOLDER / "node_modules" / "axe-core" / "axe.min.js"
    try:
        done = subprocess.run(["npm", "ci", "--no-audit", "--no-fund", "--ignore-scripts"], cwd=FOLDER, timeout=120,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    except (OSError, subprocess.TimeoutExpired) as error:
        return None, "npm does not work: %s" % error
    if done.returncode:
        return None, "npm cannot install axe-core: " + done.stdout.strip()[-300:]
    return script.read_text(encoding="utf-8"), None


class AccessibilityTest(fixture.ConsoleTest):
    @classmethod
    def setUpClass(cls):
        cls.axe, why = axe()
        if cls.axe is None:
            if os.environ.get("IXO_AXE") == "needed":
                raise AssertionError(why)
            raise unittest.SkipTest(why)

    def test_every_page_light_and_dark(self):
        controller = self.controller()
        controller.start_run("shot", ms=50)
        browser = self.browser()
        browser.expect(fixture.NO_PREVIOUS)
        browser.open(controller)
        browser.js(self.axe)
        browser.driver.set_script_timeout(120)
        for page in fixture.PAGES:
            browser.go(page)
            for dark in (False, True):
                with self.subTest(page=page, dark=dark):
                    browser.dark(dark)
                    found = browser.driver.execute_async_script(RUN)
                    self.assertEqual([], found, "\n" + "\n".join(found))
