"""Who may command, who does, and what becomes of a page whose controller is gone for a while."""
import fixture

# Answers that are no fault of the page's: of a controller that is gone, and of one that knows the page no longer.
CUT = r"net::ERR_|/api/v1/(lease|session|events).* status of (401|403|409)"


class ConnectionTest(fixture.ConsoleTest):
    def test_two_browsers_and_one_control(self):
        controller = self.controller()
        first, second = self.browser("en"), self.browser("zh")
        first.open(controller)
        second.open(controller)
        first.press("Nobody has control", "#bar")
        first.wait_text("You have control", "#control")
        holder = controller.client.ask("GET", "/lease")["holder"]
        second.wait_text(second.tr("%s has control").replace("%s", holder), "#control")

        second.find("#control").click()
        second.wait_text(second.tr("Take over control?"), "dialog")
        second.press("Cancel", "dialog")
        self.assertEqual(controller.client.ask("GET", "/lease")["holder"], holder)
        second.find("#control").click()
        second.press("Take over", "dialog")
        second.wait_text(second.tr("You have control"), "#control")
        first.expect(CUT)  # its sign of life for a lease that is no longer its own
        first.wait(lambda: "has control" in first.text("#control") and "You" not in first.text("#control"),
                   "the first one sees who has control")

        second.press("You have control", "#bar")
        second.press("Give back", "dialog")
        first.wait_text("Nobody has control", "#control")

    def test_who_has_no_link_looks_and_stops_and_is_told(self):
        controller = self.controller()
        for language in fixture.LANGUAGES:
            with self.subTest(language=language):
                browser = self.browser(language)
                browser.open(controller, role=None)
                browser.wait_text(browser.tr("You can look, stop and switch all off"), "#notices")
                run = controller.start_run()
                browser.wait_text("delay", "#running")
                browser.escape()
                self.assertEqual(controller.ended(run)["outcome"], "stopped")
                browser.expect(r"/api/v1/lease .* status of 401")
                browser.find("#control").click()
                browser.wait(lambda: browser.find("dialog .problem .remedy"), "it is refused with what to do")
                browser.press("Close", "dialog")

    def test_a_link_is_good_once(self):
        controller = self.controller()
        link = controller.link()
        first, second = self.browser(), self.browser()
        for browser in (first, second):
            browser.hosts.add(link.split("/")[2])
            browser.driver.get(link)
        first.wait(lambda: "Standby" in first.text("#state"), "the first one is in")
        self.assertFalse(first.find("#notice-viewer"))
        second.expect(r"/api/v1/session .* status of 4")
        second.wait(lambda: second.find("#notice-refused .problem"), "the second one is told why it is not")
        self.assertNotIn("code=", second.js("return location.href"))

    def test_a_controller_that_comes_back(self):
        for language in fixture.LANGUAGES:
            with self.subTest(language=language):
                controller, browser = self.opened("machine", language)
                browser.js("window.sameDocument = true")
                controller.start_run()
                browser.wait_text("delay", "#running")
                browser.expect(CUT)
                controller.end()
                browser.wait_text(browser.tr("No connection to the controller"), "#notice-lost")
                browser.wait(lambda: browser.find("#bar.stale"), "what is shown is marked as old")
                machine = (fixture.SHARE / "machines" / "machine.xml").read_text(encoding="utf-8")
                (controller.state / "machine.xml").write_text(machine.replace('"S 2.5"', '"S 3.5"'), encoding="utf-8")
                controller.start()  # another one, which knows neither the run nor the session, of another machine
                browser.wait(lambda: not browser.find("#notice-lost"), "the connection is back")
                browser.wait_text(browser.tr("Nothing runs"), "#running")
                browser.wait(lambda: not browser.find("#bar.stale"), "what is shown is new")
                browser.wait_text("S 3.5", ".places")
                browser.wait_text(browser.tr("You can look, stop and switch all off"), "#notices")
                browser.driver.get(controller.link())  # pasted into the same tab
                browser.wait(lambda: not browser.find("#notice-viewer"), "the new link lets it in")
                run = controller.start_run()
                browser.wait_text("delay", "#running")
                browser.press("Stop", "#bar")
                self.assertEqual(controller.ended(run)["outcome"], "stopped")
                self.assertTrue(browser.js("return window.sameDocument"), "without a reload")

    def test_a_controller_that_comes_back_as_another_version(self):
        for language in fixture.LANGUAGES:
            with self.subTest(language=language):
                controller, browser = self.opened(language=language)
                browser.expect(CUT)
                for is_another in (False, True):
                    controller.end()
                    browser.wait(lambda: browser.find("#notice-lost"), "the connection is lost")
                    if is_another:
                        controller.data = fixture.shutil.copytree(fixture.SHARE, controller.state / "newer")
                        with open(controller.data / "console" / "pages" / "log.css", "a", encoding="utf-8") as file:
                            file.write("p {}\n")
                    controller.start()
                    browser.wait(lambda: browser.find("#notice-viewer"), "the connection is back")
                    self.assertFalse(not is_another and browser.find("#notice-old"))
                browser.wait_text(browser.tr("This page is of another version than the controller"), "#notice-old")
                browser.press("Load anew", "#notice-old")
                browser.wait(lambda: browser.find("#notice-viewer") and not browser.find("#notice-old"), "it is the new one")
