#!/usr/bin/env python3
"""ask_everything.py IXOCUT DOCUMENT: starts `IXOCUT serve` in virtual time, asks every path of the OpenAPI document over
HTTP, well and wrongly, asks in real time what needs it, and holds every answer against the document. Needs python3-jsonschema; exits with 1 where an
answer does not fit, a path was never answered well, or something is asked that is not described."""
import http.client
import json
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

import jsonschema

PREFIX = "/api/v1"
WITHIN_S = 30
LONG_MS = 600_000  # the longest there is: seconds of real time
PRESSES = 10  # so often a busy machine may be too late with a press


class UnixConnection(http.client.HTTPConnection):
    def __init__(self, path):
        super().__init__("localhost")
        self.unix_path = path

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.settimeout(WITHIN_S)
        self.sock.connect(self.unix_path)


class Document:
    def __init__(self, file):
        with open(file, encoding="utf-8") as text:
            self.content = json.load(text)
        self.paths = []
        for path in self.content["paths"]:
            pattern = re.escape(path)
            pattern = re.sub(r"\\{[a-z]+\\\.\\\.\\\.\\}", ".+", pattern)
            self.paths.append((re.compile(re.sub(r"\\{[a-z]+\\}", "[^/]+", pattern) + "$"), path))
        self.paths.sort(key=lambda one: one[1].count("{"))  # one that is spelled out goes first

    def operation(self, method, path):
        for pattern, name in self.paths:
            if pattern.match(path) and method.lower() in self.content["paths"][name]:
                return name, self.content["paths"][name][method.lower()]
        return None, None

    def resolved(self, thing):
        while "$ref" in thing:
            found = self.content
            for part in thing["$ref"][2:].split("/"):
                found = found[part]
            thing = found
        return thing

    def check(self, schema, value):
        whole = {"components": self.content["components"], "allOf": [schema]}
        return [f"{'/'.join(map(str, error.absolute_path)) or 'the whole'}: {error.message[:200]}"
                for error in jsonschema.Draft202012Validator(whole).iter_errors(value)]


class Asker:
    def __init__(self, document):
        self.document = document
        self.place = None  # of the controller that is asked
        self.lease = None
        self.wrong = []
        self.answered = set()

    def complain(self, what):
        self.wrong.append(what)
        print("!!", what)

    def ask(self, method, path, body=None, local=True, headers=None, expect=None):
        """`local`: over the Unix socket, where the user is known; else over TCP, as nobody."""
        if local:
            connection = UnixConnection(self.place["socket"])
        else:
            connection = http.client.HTTPConnection(self.place["url"].split("//")[1], timeout=WITHIN_S)
        send = {"Accept-Language": "en", **(headers or {})}
        if self.lease and local:
            send["Lease"] = self.lease
        text = None
        if body is not None or method in ("POST", "PUT"):
            text = json.dumps({} if body is None else body)
            send["Content-Type"] = "application/json"
        connection.request(method, PREFIX + "/" + path, text, send)
        response = connection.getresponse()
        raw = response.read()
        connection.close()
        where = f"{method} {path} -> {response.status}"
        try:
            is_csv = response.headers.get("Content-Type", "").startswith("text/csv")
            value = raw.decode() if is_csv else json.loads(raw)
        except ValueError:
            self.complain(f"{where}: no JSON: {raw[:100]!r}")
            return response.status, None
        self.hold(method, path.split("?")[0], where, response, value)
        if expect is not None and response.status not in (expect if isinstance(expect, tuple) else (expect,)):
            self.complain(f"{where}: expected {expect}: {raw[:300]!r}")
        return response.status, value

    def hold(self, method, path, where, response, value):
        kind = response.headers.get("Content-Type", "").split(";")[0]
        if response.status >= 400:
            if kind != "application/problem+json":
                self.complain(f"{where}: the problem is {kind}")
            schema = {"$ref": "#/components/schemas/Problem"}
            for problem in self.document.check(schema, value):
                self.complain(f"{where}: {problem}")
            if not value.get("detail"):
                self.complain(f"{where}: the problem says nothing")
        name, operation = self.document.operation(method, PREFIX + "/" + path)
        if operation is None:
            if response.status not in (404, 405):
                self.complain(f"{where}: is not described")
            return
        described = operation["responses"].get(str(response.status))
        if described is None:
            self.complain(f"{where}: this status is not described")
            return
        if response.status >= 400:
            return
        content = self.document.resolved(described)["content"]
        if kind not in content:
            self.complain(f"{where}: {kind} is not described")
            return
        problems = self.document.check(content[kind]["schema"], value)
        for problem in problems:
            self.complain(f"{where}: {problem}")
        if not problems:
            self.answered.add((method, name))

    def good(self, method, path, body=None, **more):
        status, value = self.ask(method, path, body, **more)
        if status >= 300:
            self.complain(f"{method} {path} -> {status}: {json.dumps(value)[:300]}")
            return {}
        return value

    def take_lease(self):
        self.lease = self.good("POST", "lease", {"takeOver": True}).get("lease")

    def wait_for_run(self, run):
        end = time.monotonic() + WITHIN_S
        while run and time.monotonic() < end:
            answer = self.good("GET", f"runs/{run}")
            if answer.get("outcome") or not answer:
                return answer
            self.good("POST", "lease/heartbeat")
            time.sleep(0.05)
        self.complain(f"run {run} does not end")
        return {}

    def events(self):
        connection = http.client.HTTPConnection(self.place["url"].split("//")[1], timeout=WITHIN_S)
        connection.request("GET", PREFIX + "/events?kinds=state,run")
        response = connection.getresponse()
        line = response.readline()
        connection.close()
        if response.status == 200 and response.headers.get("Content-Type", "").startswith("text/event-stream") and line:
            self.answered.add(("GET", PREFIX + "/events"))
        else:
            self.complain(f"GET events -> {response.status}, {line!r}")


def ask_well(asker):
    for path in ("health", "status", "machine", "procedures", "tokens", "alarms", "alarms/history", "alarms/definitions", "config",
                 "config/schema", "config/check", "config/history", "config/diff?against=defaults", "gas", "gas/tables",
                 "panel", "panel/why?key=LASER&form=Work&state=paused&alarms=TPGas%232,104", "panel/keys", "panel/forms", "links", "recordings", "log", "log?level=warning",
                 "openapi.json"):
        asker.good("GET", path)
    asker.events()
    asker.take_lease()
    asker.good("POST", "lease/heartbeat")

    asker.good("POST", "tokens", {"name": "asker", "role": "viewer"})
    asker.good("DELETE", "tokens/asker")
    code = asker.good("POST", "session/code", {"role": "viewer"}).get("code")
    asker.good("POST", "session", {"code": code}, local=False)
    asker.good("GET", "session")
    asker.good("DELETE", "session")
    asker.good("GET", "lease")
    asker.good("POST", "runs/check", {"procedure": "move-xy", "params": {"x": 30, "y": 20}}, local=False)

    run = asker.good("POST", "runs", {"procedure": "move-xy", "params": {"x": 30, "y": 20}}).get("id")
    asker.wait_for_run(run)
    asker.good("GET", f"runs/{run}/trace")
    run = asker.good("POST", "runs", {"procedure": "delay", "params": {"ms": LONG_MS}}).get("id")
    asker.good("POST", "pause")
    asker.wait_for_run(run)
    asker.good("POST", "stop", local=False)
    asker.good("POST", "all-off", local=False)
    for alarm in asker.good("GET", "alarms").get("alarms", [])[:1]:
        asker.good("POST", f"alarms/{alarm['serial']}/acknowledge")
    end = time.monotonic() + WITHIN_S
    while asker.ask("POST", "reset")[0] != 200 and time.monotonic() < end:
        time.sleep(0.05)

    run = asker.good("POST", "gas/calibrate", {"gases": ["Air"], "nozzle": "S", "size": 1.5}).get("id")
    asker.wait_for_run(run)
    for path in ("gas", "gas/verdict", "gas/recording", "gas/tables?gas=Air&nozzle=S&size=1.5"):
        asker.good("GET", path)
    asker.good("POST", "gas/use", {"gases": "Air", "nozzle": "S", "size": 1.5})

    asker.good("POST", "panel/form", {"form": "Work"})
    for _ in range(PRESSES):
        press = {"key": "AIMING", "press": "one", "atMs": asker.good("GET", "panel").get("serverMs")}
        if asker.ask("POST", "panel/press", press, expect=(200, 409))[0] == 200:
            break
    asker.ask("POST", "panel/heartbeat", {"presses": ["one"], "atMs": asker.good("GET", "panel").get("serverMs")},
              expect=(200, 409))
    asker.good("POST", "panel/heartbeat", {"presses": [], "atMs": asker.good("GET", "panel").get("serverMs")})
    asker.good("POST", "panel/release", {"press": "one"})
    for alt in (True, False):
        asker.good("POST", "panel/alt", {"alt": alt})
    asker.good("POST", "panel/knob", {"level": "normal"})

    asker.good("POST", "recordings", {"name": "one", "signals": ["position", "state"], "limitMs": LONG_MS})
    time.sleep(0.1)
    asker.good("DELETE", "recordings/one/running")
    asker.good("GET", "recordings/one?points=10&signals=position.1")
    asker.good("GET", "recordings/one/file")
    asker.good("DELETE", "recordings/one")
    asker.good("POST", "recordings", {"name": "two", "limitMs": 120000})
    asker.ask("DELETE", "recordings/two/running", expect=(200, 409))

    version = asker.good("GET", "config").get("version")
    name = "config/ModbusStore/WriteFileNameParamAddr"
    asker.good("PUT", name, {"value": 7, "version": version})
    asker.ask("PUT", name, {"value": 8, "version": version}, expect=412)
    asker.good("POST", "config/restore")
    asker.good("POST", "queue/hold")
    asker.good("PUT", "sequences/one", {"name": "one", "commands": [{"command": "delay", "ms": 20}]})
    for path in ("sequences", "sequences/one", "queue"):
        asker.good("GET", path)
    other = asker.good("POST", "queue", {"sequence": "one"}).get("id")
    asker.good("DELETE", f"queue/{other}")
    job = asker.good("POST", "queue", {"procedure": "delay", "params": {"ms": 20}, "question": "is it clear?"}).get("id")
    asker.good("POST", "queue/start")
    end = time.monotonic() + WITHIN_S
    while time.monotonic() < end and not any(one["id"] == job and one["state"] == "asks"
                                             for one in asker.good("GET", "queue").get("jobs", [])):
        time.sleep(0.05)
    asker.good("POST", f"queue/{job}/answer", {"answer": "run"})
    while time.monotonic() < end and any(one["id"] == job for one in asker.good("GET", "queue").get("jobs", [])):
        time.sleep(0.05)
    asker.good("POST", "queue/hold")
    asker.good("DELETE", "sequences/one")
    runs = [one["id"] for one in asker.good("GET", "runs").get("runs", [])]
    asker.good("GET", f"runs/compare?a={runs[0]}&b={runs[-1]}")
    asker.good("GET", "runs/trend?name=delay")
    asker.ask("POST", "continue", {"confirm": "nothing"}, expect=409)

    run = asker.good("POST", "runs", {"calls": [{"command": "safe-move", "x": 40, "y": 30},
                                                {"command": "delay", "ms": LONG_MS}]}).get("id")
    end = time.monotonic() + WITHIN_S
    while time.monotonic() < end and not any(step["number"] == 2 for step in
                                             (asker.good("GET", "status").get("run") or {"path": []})["path"]):
        time.sleep(0.02)
    asker.good("POST", "pause")
    asker.wait_for_run(run)
    confirm = asker.ask("POST", "continue", expect=409)[1].get("confirm")
    run = asker.good("POST", "continue", {"confirm": confirm}).get("id")
    asker.good("POST", "stop")
    asker.wait_for_run(run)

    asker.good("DELETE", "lease")
    asker.take_lease()
    asker.good("POST", "alarms/suppress", {"identifier": "TPHost#1", "minutes": 1, "reason": "asked"})


def ask_wrongly(asker):
    document = asker.document.content["paths"]
    for path, methods in document.items():
        spelled = re.sub(r"{[^}]*}", "no-such-thing", path)[len(PREFIX) + 1:]
        for method, operation in methods.items():
            if path.endswith("/events") or path.endswith("/stop") or path.endswith("/all-off"):
                continue
            if "requestBody" in operation:
                taken = () if operation["requestBody"]["required"] else (200, 201)
                asker.ask(method.upper(), spelled, [1], expect=(400, 404, 409, *taken))
                asker.ask(method.upper(), spelled, {"no such member": 1}, expect=(200, 201, 400, 404, 409))
            elif "{" in path:
                asker.ask(method.upper(), spelled, expect=(400, 404, 409))
            if operation["x-role"] != "none":
                asker.ask(method.upper(), spelled, {}, local=False, expect=(401, 403))
    asker.ask("GET", "no-such-thing", expect=404)
    asker.ask("DELETE", "status", expect=405)
    asker.ask("GET", "status", local=False, headers={"Host": "elsewhere.example"}, expect=421)
    asker.ask("GET", "status", local=False, headers={"Authorization": "Bearer wrong"}, expect=401)
    for wrong in ("log?since=-1", "log?level=loud", "gas/tables?gas=He", "gas/tables?size=0", "panel/why?key=NO",
                  "panel/keys?form=NO", "panel/keys?state=NO", "panel/keys?alarms=NO", "panel/keys?warning=1",
                  "recordings/one?points=0", "gas/verdict?run=x"):
        asker.ask("GET", wrong, expect=400)


def ask_in_real_time(asker):
    asker.take_lease()
    links = asker.good("GET", "links").get("links", [])
    link = f"links/{links[0]['name']}"
    for method in ("POST", "GET", "DELETE"):
        asker.good(method, link + "/watch")
    asker.good("POST", link + "/doctor")


def check_answered(asker):
    for path, methods in asker.document.content["paths"].items():
        for method in methods:
            if (method.upper(), path) not in asker.answered:
                asker.complain(f"{method.upper()} {path} was never answered well")


def serve_and_ask(asker, program, options, *asks):
    folder = tempfile.mkdtemp(prefix="ixo")
    serve = subprocess.Popen([program, "serve", *options, "--port", "0", "--state", folder, "--json", "--lang", "en"],
                             stdout=subprocess.PIPE, text=True)
    try:
        asker.place = json.loads(serve.stdout.readline())["result"]
        for ask in asks:
            ask(asker)
    finally:
        serve.send_signal(signal.SIGTERM)
        serve.wait(WITHIN_S)
        shutil.rmtree(folder, ignore_errors=True)
    if serve.returncode != 0:
        asker.complain(f"serve ended with {serve.returncode}")


def main():
    program, file = sys.argv[1:]
    asker = Asker(Document(file))
    serve_and_ask(asker, program, [], ask_in_real_time)
    serve_and_ask(asker, program, ["--virtual", "100"], ask_well, check_answered, ask_wrongly)
    print(f"{len(asker.answered)} operations answered well, {len(asker.wrong)} complaints")
    sys.exit(1 if asker.wrong else 0)


if __name__ == "__main__":
    main()
