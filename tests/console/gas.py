"""A gas calibrated by its page: what is measured, what is said of it, what it replaces."""
import fixture


class GasTest(fixture.ConsoleTest):
    def test_a_calibration_from_its_start_to_the_old_curve(self):
        controller, page = self.opened("gas", speed=20)
        page.expect(fixture.NO_PREVIOUS)
        page.fill("Nozzle of the rack", "S 1.5")
        page.press("Start calibration")
        page.wait_text("choose at least one gas")
        page.find("input[value=O2]").send_keys(fixture.Keys.SPACE)
        page.press("Start calibration")
        page.wait_text("Oxygen: in order", "#page")
        table, = controller.client.ask("GET", "/gas/tables")["tables"]
        self.assertEqual([table["gas"], table["nozzle"], table["size"]], ["O2", "S", 1.5])

        # The calculator is right at a point of the table, between two, and outside.
        points = table["points"]
        for pressure, volt in ((points[3]["bar"], points[3]["volt"]),
                               ((points[6]["bar"] + points[7]["bar"]) / 2, (points[6]["volt"] + points[7]["volt"]) / 2)):
            page.fill("Pressure", repr(pressure))
            self.assertAlmostEqual(float(page.field("Voltage").get_property("value")), volt, 3)
        page.fill("Pressure", "99")
        self.assertEqual(page.field("Voltage").get_property("value"), "")

        def in_use():
            return next(branch for branch in controller.client.ask("GET", "/gas")["branches"] if branch["gas"] == "O2")["table"]
        self.assertTrue(in_use()["points"])
        page.press("Put the old curves back")
        page.press("Put back", "dialog")
        page.wait_text("The old curves are in use again", "#told")
        self.assertFalse(in_use()["points"])
        page.press("Use")
        page.wait(lambda: in_use()["points"], "the stored table is in use")
