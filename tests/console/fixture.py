"""What the console's tests share: a real controller of their own, browsers with fresh profiles, waits for conditions.

Each test's browsers must have reported no error, broken no rule of the page's policy, and asked nobody but the test's
controllers. tests/run_label.py runs them.
"""
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.parse

from selenium import webdriver
from selenium.common.exceptions import StaleElementReferenceException
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "examples" / "client"))
import ixocut_client  # noqa: E402

PROGRAM = os.environ.get("IXOCUT", str(ROOT / "build" / "debug" / "bin" / "ixocut"))
SHARE = pathlib.Path(os.environ.get("IXOCUT_DATA", str(ROOT / "share")))
LANGUAGES = ("en", "zh")
PAGES = ("machine", "procedures", "runs", "panel", "alarms", "gas", "recordings", "config", "links", "log")
WITHIN_S = 20  # for whatever must happen at all; a failure alone takes so long
BROWSERS_OWN = ("chrome", "chrome-extension", "chrome-untrusted", "about", "data", "blob")
# Of a machine file that nobody has changed yet.
NO_PREVIOUS = r"/api/v1/config/diff .* status of 404"

TELL_VIOLATIONS = """
addEventListener("securitypolicyviolation", (event) =>
  console.error("policy violation: " + event.violatedDirective + " " + event.blockedURI));
"""


def translated(english, language):
    """The console's text in that language."""
    if language == "en":
        return english
    with open(SHARE / "locale" / f"{language}.json", encoding="utf-8") as file:
        return json.load(file)["Messages"][english]


def wait(condition, what, within=WITHIN_S):
    """What the condition answers, once that is something."""
    end = time.monotonic() + within
    while True:
        answer = condition()
        if answer:
            return answer
        if time.monotonic() > end:
            raise AssertionError("not within %g s: %s" % (within, what() if callable(what) else what))
        time.sleep(0.02)


class Controller:
    """`ixocut serve` on a free port with a state folder of its own, so many times as fast as the time, or by the real
    clock (None); `machine` changes the text of the machine file."""

    def __init__(self, speed=10, machine=None, language="en"):
        self.state = pathlib.Path(tempfile.mkdtemp(prefix="ixo"))
        self.speed, self.language, self.port, self.process = speed, language, 0, None
        self.data = SHARE
        if machine:
            text = (SHARE / "machines" / "machine.xml").read_text(encoding="utf-8")
            (self.state / "machine.xml").write_text(machine(text), encoding="utf-8")
        self.start()

    def start(self):
        """Again on the same port, where it has been running before."""
        command = [PROGRAM, "serve", "--port", str(self.port), "--state", str(self.state), "--json",
                   "--lang", self.language]
        if self.speed is not None:
            command += ["--virtual", str(self.speed)]
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, text=True,
                                        env={**os.environ, "IXOCUT_DATA": str(self.data)})
        told = json.loads(self.process.stdout.readline())["result"]
        self.url = told["url"]
        self.port = urllib.parse.urlsplit(self.url).port
        self.client = ixocut_client.Controller(told["socket"])  # as the controller's own user, without the page

    def end(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGCONT)
            self.process.send_signal(signal.SIGTERM)
        self.process.wait(WITHIN_S)
        self.process.stdout.close()
        self.client.connection.close()
        return self.process.returncode

    def suspend(self):
        self.process.send_signal(signal.SIGSTOP)

    def resume(self):
        self.process.send_signal(signal.SIGCONT)

    def link(self, role="operator"):
        return self.client.ask("POST", "/session/code", {"role": role})["link"]

    def start_run(self, procedure="delay", **params):
        """A run that nobody needs to attend, started by the controller's own user, who then has no control."""
        self.client.take_control()
        run = self.client.ask("POST", "/runs", {
            "procedure": procedure, "params": params or {"ms": 600_000}, "detach": True})["id"]
        self.client.give_back()
        return run

    def run(self, number):
        return self.client.ask("GET", "/runs/%d" % number)

    def ended(self, number):
        return wait(lambda: (run := self.run(number))["outcome"] and run, "run %d ends" % number)


class Browser:
    """Chromium with a profile of its own, in the language that its user prefers."""

    def __init__(self, language="en", size=(1280, 800), dark=False, script="", log=True):
        options = webdriver.ChromeOptions()
        self.language = language
        self.profile = tempfile.mkdtemp(prefix="ixo")
        languages = {"en": "en-GB,en", "zh": "zh-CN,zh"}[language]
        arguments = ["--headless=new", "--disable-gpu", "--disable-background-networking", "--disable-dev-shm-usage",
                     "--no-first-run", "--hide-scrollbars", "--user-data-dir=" + self.profile, "--lang=" + languages,
                     "--accept-lang=" + languages, "--window-size=%d,%d" % size,
                     "about:blank"]
        if os.geteuid() == 0:
            arguments.append("--no-sandbox")  # which Chromium refuses to use as root
        for argument in arguments:
            options.add_argument(argument)
        if log:
            options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        self.driver = webdriver.Chrome(options=options, service=Service("/usr/bin/chromedriver"))
        self.driver.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": TELL_VIOLATIONS + script})
        self.resize(size)
        if dark:
            self.dark()
        self.expected = []
        self.hosts = set()

    def resize(self, size, scale=1):
        """The page's own pixels: a screen of twice these at 200 % has scale 2."""
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": size[0], "height": size[1], "deviceScaleFactor": scale, "mobile": False})

    def dark(self, is_dark=True):
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": "dark" if is_dark else "light"}]})

    def close(self):
        self.driver.quit()
        shutil.rmtree(self.profile, ignore_errors=True)

    # --- going somewhere ---

    def open(self, controller, page="machine", role="operator"):
        """By a link that is good once, or as somebody who has none."""
        self.hosts.add(urllib.parse.urlsplit(controller.url).netloc)
        self.driver.get(controller.link(role) if role else controller.url + "/")
        self.wait(lambda: self.js("return location.hash.indexOf('code=') < 0"), "the link's code is gone")
        self.wait(lambda: self.text("#state") not in ("", "-"), "the state is shown")
        self.go(page)

    def go(self, page):
        self.js("location.hash = arguments[0]", page)
        self.wait(lambda: self.js("return document.querySelector('.page.' + arguments[0])?.childElementCount > 0",
                                  page.split("/")[0]), "the page %s has something" % page)

    # --- what is there ---

    def tr(self, english):
        return translated(english, self.language)

    def js(self, script, *values):
        return self.driver.execute_script(script, *values)

    def find(self, css):
        found = self.driver.find_elements(By.CSS_SELECTOR, css)
        return found[0] if found else None

    def text(self, css="body"):
        """The visible text; nothing where there is no such node."""
        return self.js("return document.querySelector(arguments[0])?.innerText ?? ''", css)

    def shown(self, text, within="body"):
        """What can be pressed, with that visible text: the whole of it, or else its beginning."""
        expression = ".//*[self::button or self::a or self::summary or self::label or @role='button' or @role='tab']"
        try:
            place = self.find(within)
            candidates = place.find_elements(By.XPATH, expression) if place else []
            texts = [(candidate, " ".join(candidate.text.split())) for candidate in candidates if candidate.is_displayed()]
        except StaleElementReferenceException:
            return None
        for candidate, said in texts:
            if said == text:
                return candidate
        return next((candidate for candidate, said in texts if said.startswith(text)), None)

    def wait(self, condition, what, within=WITHIN_S):
        return wait(condition, lambda: "%s; the page says:\n%s" % (what, self.text()), within)

    def wait_text(self, text, css="body"):
        self.wait(lambda: text in self.text(css), "\"%s\" is shown" % text)

    # --- doing something ---

    def press(self, text, within="body", own=True):
        """A button or link by its text, which is English and shown in the browser's language where it is the console's
        own."""
        said = self.tr(text) if own else text

        def pressed():
            node = self.shown(said, within)
            if not node or not node.is_enabled():
                return False
            try:
                self.js("arguments[0].scrollIntoView({block: 'center'})", node)
                node.click()
            except StaleElementReferenceException:
                return False
            return True
        self.wait(pressed, "\"%s\" can be pressed" % said)

    def field(self, label, within="body", own=True):
        """The field of the label that begins with this text."""
        said = self.tr(label) if own else label
        return self.wait(lambda: self.js("""
            for (const label of document.querySelector(arguments[1])?.querySelectorAll("label") ?? [])
              if (label.innerText.trim().startsWith(arguments[0]) && label.control?.checkVisibility()) return label.control;
            """, said, within), "there is a field \"%s\"" % said)

    def fill(self, label, text, within="body", own=True):
        field = self.field(label, within, own)
        if field.tag_name == "select":
            field.find_element(By.XPATH, "./option[@value=%s or normalize-space(.)=%s]" % ((json.dumps(text),) * 2)).click()
            return
        field.clear()
        field.send_keys(text)

    def keys(self, *keys):
        """To whatever has focus."""
        self.driver.switch_to.active_element.send_keys(*keys)

    def type(self, *keys):
        """As from the keyboard itself: nothing is scrolled to or given the focus before. Shift holds for those behind it."""
        typed = ActionChains(self.driver)
        for key in keys:
            typed = typed.key_down(key) if key == Keys.SHIFT else typed.send_keys(key)
        (typed.key_up(Keys.SHIFT) if Keys.SHIFT in keys else typed).perform()

    def escape(self):
        self.keys(Keys.ESCAPE)

    # --- what must not be there ---

    def expect(self, pattern):
        """An error of the console that belongs to what is tested, as a connection that is cut."""
        self.expected.append(re.compile(pattern))

    def complaints(self):
        """Errors and broken rules since the last time, and requests to anybody else."""
        wrong = [entry["message"] for entry in self.driver.get_log("browser") if entry["level"] == "SEVERE"]
        wrong = [message for message in wrong if not any(pattern.search(message) for pattern in self.expected)]
        for entry in self.driver.get_log("performance"):
            message = json.loads(entry["message"])["message"]
            if message["method"] != "Network.requestWillBeSent":
                continue
            url = urllib.parse.urlsplit(message["params"]["request"]["url"])
            if url.scheme not in BROWSERS_OWN and url.netloc not in self.hosts:
                wrong.append("asked elsewhere: " + url.geturl())
        return wrong


class ConsoleTest(unittest.TestCase):
    def controller(self, **options):
        controller = Controller(**options)
        self.addCleanup(shutil.rmtree, controller.state, ignore_errors=True)
        self.addCleanup(controller.end)
        return controller

    def browser(self, language="en", **options):
        browser = Browser(language, **options)
        self.addCleanup(browser.close)
        self.addCleanup(lambda: self.assertEqual(browser.complaints(), []))
        return browser

    def opened(self, page="machine", language="en", **options):
        """A controller, and a browser with that page of it."""
        controller = self.controller(**options)
        browser = self.browser(language)
        browser.open(controller, page)
        return controller, browser
