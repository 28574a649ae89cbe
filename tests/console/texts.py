"""Texts of files, devices and people are only text, and the page changes its language where it stands."""
import fixture

HOSTILE = "<x-bad onclick=alert(1)>&quot;</x-bad><img src=nowhere onerror=alert(1)>"
IN_XML = HOSTILE.replace("&", "&amp;").replace("<", "&lt;").replace(">", "&gt;").replace('"', "&quot;")


def with_hostile_names(text):
    for name in ("Pallet docked", "Nozzle cover", "H-N2", "Extension I/O"):
        assert name in text
        text = text.replace('Name="%s"' % name, 'Name="%s"' % (name + IN_XML))
    return text


class TextsTest(fixture.ConsoleTest):
    def test_hostile_texts_are_only_text(self):
        controller = self.controller(machine=with_hostile_names)
        client = controller.client
        client.take_control()
        client.ask("PUT", "/sequences/one", {"name": HOSTILE, "commands": [{"command": "delay", "ms": 1}]})
        client.ask("POST", "/alarms/suppress", {"identifier": "TPHost#1", "minutes": 60, "reason": HOSTILE})
        client.ask("POST", "/runs", {"calls": [{"command": "delay", "ms": 600_000}], "name": HOSTILE,
                                     "detach": True})
        browser = self.browser()
        browser.expect(fixture.NO_PREVIOUS)
        browser.open(controller)
        browser.wait_text(HOSTILE, "#running")
        for page in fixture.PAGES:
            with self.subTest(page=page):
                browser.go(page)
                self.assertFalse(browser.find("x-bad, img[src=nowhere], [onclick], [onerror]"))

    def test_the_language_changes_without_a_reload(self):
        controller, browser = self.opened("procedures")
        browser.js("window.sameDocument = true")
        for language in ("zh", "en"):
            browser.find("#language option[value=%s]" % language).click()
            browser.language = language
            browser.wait_text(browser.tr("Procedures"), "#page h1")
            browser.wait_text(browser.tr("Stop"), "#stop")
            self.assertEqual(browser.js("return document.documentElement.lang"), {"en": "en", "zh": "zh-Hans"}[language])
            self.assertIn(browser.tr("Standby"), browser.text("#state"))
        self.assertTrue(browser.js("return window.sameDocument"))
        browser.find("#language option[value=zh]").click()
        browser.language = "zh"
        browser.wait_text(browser.tr("Procedures"), "#page h1")
        browser.driver.refresh()
        browser.wait_text(browser.tr("Stop"), "#stop")

    def test_the_log_is_in_the_controllers_language_and_its_kinds_in_the_pages(self):
        _, browser = self.opened("log", "zh")
        lines = browser.wait(lambda: "POST /api/v1/session by" in (text := browser.text(".lines")) and text, "they come")
        self.assertIn("信息", lines)
        self.assertNotIn("info", lines)
