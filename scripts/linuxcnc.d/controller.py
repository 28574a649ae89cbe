"""`ixocut serve` beside one LinuxCNC, asked over its socket; and what stands between it and the text interface."""

import ctypes
import http.client
import json
import os
import socket
import subprocess
import threading
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent


class Relay:
    """Between the driver and the text interface. Cut, it takes everything and forwards nothing; closed, it ends what
    there is and takes nothing."""

    PORT = 5008

    def __init__(self, to):
        self.to = to
        self.is_cut = False
        self.is_closed = False
        self.pairs = []
        self.listener = socket.create_server(("127.0.0.1", self.PORT))
        threading.Thread(target=self._accept, daemon=True).start()

    def cut(self, on):
        self.is_cut = on

    def close(self, on):
        self.is_closed = on
        for pair in self.pairs if on else ():
            self._end(pair)

    @staticmethod
    def _end(pair):
        for end in pair:
            try:
                end.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass

    def _accept(self):
        while True:
            client, _ = self.listener.accept()
            if self.is_closed:
                client.close()
                continue
            server = socket.create_connection(("127.0.0.1", self.to))
            pair = (client, server)
            self.pairs = [p for p in self.pairs if p[0].fileno() >= 0] + [pair]
            for a, b in (pair, pair[::-1]):
                a.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                threading.Thread(target=self._forward, args=(a, b, pair), daemon=True).start()

    def _forward(self, a, b, pair):
        try:
            while data := a.recv(4096):
                while self.is_cut:
                    time.sleep(0.005)
                b.sendall(data)
        except OSError:
            pass
        self._end(pair)


class Held:
    """One thread of a process, stopped; the others run on."""

    ATTACH, DETACH, WALL = 16, 17, 0x40000000

    def __init__(self, pid, name):
        self.libc = ctypes.CDLL(None, use_errno=True)
        self.libc.ptrace.argtypes = [ctypes.c_long] * 4
        self.thread = next(int(task.name) for task in Path(f"/proc/{pid}/task").iterdir()
                           if (task / "comm").read_text().strip() == name)
        if self.libc.ptrace(self.ATTACH, self.thread, 0, 0) != 0:
            raise OSError(ctypes.get_errno(), f"the thread {name} cannot be stopped")
        os.waitpid(self.thread, self.WALL)

    def let_go(self):
        self.libc.ptrace(self.DETACH, self.thread, 0, 0)


class Served:
    def __init__(self, folder):
        self.folder = folder
        machine = Path(os.environ["XDG_STATE_HOME"]) / "ixocut" / "machine.xml"
        (folder / "machine.xml").write_text(machine.read_text().replace('Port="5007"', f'Port="{Relay.PORT}"'))
        self.log = open(folder / "serve.log", "a", encoding="utf-8")
        self.process = subprocess.Popen([os.environ.get("IXOCUT", str(ROOT / "run")), "serve", "--machine",
                                         folder / "machine.xml", "--state", folder, "--port", "0", "--lang", "en"],
                                        stdout=self.log, stderr=self.log)
        self.lease = ""
        self.wait("it answers", lambda: self.ask("GET", "/health")["lives"], 30)
        self.take_lease()

    def ask(self, verb, path, body=None):
        wire = http.client.HTTPConnection("localhost", timeout=10)
        wire.sock = socket.socket(socket.AF_UNIX)
        wire.sock.settimeout(10)
        wire.sock.connect(str(self.folder / "controller.sock"))
        headers = {"Content-Type": "application/json"}
        if self.lease:
            headers["Lease"] = self.lease
        wire.request(verb, "/api/v1" + path, None if body is None else json.dumps(body), headers)
        answer = wire.getresponse()
        text = answer.read()
        wire.close()
        return json.loads(text) if text else {}

    def wait(self, what, condition, limit):
        end = time.monotonic() + limit
        while True:
            try:
                if condition():
                    return
            except (OSError, KeyError, json.JSONDecodeError):
                pass
            if time.monotonic() > end:
                raise TimeoutError(f"within {limit:g} s not so: {what}")
            time.sleep(0.02)

    def take_lease(self):
        self.lease = self.ask("POST", "/lease", {"takeOver": True})["lease"]

    def status(self):
        return self.ask("GET", "/status")

    def standby(self):
        self.wait("standby", lambda: not self.status()["running"] and self.status()["stateNumber"] == 0, 20)

    def ready(self):
        """Standby, the latch up and nothing forbidden: as after an operator's reset."""
        self.standby()
        refused = ""
        for _ in range(40):
            now = self.status()
            if not now["latched"] and now["allowMove"] and now["allowLaser"]:
                return
            self.take_lease()
            refused = self.ask("POST", "/reset", {}).get("detail", "")
            time.sleep(0.25)
        raise TimeoutError(f"it does not become ready: {refused} {json.dumps(self.status())[:400]}")

    def start(self, path, body):
        self.take_lease()
        answer = self.ask("POST", path, dict(body, detach=True))
        if "id" not in answer:
            raise RuntimeError(f"{body} is refused: {answer.get('detail', answer)}")
        return answer["id"]

    def outcome(self, run):
        return self.ask("GET", f"/runs/{run}")

    def end(self):
        self.process.terminate()
        self.process.wait(20)
        self.log.close()
