"""How soon somebody sees something, and how much is sent for it."""
import statistics
import urllib.request

import fixture

WITHIN_MS = 3 * 1000  # three times what is promised
LOADS = 20
OURS_BYTES = 250_000  # of scripts, styles and markup, without the library that plots


class PaintTest(fixture.ConsoleTest):
    def test_first_contentful_paint(self):
        controller, browser = self.opened()
        for last in (False, True):  # a second time, where the machine was busy with something else
            times = []
            for _ in range(LOADS):
                browser.driver.get("about:blank")
                browser.driver.get(controller.url + "/")
                times.append(browser.wait(lambda: browser.js(
                    "return performance.getEntriesByName('first-contentful-paint')[0]?.startTime"), "something is painted"))
            median = statistics.median(times)
            print("first contentful paint: median of %d loads %.0f ms, worst %.0f ms" % (LOADS, median, max(times)))
            if median <= WITHIN_MS or last:
                break
        self.assertLessEqual(median, WITHIN_MS)

    def test_what_is_sent_of_ours(self):
        controller, ours = self.controller(), fixture.SHARE / "console"
        sent = {}
        for file in filter(fixture.pathlib.Path.is_file, ours.rglob("*")):
            name = file.relative_to(ours).as_posix()
            with urllib.request.urlopen(controller.url + "/console/" + name) as answer:
                sent[name] = len(answer.read())
        print("%d bytes in %d files" % (sum(sent.values()), len(sent)))
        self.assertIn("pages/machine/bed.js", sent)
        self.assertLessEqual(sum(sent.values()), OURS_BYTES, sorted(sent.items(), key=lambda one: -one[1]))
