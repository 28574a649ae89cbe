"""Lamps of the panel: lit, and blinking where the panel's own blink."""
import fixture
from held_keys import Hand

KEY = "CK_RETURN0"
SIGNS = "return document.querySelector('[data-key=%s] small').innerText" % KEY
LIT = "return document.querySelector('[data-key=%s]').classList.contains('lit')" % KEY
SLOW_MM_S, FAR_MM = 10, 100  # the way back lasts for longer than the test looks at it


class LampsTest(fixture.ConsoleTest):
    def test_in_the_alt_mode_the_lamp_of_what_goes_on_blinks(self):
        controller = self.controller(speed=1, machine=lambda text: text.replace(
            'MaxSpeed="1600"', 'MaxSpeed="%d"' % SLOW_MM_S))
        page = self.browser("zh")
        controller.client.take_control()
        controller.client.ask("POST", "/panel/form", {"form": "Work"})
        controller.client.give_back()
        controller.ended(controller.start_run("move-xy", x=FAR_MM, y=0))
        page.expect("panel/(press|heartbeat) .* status of 409")  # a busy machine's press that came too late
        page.open(controller, "panel")
        page.wait_text(page.tr("STOP ALL"), "[data-key=CK_EGYSTOP]")  # not by the name of what is at the machine
        hand = Hand(page, KEY)

        def returns():
            self.assertTrue(hand.press_until(hand.press, lambda: page.js(LIT)), page.text(".told-key"))
            hand.lift()
            return controller.client.ask("GET", "/status")["state"]
        self.assertEqual(returns(), "return-to-origin")
        self.assertNotIn(page.tr("blinks"), page.js(SIGNS))
        page.press("Stop", "#bar")
        page.wait(lambda: not page.js(LIT), "the lamp is dark")

        page.press("Alt mode")
        page.wait(lambda: controller.client.ask("GET", "/panel")["alt"], "the alt mode is on")
        self.assertEqual(returns(), "return-to-origin")
        page.wait(lambda: page.tr("blinks") in page.js(SIGNS), "it says that it blinks")
        for lit in (False, True):
            page.wait(lambda: page.js(LIT) == lit, "it is lit and dark")
        page.press("Stop", "#bar")
        page.wait(lambda: page.tr("blinks") not in page.js(SIGNS), "it says so no longer")
        page.press("Alt mode")
        page.wait(lambda: not controller.client.ask("GET", "/panel")["alt"], "the alt mode is off")
