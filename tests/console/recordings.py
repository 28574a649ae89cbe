"""Recordings by their page: made, laid over each other by an event to the millisecond, taken away, deleted."""
import re
import urllib.request

import fixture


class RecordingsTest(fixture.ConsoleTest):
    def test_two_recordings_begin_where_the_laser_comes(self):
        controller, page = self.opened("recordings")
        names = ("first", "second")
        for name, ms in zip(names, (200, 400)):
            page.fill("Name", name)
            page.fill("At most", "500")
            page.press("Start recording")
            page.wait_text("is being recorded")
            controller.ended(controller.start_run("shot", ms=ms))
            page.press("End recording")
            page.wait_text("%s is recorded" % name, "#told")

        def rises(name):
            at, span = 0, 1 << 40
            for _ in range(2):  # the whole, then every ms round where it came
                laser, = controller.client.ask("GET", "/recordings/%s?signals=laser&points=20000&fromMs=%d&toMs=%d" % (
                    name, at, at + span))["signals"]
                first = next(ms for ms, high in zip(laser["ms"], laser["high"]) if high)
                at, span = max(0, first - 100), 200
            return first
        page.press("first")
        page.wait_text("run 1, shot", ".shown")
        page.fill("Lay another one over it", "second")
        page.fill("Both begin where this signal first rises", "laser")
        page.wait_text("The second one is moved by", ".shown")
        moved = float(re.search(r"moved by (-?[\d.]+) s", page.text(".shown"))[1])
        self.assertAlmostEqual(moved, (rises("first") - rises("second")) / 1000, 3)

        page.press("+", ".shown")
        zoom = page.js("return JSON.parse(sessionStorage.getItem('kept.recordings')).zoom")
        page.driver.refresh()
        page.wait_text("The second one is moved by", ".shown")
        self.assertEqual(page.js("return JSON.parse(sessionStorage.getItem('kept.recordings')).zoom"), zoom)

        file = urllib.request.urlopen(page.find("a[download='first.csv']").get_property("href")).read()
        self.assertEqual(file, (controller.state / "recordings" / "first.csv").read_bytes())
        page.find("[aria-label='Delete first']").send_keys(fixture.Keys.ENTER)
        page.press("Delete", "dialog")
        page.wait_text("first is deleted", "#told")
        self.assertEqual([file["name"] for file in controller.client.ask("GET", "/recordings")["recordings"]], ["second"])
