#!/usr/bin/env python3
"""Talks to a running controller (`ixocut serve`): one file, nothing but Python's standard library.

    ixocut_client.py status
    ixocut_client.py watch [SECONDS]
    ixocut_client.py run PROCEDURE [NAME=VALUE ...]      Ctrl-C stops it
    ixocut_client.py stop

The controller is found at IXOCUT_URL ("http://127.0.0.1:8620", "https://cutter.example:8620", or the path of its Unix
socket), with the token in IXOCUT_TOKEN; on the socket the controller's own user needs none. IXOCUT_CA names a PEM file
with the certificates of who is trusted behind https, instead of the system's. Software is not the emergency stop.
"""
import http.client
import json
import os
import socket
import ssl
import sys
import time
import urllib.parse
import uuid


class Refused(Exception):
    """What the controller answers instead: a problem with what, where, why and what to do."""

    def __init__(self, status, problem):
        parts = [problem.get("where"), problem.get("what") or problem.get("title"), problem.get("why"),
                 problem.get("remedy")]
        super().__init__("; ".join(part for part in parts if part))
        self.status, self.problem = status, problem


class UnixConnection(http.client.HTTPConnection):
    """HTTP over a Unix socket; its path may be longer than a socket's name."""

    def __init__(self, path, timeout):
        super().__init__("localhost", timeout=timeout)
        self.path = path

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.sock.settimeout(self.timeout)
        folder = os.open(os.path.dirname(os.path.abspath(self.path)), os.O_PATH | os.O_DIRECTORY)
        try:
            self.sock.connect("/proc/self/fd/%d/%s" % (folder, os.path.basename(self.path)))
        finally:
            os.close(folder)


class Controller:
    """One connection for requests, and one for each stream of events."""

    def __init__(self, url=None, token=None, language="en", ca=None):
        self.url = url or os.environ.get("IXOCUT_URL", "http://127.0.0.1:8620")
        self.token = token if token is not None else os.environ.get("IXOCUT_TOKEN", "")
        self.ca = ca or os.environ.get("IXOCUT_CA")
        self.language = language
        self.lease = None
        self.connection = self._connect(30)

    def _connect(self, timeout):
        parts = urllib.parse.urlsplit(self.url)
        if parts.scheme not in ("http", "https"):
            return UnixConnection(self.url, timeout)
        if parts.scheme == "https":
            context = ssl.create_default_context(cafile=self.ca)
            return http.client.HTTPSConnection(parts.hostname, parts.port or 8620, timeout=timeout, context=context)
        return http.client.HTTPConnection(parts.hostname, parts.port or 8620, timeout=timeout)

    def _headers(self, accept):
        headers = {"Accept": accept, "Accept-Language": self.language}
        if self.token:
            headers["Authorization"] = "Bearer " + self.token
        if self.lease:
            headers["Lease"] = self.lease
        return headers

    @staticmethod
    def _check(response, text):
        body = json.loads(text) if text and "json" in response.headers.get("Content-Type", "") else None
        if response.status >= 400:
            raise Refused(response.status, body or {"title": response.reason})
        return body

    def ask(self, method, path, body=None):
        """The answer's JSON. Raises Refused. What commands begins once, however often it is sent."""
        headers = self._headers("application/json, application/problem+json")
        data = None
        if method != "GET":
            headers["Content-Type"] = "application/json"
            headers["Idempotency-Key"] = uuid.uuid4().hex
            data = json.dumps(body if body is not None else {})
        try:
            self.connection.request(method, "/api/v1" + path, data, headers)
            response = self.connection.getresponse()
        except (http.client.RemoteDisconnected, BrokenPipeError, ssl.SSLEOFError, http.client.ImproperConnectionState):
            # An idle connection that was closed, or one whose last answer was not waited for (Ctrl-C).
            self.connection.close()
            self.connection.request(method, "/api/v1" + path, data, headers)
            response = self.connection.getresponse()
        return self._check(response, response.read())

    def events(self):
        """(name, data) of each event from now on, one after the other; ends with the controller."""
        connection = self._connect(60)  # something comes every 5 s
        connection.request("GET", "/api/v1/events", headers=self._headers("text/event-stream"))
        response = connection.getresponse()
        if response.status >= 400:
            self._check(response, response.read())
        name, data = "", ""
        for line in response:
            field, _, value = line.decode().rstrip("\r\n").partition(":")
            if field == "event":
                name = value.strip()
            elif field == "data":
                data += value.removeprefix(" ")
            elif not field and not value and data:
                yield name, json.loads(data)
                name, data = "", ""

    def take_control(self):
        """The lease of control, for commands that need it. It lasts 10 s behind the last sign of life."""
        self.lease = self.ask("POST", "/lease")["lease"]

    def give_back(self):
        if self.lease:
            self.ask("DELETE", "/lease")
            self.lease = None


def path_text(path):
    return ", ".join("%d/%d %s" % (s["number"], s["count"], s["description"]) for s in path)


def status_text(status):
    position = status["signals"]["position"]
    text = "%-12s X %.2f Y %.2f Z %.2f" % (status["state"], position["xMm"], position["yMm"], position["zMm"])
    if status["run"]:
        text += "  %s  %s" % (status["run"]["procedure"], path_text(status["run"]["path"]))
    return text


def watch(controller, seconds):
    end = time.monotonic() + seconds
    print(status_text(controller.ask("GET", "/status")), flush=True)
    for name, data in controller.events():
        print("%-8s %s" % (name, json.dumps(data)), flush=True)
        if time.monotonic() > end:
            return


def number(text):
    try:
        return json.loads(text)
    except ValueError:
        return text


def run(controller, procedure, words):
    """Starts a procedure and follows it to its end. Whoever starts one attends it: the connection stays."""
    params = {name: number(value) for name, _, value in (word.partition("=") for word in words)}
    controller.take_control()
    try:
        number_of_run = controller.ask("POST", "/runs", {"procedure": procedure, "params": params})["id"]
        shown = None
        while True:
            try:
                report = controller.ask("GET", "/runs/%d" % number_of_run)
                if report["outcome"]:
                    break
                controller.ask("POST", "/lease/heartbeat")
                status = controller.ask("GET", "/status")
                path = path_text(status["run"]["path"]) if status["run"] else ""
                if path and path != shown:
                    print(path, flush=True)
                shown = path
                time.sleep(0.1)
            except KeyboardInterrupt:
                controller.ask("POST", "/stop")  # needs nothing, and gets through
    finally:
        controller.give_back()
    print(report["words"])
    return 0 if report["outcome"] == "success" else 1


def main(words):
    controller = Controller()
    try:
        if words[:1] == ["status"]:
            print(status_text(controller.ask("GET", "/status")))
        elif words[:1] == ["watch"]:
            watch(controller, float(words[1]) if len(words) > 1 else float("inf"))
        elif words[:1] == ["run"] and len(words) > 1:
            return run(controller, words[1], words[2:])
        elif words[:1] == ["stop"]:
            controller.ask("POST", "/stop")
        else:
            print(__doc__.strip(), file=sys.stderr)
            return 2
    except Refused as refused:
        print("refused: %s" % refused, file=sys.stderr)
        return 1
    except OSError as error:
        print("%s: %s" % (controller.url, error), file=sys.stderr)
        return 3
    except KeyboardInterrupt:
        pass
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
