"""What a proof needs of a running LinuxCNC: its text interface, ixocut-hal's socket, the rows of its sampler, its
processes. Only inside scripts/linuxcnc, whose namespaces hold one LinuxCNC and nothing else."""

import os
import select
import socket
import subprocess
import sys
import threading
import time
from pathlib import Path

import hal

FOLDER = Path(os.environ.get("LINUXCNC_FOLDER", "."))
COLUMNS = ("mark proof_mark period laser latch beam pump light heart motion_enabled feed_inhibit"
           " x y z gap sensor offset").split()


def come_first():
    """This process and what it starts come before ordinary ones, as LinuxCNC does: what measures must not be late, and a
    controller that is not given the processor has lost LinuxCNC. Not below LinuxCNC: who has HAL's lock there would never
    give it back to one that spins for it."""
    try:
        os.sched_setscheduler(0, os.SCHED_RR, os.sched_param(2))
    except PermissionError:
        pass


def until(what, condition, limit=10.0, pause=0.02):
    end = time.monotonic() + limit
    while not condition():
        if time.monotonic() > end:
            raise TimeoutError(f"within {limit:g} s not so: {what}")
        time.sleep(pause)


def pid_of(name):
    """Of the one process in these namespaces that is called so."""
    pids = [int(p.name) for p in Path("/proc").iterdir()
            if p.name.isdigit() and (p / "comm").read_text().strip() == name]
    if len(pids) != 1:
        raise ProcessLookupError(f"{name}: {len(pids)} processes")
    return pids[0]


def signal_value(name):
    return hal.get_value(name)


class TextInterface:
    """One request at a time, each answered before the next."""

    def __init__(self):
        self.socket = socket.create_connection(("127.0.0.1", 5007), 5)
        self.bytes = b""
        self.ask("hello EMC proof 1.0")
        self.set("echo off")
        self.set("enable EMCTOO")

    def ask(self, line):
        self.socket.sendall(line.encode() + b"\r\n")
        while b"\n" not in self.bytes:
            more = self.socket.recv(4096)
            if not more:
                raise ConnectionError("the text interface has closed")
            self.bytes += more
        answer, _, self.bytes = self.bytes.partition(b"\n")
        return answer.decode().strip()

    def set(self, what):
        self.socket.sendall(f"set {what}\r\n".encode())
        time.sleep(0.15)  # it holds the connection for 100 ms
        while select.select([self.socket], [], [], 0)[0]:
            if not self.socket.recv(4096):
                raise ConnectionError("the text interface has closed")
        self.bytes = b""


class Controller:
    """A process that commands ixocut-hal and beats every 20 ms: `python3 machine.py SOCKET`. It takes the wire's lines
    without their number on its standard input."""

    def __init__(self):
        path = str(FOLDER / "ixocut-hal.sock")
        self.process = subprocess.Popen([sys.executable, __file__, path], stdin=subprocess.PIPE, text=True)
        until("somebody commands", lambda: signal_value("ixocut-hal.client"))

    def say(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def end(self):
        self.process.kill()
        self.process.wait()
        until("nobody commands", lambda: not signal_value("ixocut-hal.client"))


def control(path):
    wire = socket.socket(socket.AF_UNIX)
    wire.connect(path)
    wire.sendall(b"hello 1 command\n")
    try:
        command(wire)
    except OSError:  # ixocut-hal has ended the connection
        pass


def command(wire):
    number, beat = 0, time.monotonic()
    while True:
        ready = select.select([wire, 0], [], [], max(0.0, beat - time.monotonic()))[0]
        if wire in ready and not wire.recv(65536):
            return
        lines = []
        if 0 in ready:
            text = os.read(0, 4096)
            if not text:
                return
            lines = [line.split() for line in text.decode().splitlines()]
        if time.monotonic() >= beat:
            beat = max(beat + 0.02, time.monotonic())
            lines.append(["beat"])
        for line in lines:
            number += 1
            wire.sendall(" ".join([line[0], str(number)] + line[1:]).encode() + b"\n")


class Sampler:
    """The rows of the realtime sampler, one each period, as they come."""

    def __init__(self):
        self.process = subprocess.Popen(["halsampler", "-t"], stdout=subprocess.PIPE, text=True)
        self.rows = []
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        for line in self.process.stdout:
            words = line.split()
            if len(words) == len(COLUMNS) + 1:
                self.rows.append([float(word) for word in words[1:]])

    def take(self):
        """The rows since the last call, as columns by name."""
        rows, self.rows = self.rows, []
        return {name: [row[i] for row in rows] for i, name in enumerate(COLUMNS)}

    def end(self):
        self.process.kill()
        self.process.wait()


class Mark:
    """A pin of this process's own, raised together with what is measured."""

    def __init__(self):
        self.component = hal.component("proof")
        self.component.newpin("mark", hal.HAL_BIT, hal.HAL_OUT)
        self.component.ready()
        subprocess.run(["halcmd", "net", "proof-mark", "proof.mark"], check=True)

    def set(self, on):
        self.component["mark"] = on


class PlantBeside:
    """The laser source as it stands beside the computer: watches the charge pump's output and is dark 20 ms after the
    last rising edge, whatever has become of the realtime process."""

    def __init__(self):
        self.last = 0.0  # the look behind the one that saw the last edge: no later one can have come unseen
        self.edges = 0
        self.running = True
        self.thread = threading.Thread(target=self._watch, daemon=True)
        self.thread.start()

    def _watch(self):
        level, changed = True, False
        while self.running:
            now = time.monotonic()
            try:
                seen = hal.get_value("charge-pump.out")
            except RuntimeError:  # HAL is gone
                return
            if changed:
                self.last = now
            changed = seen != level
            if changed and seen:
                self.edges += 1
            level = seen
            time.sleep(0.0002)

    def end(self):
        self.running = False
        self.thread.join()


def light_up(controller):
    """Emission, the latch's edge while laser is low, and the beam."""
    controller.say("set emission 1")
    controller.say("rearm")
    until("the latch is up", lambda: signal_value("beam-latch.ok-out"))
    controller.say("set laser 1")
    until("light comes out", lambda: signal_value("lighting.out"))
    time.sleep(0.05)


if __name__ == "__main__":
    control(sys.argv[1])
