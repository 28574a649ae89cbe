"""A panel of 1024 x 600 at 200 %, and nothing but a keyboard: what operates is whole, in view, reached, and seen to have the
focus; a shift's small work is done without a pointer."""
import time

import fixture
from alarms import alarm
from fixture import Keys

TABS = {"procedures": ("Sequences", "Queue", "Continue"), "panel": ("Try it",), "alarms": ("History", "Statistics", "Definitions"),
        "config": ("Check", "History")}
MOST_TABS = 150  # more than any page has

# What is said of what can have the focus.
TOOLS = """
const said = (node) => (node.getAttribute("aria-label") ?? node.innerText ?? "").trim().replace(/\\s+/g, " ");
const described = (node) => {
  const path = [];
  for (let at = node; at && at !== document.body; at = at.parentElement)
    path.unshift(at.id ? "#" + at.id : at.localName + ":" + [...at.parentElement.children].indexOf(at));
  return path.join(" ") + " \\"" + said(node).slice(0, 30) + "\\"";
};
const operated = (node) => !node.disabled && !node.closest("[inert]") && node.tabIndex >= 0 &&
  node.checkVisibility({visibilityProperty: true}) &&
  (node.type !== "radio" || node.checked || !document.querySelector(`input[name="${node.name}"]:checked`));
const all = () => [...document.querySelectorAll("a[href], button, input, select, textarea, summary, [tabindex]")].filter(operated);
const stops = () => document.querySelector("#bar .stops").getBoundingClientRect();
const within = (inner, outer) => inner.left >= outer.left - 1 && inner.right <= outer.right + 1 &&
  inner.top >= outer.top - 1 && inner.bottom <= outer.bottom + 1;
const hit = (node, x, y) => {
  const there = document.elementFromPoint(x, y);
  return there === node || node.contains(there) ? null : there ? described(there) : "nothing";
};
// Why somebody cannot use it where it is now; it may be higher than the page's place, as a list is.
const faults = (node) => {
  const {left, right, top, bottom} = node.getBoundingClientRect();
  const floor = node.closest("#bar .stops") ? innerHeight : stops().top;
  const wrong = [];
  const high = bottom - top > 100;
  const shown = {left, right, top: high ? 0 : top, bottom: high ? 0 : bottom};
  if (!within(shown, {left: 0, right: innerWidth, top: 0, bottom: floor})) wrong.push("cut off by the window");
  const [x, y] = [(left + right) / 2, (Math.max(top, 0) + Math.min(bottom, floor)) / 2];
  for (const point of high ? [[x, y]] : [[x, y], [left + 2, y], [right - 2, y], [x, top + 2], [x, bottom - 2]]) {
    const cover = hit(node, ...point);
    if (cover) wrong.push("covered by " + cover);
  }
  if (node.matches("button, a") && node.scrollWidth > node.clientWidth + 1 && getComputedStyle(node).display !== "inline")
    wrong.push("its text is cut off");
  return wrong;
};
// Why nobody sees that it has the focus.
const unseen = (node) => {
  const {outlineStyle, outlineWidth, outlineOffset, outlineColor} = getComputedStyle(node);
  const width = parseFloat(outlineWidth);
  if (outlineStyle === "none" || width < 2 || /, 0\\)$/.test(outlineColor)) return ["no outline"];
  const box = node.getBoundingClientRect();
  const by = Math.max(0, width + parseFloat(outlineOffset));
  const round = {left: box.left - by, right: box.right + by, top: box.top - by, bottom: box.bottom + by};
  const wrong = [];
  for (let at = node.parentElement; at && at !== document.body; at = at.parentElement) {
    const style = getComputedStyle(at);
    if (style.overflowX === "visible" && style.overflowY === "visible") continue;
    const clip = at.getBoundingClientRect();
    if (!within(round, clip)) wrong.push("its outline is cut off by " + described(at));
  }
  return wrong;
};
"""
FOCUSED = TOOLS + """
const node = document.activeElement;
if (!node || node === document.body) return null;
return {what: described(node), text: said(node), label: node.labels?.[0]?.innerText.trim() ?? "",
        inside: Boolean(node.closest(arguments[0] ?? "body")), wrong: [...faults(node), ...unseen(node)]};
"""
ALL = TOOLS + "return all().map(described)"
STOPS = TOOLS + "return ['stop', 'all-off'].flatMap((id) => faults(document.getElementById(id)).map((why) => id + ': ' + why))"
SIDEWAYS = "return document.documentElement.scrollWidth - document.documentElement.clientWidth"


class KeyboardTest(fixture.ConsoleTest):
    def magnified(self, language="en"):
        browser = self.browser(language)
        browser.resize((512, 300), scale=2)
        browser.expect(fixture.NO_PREVIOUS)
        return browser

    def stops_are_there(self, browser):
        self.assertEqual([], browser.js(STOPS))
        self.assertEqual(0, browser.js(SIDEWAYS), "the page is wider than the window")

    # --- every page ---

    def test_everything_is_whole_and_reached_by_tab_both_ways(self):
        controller = self.controller()
        alarm(controller, reset=False)
        for language in fixture.LANGUAGES:
            browser = self.magnified(language)
            browser.open(controller)
            for page in fixture.PAGES:
                browser.go(page)
                for back in (False, True):
                    with self.subTest(language=language, page=page, back=back):
                        self.walk(browser, back)

    def test_what_is_behind_the_tabs_of_a_page(self):
        controller = self.controller()
        alarm(controller)
        browser = self.magnified()
        browser.open(controller)
        for page, tabs in TABS.items():
            browser.go(page)
            for tab in tabs:
                with self.subTest(page=page, tab=tab):
                    browser.press(tab, "#page .tabs")
                    browser.wait(lambda: browser.find("#page :is(.card, table)"), "%s shows something" % tab)
                    self.walk(browser)

    def walk(self, browser, back=False):
        """Once round, through the end of the page, when all that it asks for has come."""
        shown = [None]

        def same():
            time.sleep(0.3)
            shown.append(browser.js(ALL))
            return shown[-1] == shown[-2]
        browser.wait(same, "the page is whole")
        visited, wrong, last = set(), [], None
        for _ in range(MOST_TABS):
            browser.type(*([Keys.SHIFT] if back else []), Keys.TAB)
            focused = browser.js(FOCUSED)
            if not focused or focused["what"] == last:
                continue  # between the page's end and its beginning; another part of the same field
            last = focused["what"]
            if last in visited:
                break
            visited.add(last)
            wrong += [last + ": " + why for why in focused["wrong"]]
        self.stops_are_there(browser)
        wrong += [what + " is not reached" for what in browser.js(ALL) if what not in visited]
        self.assertFalse(wrong, "\n" + "\n".join(wrong))

    # --- a shift's small work ---

    def to(self, browser, text, within="#page", own=True):
        """By Tab to what is called so; every step is seen."""
        text, passed = browser.tr(text) if own else text, []
        for _ in range(MOST_TABS):
            browser.type(Keys.TAB)
            focused = browser.js(FOCUSED, within)
            if not focused:
                continue
            self.assertEqual([], focused["wrong"], focused["what"])
            if focused["inside"] and (focused["text"] == text or focused["label"].startswith(text)):
                return
            passed.append(focused["what"])
        self.fail("\"%s\" is not reached by Tab: %s" % (text, "\n".join(passed[-30:])))

    def press(self, browser, text, within="#page", key=Keys.ENTER, own=True):
        """What has the focus afterwards is seen, too: who works by the keyboard goes on from there."""
        self.to(browser, text, within, own)
        browser.type(key)
        browser.wait(lambda: browser.js(FOCUSED, within), "something has the focus behind \"%s\"" % text)
        self.stops_are_there(browser)

    def start(self, browser, procedure, ms):
        self.press(browser, procedure, "#page .list", own=False)
        self.to(browser, "ms", own=False)
        browser.type(str(ms))
        self.press(browser, "Start", ".procedures .buttons")

    def test_a_shot_and_a_stop(self):
        controller = self.controller(speed=1)
        browser = self.magnified()
        browser.open(controller)
        self.press(browser, "Procedures", "#pages")
        browser.wait_text(browser.tr("Procedures"), "#page h1")
        self.start(browser, "shot", 300)
        browser.wait_text(browser.tr("Success"), "#page")
        self.start(browser, "delay", 600_000)
        browser.wait_text("delay", "#running")
        run = controller.client.ask("GET", "/runs")["runs"][0]["id"]
        self.to(browser, "ms", own=False)  # from a field
        browser.escape()
        self.assertEqual(controller.ended(run)["outcome"], "stopped")
        browser.type(Keys.SHIFT, Keys.ESCAPE)
        browser.wait_text("Everything was stopped at once", "#notices")
        self.press(browser, "Reset", "#notices")
        browser.wait(lambda: "Everything was stopped" not in browser.text("#notices"), "all-off is reset")

    def test_an_alarm_in_another_language(self):
        controller = self.controller()
        browser = self.magnified()
        browser.open(controller)
        alarm(controller, reset=False)
        browser.wait_text("Alarms: 1", "#bar")
        self.press(browser, "Alarms: 1", "#bar", own=False)
        browser.wait_text("Alarm asked for on the command line", "#page")
        self.press(browser, "Sound for new alarms", key=Keys.SPACE)
        self.press(browser, "Language", "#bar", key=Keys.ARROW_DOWN)
        browser.language = "zh"
        browser.wait_text(browser.tr("Acknowledge"), "#page")
        self.press(browser, browser.tr("Acknowledge %s").replace("%s", "TPHost#1"), own=False)
        browser.wait(lambda: controller.client.ask("GET", "/alarms")["alarms"][0]["acknowledged"], "it is acknowledged")
        self.press(browser, "Reset")
        browser.wait_text(browser.tr("No alarm stands."), "#page")

    def test_a_value_that_is_changed_and_put_back(self):
        controller = self.controller()
        browser = self.magnified()
        browser.open(controller, "config")

        def count():
            return controller.client.ask("GET", "/config")["properties"]["AutoCleanHead/CleanCount"]
        self.press(browser, "AutoCleanHead", own=False)
        self.to(browser, "CleanCount", own=False)
        browser.type("4")
        self.press(browser, "Look at the difference and save")
        self.press(browser, "Save", "dialog")
        browser.wait(lambda: count() == 4, "it is saved")
        self.press(browser, "History")
        self.press(browser, "Put the previous version back")
        self.press(browser, "Put back", "dialog")
        browser.wait(lambda: count() == 3, "it is put back")
