"""Stop gets through from wherever somebody is, and who gets no answer is told so at once."""
import time

import fixture
from fixture import Keys

kLate = 3 * 0.5  # s; the page says after 0.5 s that there is no answer

# A stream of events that opens and then says nothing, for good.
SILENT_STREAM = """
const ask = window.fetch;
window.fetch = (url, options) =>
  String(url).includes("/events") ? Promise.resolve(new Response(new ReadableStream())) : ask(url, options);
"""


class StopTest(fixture.ConsoleTest):
    def stopped(self, controller, run):
        ended = controller.ended(run)
        self.assertEqual(ended["outcome"], "stopped")

    def test_escape_from_everywhere_in_both_languages(self):
        controller = self.controller()
        for language in fixture.LANGUAGES:
            with self.subTest(language=language):
                browser = self.browser(language)
                browser.open(controller)
                run = controller.start_run()
                browser.find("body").send_keys(Keys.ESCAPE)
                self.stopped(controller, run)
                browser.wait_text(browser.tr("Stop was sent"), "#told")

                run = controller.start_run()
                browser.find("#language").send_keys(Keys.ESCAPE)
                self.stopped(controller, run)

                run = controller.start_run()
                browser.js("const field = document.createElement('input'); document.querySelector('#page').append(field);"
                           "field.focus()")
                browser.keys("1.5")
                browser.escape()
                self.stopped(controller, run)

                run = controller.start_run()
                controller.client.take_control()
                browser.wait_text(browser.tr("%s has control").replace("%s", "").strip(), "#control")
                browser.find("#control").click()
                browser.wait(lambda: browser.find("dialog[open]"), "the dialog is open")
                browser.escape()
                self.stopped(controller, run)
                self.assertTrue(browser.find("dialog[open]"), "the question is not answered by Stop")
                browser.press("Cancel", "dialog")
                controller.client.give_back()

    def test_escape_that_closes_an_open_list(self):
        """The browser takes the press for its list, and tells the page of its repeats and its end alone."""
        controller, browser = self.opened()
        place = browser.js("const {x, y} = arguments[0].getBoundingClientRect(); return {x: x + 20, y: y + 20}",
                           browser.find("#language"))

        codes = {"Escape": 27, "Shift": 16}

        def key(name, kind, modifiers):
            browser.driver.execute_cdp_cmd("Input.dispatchKeyEvent", {
                "type": kind.rstrip("+"), "autoRepeat": kind.endswith("+"), "key": name,
                "code": name + "Left" * (name == "Shift"), "windowsVirtualKeyCode": codes[name], "modifiers": modifiers})
        down, again, up = (("Escape", kind, 0) for kind in ("rawKeyDown", "rawKeyDown+", "keyUp"))
        shift, shift_up = ("Shift", "rawKeyDown", 8), ("Shift", "keyUp", 0)
        with_shift, up_with_shift = ("Escape", "rawKeyDown", 8), ("Escape", "keyUp", 8)
        for all_off, keys in ((False, (down, up)), (False, (down, again, again, up)),
                              (True, (shift, with_shift, up_with_shift, shift_up)),
                              (True, (shift, with_shift, shift_up, up)),
                              (False, (shift, shift_up, None, None, None, None, down, up))):
            if controller.client.ask("GET", "/status")["allOff"]:
                controller.client.take_control()
                controller.client.ask("POST", "/reset", {})
            run = controller.start_run()
            for kind in ("mousePressed", "mouseReleased"):
                browser.driver.execute_cdp_cmd("Input.dispatchMouseEvent", {
                    "type": kind, "button": "left", "clickCount": 1, **place})
            for event in keys:
                time.sleep(0.5)  # the list opens and closes in a process of the browser's own
                if event:
                    key(*event)
            self.stopped(controller, run)
            self.assertEqual(controller.client.ask("GET", "/status")["allOff"], all_off, keys)

    def test_all_off_by_the_keyboard_until_it_is_reset(self):
        controller, browser = self.opened()
        run = controller.start_run()
        browser.keys(Keys.SHIFT, Keys.ESCAPE)
        self.assertNotEqual(controller.ended(run)["outcome"], "success")
        browser.wait_text("Everything was stopped at once", "#notices")
        browser.press("Reset", "#notices")
        browser.wait(lambda: "Everything was stopped" not in browser.text("#notices"), "all-off is reset")

    def test_stop_without_events(self):
        controller = self.controller()
        browser = self.browser(script=SILENT_STREAM)
        browser.open(controller)
        run = controller.start_run()
        browser.press("Stop", "#bar")
        self.stopped(controller, run)
        browser.wait_text("Stop was sent", "#told")

    def test_stop_from_the_last_of_many_tabs(self):
        """A browser opens six connections to one controller, and each page listens on one of them."""
        controller, browser = self.opened()
        for _ in range(7):
            browser.driver.switch_to.new_window("tab")
            browser.driver.get(controller.url + "/")
            browser.wait(lambda: browser.text("#state") not in ("", "-"), "the state is shown")
        run = controller.start_run()
        browser.escape()
        self.stopped(controller, run)

    def test_stop_from_each_of_eight_visible_windows(self):
        controller, browser = self.opened()
        for _ in range(7):
            browser.driver.switch_to.new_window("window")
            browser.driver.get(controller.url + "/")
            browser.wait(lambda: browser.text("#state") not in ("", "-"), "the state is shown")
        for window in browser.driver.window_handles:  # by its own bar, without coming to the front
            browser.driver.switch_to.window(window)
            self.assertFalse(browser.js("return document.hidden"))
            run = controller.start_run()
            browser.js("document.querySelector('#stop').click()")
            self.stopped(controller, run)
            browser.wait_text("Nothing runs", "#running")
            browser.wait(lambda: not browser.find("#bar.stale"), "what is shown is new")
        listening = [browser.js("return import('/console/wire.js').then(({wire}) => wire.listens)")
                     for window in browser.driver.window_handles if not browser.driver.switch_to.window(window)]
        self.assertEqual(listening.count(True), 3)

    def test_no_answer_is_said_large(self):
        for language in fixture.LANGUAGES:
            with self.subTest(language=language):
                controller, browser = self.opened(language=language)
                run = controller.start_run()
                controller.suspend()
                browser.escape()
                browser.wait(lambda: browser.find("#notice-unanswered"), "no answer is said", kLate)
                self.assertIn(browser.tr("Use the emergency stop at the machine."), browser.text("#notice-unanswered"))
                size = browser.js("return parseFloat(getComputedStyle(document.querySelector('#notice-unanswered')).fontSize)")
                self.assertGreaterEqual(size, 30)
                controller.resume()
                self.stopped(controller, run)
                browser.wait(lambda: not browser.find("#notice-unanswered"), "the answer is there")
