"""Each page opens and does its job once, in both languages, by what it says; nothing else is asked or refused."""
import fixture


class PagesTest(fixture.ConsoleTest):
    def test_every_page_in_both_languages(self):
        controller = self.controller()
        for language in fixture.LANGUAGES:
            browser = self.browser(language)
            browser.expect(fixture.NO_PREVIOUS)
            browser.open(controller)
            for page in fixture.PAGES:
                with self.subTest(language=language, page=page):
                    browser.go(page)
                    self.assertEqual(browser.text("#page h1"), browser.text("#pages a[aria-current]"))
                    browser.wait(lambda: not browser.js("return document.querySelector('#page .problem')"), "no problem")
                    self.assertEqual(browser.complaints(), [])
