#!/usr/bin/env python3
"""check_docs.py <checkout>: what the documents name is there: each file and folder, each route of the interface, each
command of the program with its options. Prints `file:line: reason` for each that is not, and fails if there is one."""
import json
import pathlib
import re
import sys

ROOT = pathlib.Path(sys.argv[1])
DOCUMENTS = ["README.md", *(f"docs/{name}.md" for name in ("ARCHITECTURE", "api", "kept", "linuxcnc", "real-machine"))]
# What is made where the program works, or is no file of ours.
ELSEWHERE = re.compile(r"^(state|build|gas|nozzle|square|steps|machine|FILE|purge|alarms|~)\b|\.(db|svg|jsonl|sock|log|lock)$"
                       r"|^(controller|queue|tokens|config-history|notifications)\.json$|GasCalibration\.config")
PLACE = re.compile(r"^[A-Za-z.][\w./-]*(/|\.(\*|h|cpp|py|sh|json|md|xml))$")

tree = [str(path.relative_to(ROOT)) for folder in sorted(ROOT.iterdir()) if folder.name[:1] != "." and folder.name != "build"
        for path in ([folder, *folder.rglob("*")] if folder.is_dir() else [folder])]
routes = json.loads((ROOT / "share/api/openapi.json").read_text(encoding="utf-8"))["paths"]
route_patterns = [re.compile(re.sub(r"\\\{[a-z]+(\\\.){3}\\\}", ".+", re.sub(r"\\\{[a-z]+\\\}", "[^/]+", re.escape(path))) + "$")
                  for path in routes]
wrong = 0


def complain(document, line, reason):
    global wrong
    wrong += 1
    print(f"{document}:{line}: {reason}")


def is_there(place):
    stem = place[:-1] if place.endswith(".*") else place.rstrip("/")
    return any(path == stem or path.endswith("/" + stem) or (place.endswith(".*") and ("/" + path).rfind("/" + stem) >= 0)
               for path in tree)


for document in DOCUMENTS:
    for number, text in enumerate((ROOT / document).read_text(encoding="utf-8").splitlines(), 1):
        for place in re.findall(r"`([^`\s]+)`", text) + re.findall(r"\]\(([^)#:]+)\)", text):
            if PLACE.match(place) and not ELSEWHERE.search(place) and not is_there(place):
                complain(document, number, f"{place} is not there")
        for path in re.findall(r"(?:\$A|/api/v1)(/[\w/.-]*[\w/-])", text):
            known = "/api/v1" + path
            if path != "/nothing" and not any(pattern.match(known) for pattern in route_patterns):
                complain(document, number, f"{known} is no route")

sys.exit(1 if wrong else 0)
