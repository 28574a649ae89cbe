"""A first day: somebody who has been given a link and knows nothing else works by what the page says, in both languages."""
import fixture


class DayTest(fixture.ConsoleTest):
    def in_both_languages(self, work, speed=2):
        for language in fixture.LANGUAGES:
            with self.subTest(language=language):
                self.controller_, self.page = self.opened(language=language, speed=speed)
                self.page.expect(fixture.NO_PREVIOUS)
                work()

    def test_a_shot_and_a_nozzle_change_that_is_stopped(self):
        self.in_both_languages(self.shots, speed=1)

    def test_two_recordings_that_are_compared(self):
        self.in_both_languages(self.recordings)

    def test_a_calibration_and_a_configuration_that_is_put_back(self):
        self.in_both_languages(lambda: (self.calibration(), self.configuration()))

    def runs(self):
        return self.controller_.client.ask("GET", "/runs")["runs"]

    def menu(self, title):
        self.page.press(title, "#pages")
        self.page.wait_text(self.page.tr(title), "#page h1")

    def start(self, procedure, **fields):
        """Starts a procedure by its form, and answers the run."""
        before = len(self.runs())
        self.menu("Procedures")
        self.page.press("Start", "#page .tabs")
        self.page.press(procedure, "#page table", own=False)
        for name, value in fields.items():
            self.page.fill(name, value, own=False)
        self.page.press("Start", ".procedures .buttons")
        return fixture.wait(lambda: len(runs := self.runs()) > before and runs[0]["id"], "a run has started")

    def shots(self):
        run = self.start("shot", ms="300")
        self.assertEqual(self.controller_.ended(run)["outcome"], "success")
        self.page.wait_text(self.page.tr("Success"), "#page")
        run = self.start("change-nozzle", **{"from": "1", "to": "2"})
        self.menu("Machine")
        self.page.wait_text("change-nozzle", "#running")
        self.page.press("Stop", "#bar")
        self.assertEqual(self.controller_.ended(run)["outcome"], "stopped")
        self.menu("Runs")
        self.page.wait_text(self.page.tr("Stopped"), "#page")

    def recordings(self):
        for number, name in enumerate(("one", "two"), 1):
            self.menu("Recordings")
            self.page.fill("Name", name)
            self.page.fill("At most", "500")
            self.page.press("Start recording")
            self.page.wait_text(self.page.tr("%s is being recorded").replace("%s", name))
            run = self.start("safe-move", x=str(200 * number), y="100")
            self.assertEqual(self.controller_.ended(run)["outcome"], "success")
            self.menu("Recordings")
            self.page.press("End recording")
        self.page.press("one", "#page table", own=False)
        self.page.fill("Lay another one over it", "two")
        self.page.wait(lambda: self.page.js("return document.querySelectorAll('.shown .legend .entry').length >= 4"),
                       "both recordings are drawn")

    def calibration(self):
        self.menu("Gas")
        self.page.press(self.gas(), "#page fieldset", own=False)
        self.page.fill("Nozzle type", "S")
        self.page.fill("Nozzle diameter", "1.5")
        self.page.press("Start calibration")
        run = fixture.wait(lambda: (runs := self.runs()) and runs[0]["id"], "it has started")
        self.assertEqual(self.controller_.ended(run)["outcome"], "success")
        self.page.wait_text(self.page.tr("Verdict"), "#page")
        self.page.wait_text("S 1.5", "#page table")

    def gas(self):
        """What the page calls the first gas."""
        return self.page.wait(lambda: self.page.js("""
            return document.querySelector("#page fieldset label")?.innerText.trim().split("\\n")[0]"""), "there are gases")

    def configuration(self):
        self.menu("Configuration")
        self.page.press("AutoCleanHead", "#page", own=False)
        self.page.fill("CleanCount", "4", own=False)
        self.page.press("Look at the difference and save")
        self.page.press("Save", "dialog")
        self.page.wait_text(self.page.tr("Saved: %d").replace("%d", "1"), "#told")
        self.assertEqual(self.count(), 4)
        self.page.press("History", "#page .tabs")
        self.page.press("Put the previous version back")
        self.page.press("Put back", "dialog")
        self.page.wait_text(self.page.tr("The previous version is in force again"), "#told")
        self.assertEqual(self.count(), 3)

    def count(self):
        return self.controller_.client.ask("GET", "/config")["properties"]["AutoCleanHead/CleanCount"]
