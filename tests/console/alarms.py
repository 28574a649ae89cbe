"""What is heard of a new alarm, seen of it in a recording, and done with one that stands."""
import time

import fixture

# What sounds: the tones that were started, and how their context is.
NOTE = """
window.tones = 0;
window.contexts = [];
window.AudioContext = class extends AudioContext {
  constructor() {
    super();
    window.contexts.push(this);
  }
};
const start = OscillatorNode.prototype.start;
OscillatorNode.prototype.start = function (...when) {
  ++window.tones;
  return start.apply(this, when);
};
"""
# What is written into plots.
WORDS = """
window.words = [];
const fill = CanvasRenderingContext2D.prototype.fillText;
CanvasRenderingContext2D.prototype.fillText = function (text, ...place) {
  window.words.push(text);
  return fill.call(this, text, ...place);
};
"""
TONES = 3  # of an alarm that ends what runs
TOGETHER_S = 1.1  # alarms that come within a second sound once

# How many pixels of the first plot have the colour of alarms.
RED = """
const red = getComputedStyle(document.documentElement).getPropertyValue("--bad").trim();
const [r, g, b] = [1, 3, 5].map((at) => parseInt(red.slice(at, at + 2), 16));
let count = 0;
for (const canvas of document.querySelectorAll(".shown .plot")[0]?.querySelectorAll("canvas") ?? []) {
  const {data} = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height);
  for (let i = 0; i < data.length; i += 4) count += data[i] === r && data[i + 1] === g && data[i + 2] === b && data[i + 3] === 255;
}
return count;
"""


def alarm(controller, reset=True):
    """One comes and ends a run; then it is reset, or stands."""
    client = controller.client
    client.take_control()
    run = client.ask("POST", "/runs", {"procedure": "delay", "params": {"ms": 600_000}, "alarmAt": 1000})["id"]
    outcome = controller.ended(run)["outcome"]
    if reset:
        client.ask("POST", "/reset")
    client.give_back()
    assert outcome == "alarm", outcome


class AlarmsTest(fixture.ConsoleTest):
    def test_sound_of_a_new_one_where_somebody_wants_it(self):
        controller, page = self.controller(), self.browser(script=NOTE)
        page.open(controller, "alarms")

        def tones():
            return page.js("return window.tones")

        def counted(kind):
            return page.js("return document.querySelectorAll(arguments[0]).length", kind)
        alarm(controller)
        page.press("History", "#page .tabs")
        page.wait(lambda: counted("#page tbody tr") == 1, "the alarm has come")
        self.assertEqual(tones(), 0)

        page.find(".sound input").click()
        page.wait(lambda: tones() == 1, "it is heard how it sounds")
        page.wait(lambda: page.js("return window.contexts.map(({state}) => state).join()") == "running", "it sounds")
        for number, where in enumerate(("alarms", "machine"), 1):
            page.go(where)
            time.sleep(TOGETHER_S)
            alarm(controller)
            page.wait(lambda: tones() == 1 + number * TONES, lambda: "the alarm is heard: %d" % tones())
        page.driver.refresh()
        page.wait(lambda: page.js("return window.tones") == 0, "the page is new")
        page.go("alarms")
        self.assertTrue(page.find(".sound input").is_selected())

    def test_what_stands_is_acknowledged_with_a_name_and_reset_where_it_is_read(self):
        controller, page = self.opened("alarms")
        page.wait_text("No alarm stands.", "#page")
        alarm(controller, reset=False)
        page.fill("Your name", "Li")
        page.press("Acknowledge", "#page")
        page.wait_text("Seen by Li (console 1)", "#page")
        page.press("Reset", "#page")
        page.wait_text("No alarm stands.", "#page")
        self.assertEqual(controller.client.ask("GET", "/alarms")["alarms"], [])

    def test_one_is_seen_in_a_recording_where_it_came(self):
        controller, page = self.controller(speed=5), self.browser(script=WORDS)
        controller.client.ask("POST", "/recordings", {"name": "alarmed", "signals": ["position", "state"], "limitMs": 600_000})
        alarm(controller)
        controller.ended(controller.start_run("safe-move", x=100, y=100))
        controller.client.ask("DELETE", "/recordings/alarmed/running")
        page.open(controller, "recordings")
        page.press("alarmed", "#page table", own=False)
        page.wait_text("⚠ Alarm asked for on the command line", ".shown")
        page.wait_text("run 2, safe-move", ".shown")
        page.wait(lambda: page.js(RED) > 100, "its line is drawn")
        page.js("window.words = []")
        page.go("runs/1")
        page.wait(lambda: "1 Delay" in page.js("return window.words"), "the report's plots name the steps")
        self.assertFalse([word for word in page.js("return window.words") if "undefined" in word])
