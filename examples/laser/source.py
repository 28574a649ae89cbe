#!/usr/bin/env python3
"""source.py PORT: a laser source made of software, as LaserSource.h talks to it. Its latch falls by "trip 1", and when
no line has come for 200 ms while something is on; "rearm 1" sets it again while nothing is asked for."""
import socketserver
import sys
import threading
import time

state = dict.fromkeys(("emission", "beam", "trip", "rearm", "confirmed", "lit", "latch"), 0)
lock = threading.Lock()
asked = heard = time.monotonic()


def step():
    """What the source does by itself."""
    global asked
    now = time.monotonic()
    if state["trip"] or (now - heard > 0.2 and (state["emission"] or state["beam"])):
        state["latch"] = 0
    if not state["latch"]:
        state["emission"] = state["beam"] = 0
    if not state["emission"]:
        asked = now
    state["confirmed"] = int(state["emission"] and now - asked > 0.3)
    state["lit"] = int(state["confirmed"] and state["beam"])


def answer(line):
    global heard
    with lock:
        step()
        heard = time.monotonic()
        name, _, value = line.partition(" ")
        if name in ("emission", "beam", "trip", "rearm"):
            if name == "rearm" and value == "1" and not state["emission"] and not state["beam"] and not state["trip"]:
                state["latch"] = 1
            state[name] = int(value == "1")
        step()
        return " ".join("%s=%d" % item for item in state.items()) + "\n"


class Line(socketserver.StreamRequestHandler):
    def handle(self):
        for line in self.rfile:
            self.wfile.write(answer(line.decode().strip()).encode())


socketserver.ThreadingTCPServer.allow_reuse_address = True
socketserver.ThreadingTCPServer.daemon_threads = True
with socketserver.ThreadingTCPServer(("127.0.0.1", int(sys.argv[1])), Line) as server:
    print("a laser source on port", server.server_address[1], flush=True)
    server.serve_forever()
