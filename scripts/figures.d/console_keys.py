"""How soon a key that somebody holds in the console is up at the controller, by the ways in which a hold ends. A time is
from the moment that the way is asked for to the moment of the controller's event, which it writes behind the call that
releases the key at the cutting system; a controller in real time."""
import os
import random
import select
import signal
import socket
import threading
import time

import fixture
import held_keys
from held_keys import Hand, processes

TIMES = 24  # of each way that the page itself notices
STILL = 12  # of each of the browser's processes that stand still
HALF_OPEN = 48
HOLD_S = 180  # a machine that is busy lets go of a key again and again before its time
TOLD_S = 0.1  # until an event has come


class Line:
    """A line to the controller that can be cut, or swallow what is sent over it in both directions."""

    def __init__(self, port):
        self.to, self.swallows, self.pairs = port, False, []
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            try:
                near = self.listener.accept()[0]
            except OSError:
                return
            far = socket.create_connection(("127.0.0.1", self.to))
            for end in (near, far):
                end.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            self.pairs.append((near, far))
            threading.Thread(target=self.carry, args=(near, far), daemon=True).start()

    def carry(self, near, far):
        try:
            while True:
                for end in select.select([near, far], [], [])[0]:
                    data = end.recv(65536)
                    if not data:
                        return
                    if not self.swallows:
                        (far if end is near else near).sendall(data)
        except (OSError, ValueError):
            pass
        finally:
            self.end((near, far))

    @staticmethod
    def end(pair):
        for end in pair:
            try:
                end.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass  # it has ended by itself

    def cut(self):
        for pair in self.pairs:
            self.end(pair)
        self.pairs = []

    def mend(self):
        """What was swallowed is gone, and so is each connection that it was sent over."""
        self.cut()
        self.swallows = False


class Holds:
    """One browser with the panel, whose key is held again and again."""

    def __init__(self, controller, ups, line=None):
        self.controller, self.ups, self.line = controller, ups, line
        self.browser = fixture.Browser(script=held_keys.NOTE, log=False)
        link = controller.link()
        self.browser.driver.get(link.replace(":%d/" % controller.port, ":%d/" % line.port) if line else link)
        self.browser.wait(lambda: self.browser.text("#state") not in ("", "-"), "the state is shown")
        self.show()
        self.hand = Hand(self.browser)
        self.press = self.hand.press

    def show(self):
        self.browser.go("panel")
        held_keys.HeldKeysTest.wait_keys(self.browser)

    def free(self):
        """Takes control from this page, which may be gone: the next one's first press takes it."""
        client = self.controller.client
        client.lease = client.ask("POST", "/lease", {"takeOver": True})["lease"]
        client.give_back()

    def down(self):
        keys = self.controller.client.ask("GET", "/panel")["keys"]
        return next(of["down"] for of in keys if of["key"] == held_keys.KEY)

    def hold(self):
        until = time.monotonic() + HOLD_S
        while time.monotonic() < until:
            self.press()
            time.sleep(random.uniform(0.4, 0.6))  # at any moment between two heartbeats
            if self.down():
                return
            self.hand.lift()
            time.sleep(0.5)
        raise SystemExit("the key is not held: %s" % self.browser.text(".told-key"))

    def one(self, end, after=lambda: None, began=None):
        """Seconds; a key that came up before, as on a busy machine, is held once more."""
        while True:
            self.hold()
            before, asked = len(self.ups.seen), time.time()
            end()
            fixture.wait(lambda: not self.down(), "the key is up")
            time.sleep(TOLD_S)
            ups = [at for at, key, _ in self.ups.seen[before:] if key == held_keys.KEY]
            after()
            self.hand.lift()
            asked = began() if began else asked
            if ups and ups[0] > asked:
                return ups[0] - asked

    def times(self, count, *way, **more):
        return [self.one(*way, **more) for _ in range(count)]


def by_hand(holds):
    hand = holds.hand
    yield "pointer up", holds.times(TIMES, lambda: hand.mouse("mouseReleased"))
    yield "pointer leaves the key", holds.times(TIMES, lambda: hand.mouse("mouseMoved", 400))
    yield "context menu", holds.times(TIMES, lambda: hand.mouse("mousePressed", 0, "right"), lambda: hand.mouse("mouseReleased", 0, "right"))
    holds.press = hand.touch
    yield "touch is broken off", holds.times(TIMES, lambda: hand.fingers("touchCancel"))
    yield "second finger", holds.times(TIMES, lambda: hand.fingers("touchStart", 0, 60))
    holds.press = hand.type_down
    yield "Space up", holds.times(TIMES, lambda: hand.type("keyUp", "Space"))
    holds.press = hand.press


def by_page(holds):
    browser, driver = holds.browser, holds.browser.driver
    yield "the window loses focus", holds.times(TIMES, lambda: browser.js("window.dispatchEvent(new Event('blur'))"))
    first, behind = driver.current_window_handle, []

    def back():
        other = driver.current_window_handle
        driver.switch_to.window(first)
        behind.append(browser.js("return window.behindMs") / 1000)
        driver.switch_to.window(other)
        driver.close()
        driver.switch_to.window(first)
        holds.hand.cdp("Page.bringToFront")

    def press():
        browser.js("window.behindMs = null")
        holds.hand.press()
    holds.press = press
    yield "the page is hidden", holds.times(TIMES, lambda: driver.switch_to.new_window("tab"), back, began=lambda: behind[-1])
    holds.press = holds.hand.press
    yield "the page is frozen", holds.times(TIMES, lambda: holds.hand.cdp("Page.setWebLifecycleState", state="frozen"),
                                            lambda: holds.hand.cdp("Page.setWebLifecycleState", state="active"))


def standing_still(holds):
    times = []
    for kinds in (["renderer"], ["browser"], ["utility"], ["browser", "renderer", "utility", "gpu-process"]):
        pids = [pid for kind in kinds for pid in processes(holds.browser, kind)]

        def signal_all(number, pids=pids):
            for pid in pids:
                os.kill(pid, number)

        def go_on():
            time.sleep(0.3)
            signal_all(signal.SIGCONT)
            time.sleep(0.3)
        times += holds.times(STILL, lambda: signal_all(signal.SIGSTOP), go_on)
    yield "a process of the browser stands still (SIGSTOP)", times


def over_line(holds):
    browser, line = holds.browser, holds.line

    def mend():
        line.mend()
        browser.wait(lambda: not browser.find("#bar.stale") and browser.js(
            "return import('/console/wire.js').then(({wire}) => wire.connected)"), "the connection is back")
        holds.show()
    yield "the connection is lost", holds.times(TIMES, line.cut, mend)

    def swallow():
        line.swallows = True
    yield "the connection is half open", holds.times(HALF_OPEN, swallow, mend)


def measure():
    """(how, [s, ...]) of each way, and of all that the page notices."""
    controller = fixture.Controller(speed=None)
    line = Line(controller.port)
    try:
        controller.client.take_control()
        controller.client.ask("POST", "/panel/form", {"form": "Work"})
        controller.client.give_back()
        ups, all_times = held_keys.Ups(controller), []
        for ways in (by_hand, by_page, standing_still, over_line):
            holds = Holds(controller, ups, line if ways is over_line else None)
            try:
                for what, times in ways(holds):
                    all_times += times
                    yield what, times
            finally:
                holds.browser.close()
                holds.free()
        yield "all of these together", all_times
    finally:
        controller.end()
        fixture.shutil.rmtree(controller.state, ignore_errors=True)
