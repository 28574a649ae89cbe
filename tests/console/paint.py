"""How soon somebody sees something."""
import statistics

import fixture

WITHIN_MS = 3 * 1000  # three times what is promised
LOADS = 20


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
