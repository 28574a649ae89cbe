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

    def test_the_live_plots_tell_the_newest_values(self):
        controller, page = self.opened("recordings")
        page.press("Start recording")
        page.wait_text("is being recorded")
        controller.ended(controller.start_run("safe-move", x=100, y=50))
        page.wait_text("X 100.00", ".legend")

    def test_runs_that_follow_closely_are_told_apart(self):
        controller, page = self.controller(speed=20), self.browser("zh")
        client = controller.client
        client.take_control()
        for name in ("one", "two"):
            client.ask("POST", "/recordings", {"name": name, "signals": ["position", "state"], "limitMs": 600_000})
            for procedure, params in (("move-xy", {"x": 1500, "y": 700}), ("delay", {"ms": 1000}), ("move-xy", {"x": 0, "y": 0})):
                controller.ended(client.ask("POST", "/runs", {"procedure": procedure, "params": params})["id"])
            client.ask("DELETE", "/recordings/%s/running" % name)
        client.give_back()
        page.open(controller, "recordings")
        for name, runs in (("one", (1, 2, 3)), ("two", (4, 5, 6))):
            page.press(name, "#page table", own=False)
            page.wait(lambda: page.text(".shown h2") == name and "move-xy" in page.text(".shown"), "its runs are named")
            self.assertEqual([int(run) for run in re.findall(r"运行 (\d+)", page.text(".shown"))], list(runs))
        self.assertNotIn("Focus", page.text(".shown"))

    def test_what_is_being_recorded_goes_on_over_another_page(self):
        controller, page = self.opened("recordings")
        controller.start_run("delay", ms=600_000)
        page.fill("Name", "long")
        page.press("Start recording")
        page.js("""
            window.Dygraph = new Proxy(Dygraph, {construct: (Made, options) => (window.made = new Made(...options))});""")

        def begins():
            return page.wait(lambda: page.js("return window.made?.numRows() > 5 && window.made.getValue(0, 0)"), "it is drawn")
        page.go("machine")
        page.go("recordings")
        first = begins()
        page.go("machine")
        page.js("window.made = null")
        page.go("recordings")
        self.assertEqual(begins(), first)
