"""Registers of a device, watched by the page while the controller runs in real time."""
import json
import subprocess

import fixture

REGISTER = 40


class LinksTest(fixture.ConsoleTest):
    def device(self):
        """A loading PLC made of software; its TCP port."""
        plc = subprocess.Popen([fixture.PROGRAM, "simulate", "plc", "--tcp", "0", "--json", "--lang", "en"],
                               stdout=subprocess.PIPE, text=True)
        self.addCleanup(plc.stdout.close)
        self.addCleanup(plc.wait)
        self.addCleanup(plc.terminate)
        return int(json.loads(plc.stdout.readline())["result"]["link"].rsplit(":", 1)[1])

    @staticmethod
    def write(port, value):
        subprocess.run([fixture.PROGRAM, "modbus", "write", "--tcp", "127.0.0.1:%d" % port, "--addr", str(REGISTER),
                        "--values", str(value)], check=True, capture_output=True)

    def test_registers_are_watched_at_a_chosen_rate_while_the_page_is_open(self):
        port = self.device()

        def machine(text):
            for old, new in (("<UseTcp>False", "<UseTcp>True"), ("<TcpPort>502", "<TcpPort>%d" % port),
                             ("<IsModbusTcp>False", "<IsModbusTcp>True")):
                self.assertIn(old, text)
                text = text.replace(old, new)
            return text
        controller, page = self.opened("links", machine=machine, speed=None)
        page.wait_text("0..3050 mm", "#page")  # of what the machine is made of
        page.fill("First", str(REGISTER), ".registers")
        page.fill("Every", "100", ".registers")
        page.press("Watch", ".registers")
        for value in (4660, 65535):
            self.write(port, value)
            page.wait_text("%d\t%04X" % (value, value), ".registers table")
        row = page.js("return document.querySelector('.registers tbody tr').innerText").split()
        self.assertEqual(row[:3] + row[4:5], [str(REGISTER), "65535", "FFFF", "65535"])

        def watched():
            return controller.client.ask("GET", "/links/modbus-store/watch")["watched"]
        self.assertEqual(watched()["everyMs"], 100)
        self.assertEqual(watched()["failures"], 0)
        page.go("log")
        fixture.wait(lambda: not watched(), "nothing is watched when the page is left")
