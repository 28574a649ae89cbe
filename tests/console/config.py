"""The machine file by its page: nothing typed is lost, and nobody else's change is written over."""
import fixture

COUNT = "AutoCleanHead/CleanCount"
SPEED = "AutoCleanHead/CleanSpeed"


class ConfigTest(fixture.ConsoleTest):
    def setUp(self):
        self.controller_, self.page = self.opened("config/" + COUNT)

    def value(self, path):
        return self.controller_.client.ask("GET", "/config?section=AutoCleanHead")["properties"][path]

    def type(self, path, text):
        field = self.page.find('input[name="%s"]' % path)
        field.clear()
        field.send_keys(text)

    def save(self):
        self.page.press("Look at the difference and save")
        self.page.wait_text("Save these changes?", "dialog")
        self.page.press("Save", "dialog")

    def test_a_conflict_is_told_and_what_was_typed_is_saved_after_it(self):
        self.type(COUNT, "7")
        self.type(SPEED, "151")
        self.page.driver.refresh()
        self.page.wait_text("Not saved: 2")
        self.controller_.client.ask("PUT", "/config/AutoCleanHead/CleanCurveWidth", {"value": 13, "version": "*"})
        self.page.expect("status of 412")
        self.save()
        self.page.wait_text("Somebody else has changed the machine file", "dialog")
        self.assertEqual(self.value(COUNT), 3)
        self.page.press("Close", "dialog")
        self.save()
        self.page.wait_text("Saved: 2", "#told")
        self.assertEqual([self.value(COUNT), self.value(SPEED), self.value("AutoCleanHead/CleanCurveWidth")], [7, 151, 13])

    def test_what_is_refused_stays_typed_and_the_rest_is_saved(self):
        self.type(COUNT, "5000")
        self.type(SPEED, "151")
        self.page.expect("status of 400")
        self.save()
        self.page.press("Leave it unsaved", "dialog")
        self.page.wait_text("Not saved: 1")
        self.assertEqual([self.value(COUNT), self.value(SPEED)], [3, 151])
        self.page.press("History")
        self.page.press("Put the previous version back")
        self.page.press("Put back", "dialog")
        self.page.wait_text("The previous version is in force again", "#told")
        self.assertEqual(self.value(SPEED), 150)

    def test_nothing_is_saved_while_something_runs(self):
        self.type(COUNT, "7")
        run = self.controller_.start_run()
        self.page.wait_text("delay is running")
        self.page.expect("status of 409")
        self.save()
        self.page.wait_text("the procedure delay is running", "dialog")
        self.page.escape()
        self.controller_.ended(run)
        self.assertEqual(self.value(COUNT), 3)
