#!/usr/bin/env python3
"""check_docs.py <checkout>: what the documents name is there: each file and folder, each link with its heading, each
route of the interface; each piece of code stands in the file that it is quoted from; DEPENDENCIES.md lists what is
installed; each protection of safety.md says how soon it acts, has its test, and its figure is the code's; and kept.md
has what the sources mark as kept.
check_docs.py <checkout> <ixocut> [<document>...]: runs the commands of the documents, or of these, with this program.
check_docs.py <checkout> <ixocut> --examples <folder>: those of the examples, which are built in this folder against the
installation that CMAKE_PREFIX_PATH names, else against the system's.
Prints `file:line: reason` for each that is wrong, and fails if there is one.

A block of a document says behind its language what it is:
  ```cpp examples/step/main.cpp   a quotation: these lines stand there, however deep they are indented
  ```json purge.json              a file that the reader writes, and that the commands below it use
  ```sh                           commands; one that fails is wrong
  ```sh stays                     one command that goes on beside the others until the document's end
  ```sh packages                  commands of root where the packages are installed: packaging/try runs them
  ```console                      commands behind "$ ", each with what it prints, if that is shown: every number stands
                                  for any other one and "..." for anything; what is shown may be a failure
  ```console stays                one that goes on, with what it prints first
  ```console linuxcnc             commands beside a LinuxCNC: tests/linuxcnc/documents.py runs them
  ```text                         a drawing of folders, each line with those that it is about in front
The commands of one document share a shell and an empty folder, with copies of examples/ and share/ in it, and a ./run that
does what the checkout's does once it has built, as ./test does without its tests; those of the examples share one folder,
in which the first of them builds all.
"""
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile

# tests/linuxcnc/documents.py reads and compares the documents in the same way.
ROOT = (pathlib.Path(sys.argv[1]) if __name__ == "__main__" else pathlib.Path(__file__).parent.parent).resolve()
DOCUMENTS = ["README.md", *(str(path.relative_to(ROOT)) for path in sorted(ROOT.glob("docs/**/*.md"))
                            if path.parent.name != "reference")]  # which is made from what it names
EXAMPLES = ["examples/README.md",  # builds all; first
            *sorted(str(path.relative_to(ROOT)) for path in ROOT.glob("examples/*/README.md"))]
# What is made where the program works, or is no file of ours.
ELSEWHERE = re.compile(r"^(state|build|gas|nozzle|square|steps|machine|FILE|purge|alarms|~)\b|\.(db|svg|jsonl|sock|log|lock)$"
                       r"|^(controller|queue|tokens|config-history|notifications)\.json$|GasCalibration\.config|^hal\.h$")
PLACE = re.compile(r"^[A-Za-z.][\w./-]*(/|\.(\*|h|cpp|py|sh|json|md|xml))$")
# In documents; where they are run free ports are taken, and this machine for every other one.
PORTS = ["8620", "8621", "1502", "1503"]
HERE = {"192.168.0.5": "127.0.0.1", "cutter.example": "localhost"}
LANGUAGES = {"README.md": ""}  # none: it shows what is printed then
# The data folder of an installation; where there is none the checkout's.
DATA = "/usr/share/ixocamglue"
PATIENCE_S = 120
BUILD_PATIENCE_S = 600

wrong = 0


def complain(document, line, reason):
    global wrong
    wrong += 1
    print(f"{document}:{line}: {reason}")


def lines_of(document):
    return (ROOT / document).read_text(encoding="utf-8").splitlines()


def blocks(document):
    """(line, language, what it is, its lines) of each block of code."""
    start = None
    for number, text in enumerate(lines_of(document), 1):
        fence = re.match(r"\s*(?:```|~~~)(.*)", text)
        if not fence:
            if start:
                inside.append(text)
        elif start:
            yield start, *head, inside
            start = None
        else:
            language, _, what = fence[1].strip().partition(" ")
            start, head, inside = number, (language, what.strip()), []
    if start:  # nothing ends it, and it is the document's rest
        yield start, *head, inside


def flush_left(lines):
    return "\n".join(line.strip() for line in lines)


def check_places():
    folders = [folder for folder in sorted(ROOT.iterdir()) if folder.name[:1] != "." and folder.name != "build"]
    tree = [str(path.relative_to(ROOT)) for folder in folders
            for path in ([folder, *folder.rglob("*")] if folder.is_dir() else [folder])]
    routes = json.loads((ROOT / "share/api/openapi.json").read_text(encoding="utf-8"))["paths"]
    patterns = [re.compile(re.sub(r"\\\{[a-z]+(\\\.){3}\\\}", ".+", re.sub(r"\\\{[a-z]+\\\}", "[^/]+", re.escape(path))) + "$")
                for path in routes]

    def is_there(place):
        place = re.sub(r"^(\.\./)+", "", place)
        stem = place[:-1] if place.endswith(".*") else place.rstrip("/")
        return any(path == stem or path.endswith("/" + stem) or (place.endswith(".*") and ("/" + path).rfind("/" + stem) >= 0)
                   for path in tree)

    for document in [*DOCUMENTS, *EXAMPLES]:
        for number, text in enumerate(lines_of(document), 1):
            for place in re.findall(r"`([^`\s]+)`", text):
                place = re.sub(r"^(\.\./)+", "", place)
                if PLACE.match(place) and not ELSEWHERE.search(place) and not is_there(place):
                    complain(document, number, f"{place} is not there")
            for path in re.findall(r"(?:\$A|/api/v1)(/[\w/.-]*[\w/-])", text):
                known = "/api/v1" + path
                if path != "/nothing" and not any(pattern.match(known) for pattern in patterns):
                    complain(document, number, f"{known} is no route")


def prose(document):
    """(line, text) of what is in no block of code."""
    inside = False
    for number, text in enumerate(lines_of(document), 1):
        fence = re.match(r"\s*```", text)
        inside ^= bool(fence)
        if not fence and not inside:
            yield number, text


def headings(document):
    """The anchors of its headings, as a forge makes them."""
    found = {}
    for _, text in prose(document):
        if heading := re.match(r"#+ (.*)", text):
            words = re.sub(r"\[([^]]*)\]\([^)]*\)", r"\1", heading[1].lower())
            anchor = re.sub(r"[^\w -]", "", words).strip().replace(" ", "-")
            found[anchor] = found.get(anchor, -1) + 1
    return {f"{anchor}-{n}" if n else anchor for anchor, times in found.items() for n in range(times + 1)}


def check_links():
    """Each link and picture of ours leads to a file, and a "#" in it to a heading of that file."""
    reference = [str(path.relative_to(ROOT)) for path in sorted(ROOT.glob("docs/reference/*.md"))]
    for document in [*DOCUMENTS, *EXAMPLES, *reference]:
        for number, text in prose(document):
            for link in re.findall(r"\]\(([^)\s]+)\)", re.sub(r"`[^`]*`", "", text)):
                place, _, anchor = link.partition("#")
                if ":" in place:
                    continue
                file = ((ROOT / document).parent / place).resolve() if place else ROOT / document
                if not file.exists():
                    complain(document, number, f"{link} leads nowhere")
                elif anchor and anchor not in headings(file):
                    complain(document, number, f"{link}: {file.name} has no such heading")


def check_dependencies():
    """Each package that the scripts install has a row, and no cell of a row is empty."""
    document = "docs/DEPENDENCIES.md"
    rows = {cells[0]: (number, cells) for number, text in enumerate(lines_of(document), 1)
            if (cells := [cell.strip() for cell in text.strip("|").split("|")]) and text.startswith("| ")}
    for number, cells in rows.values():
        if len(cells) != 5 or not all(cells):
            complain(document, number, "a row has five cells that say something")
    packages = ROOT / "scripts/packages.sh"
    sets = re.findall(r"^    ([a-z]+)\)", packages.read_text(encoding="utf-8"), re.MULTILINE)
    names = subprocess.run(["bash", "-c", f'. "$0"; for set in {" ".join(sets)}; do packages $set; done', packages],
                           check=True, capture_output=True, text=True).stdout.split()
    for name in sorted({*names} - {*rows}):
        complain(document, 1, f"{name}, which {packages.relative_to(ROOT)} installs, has no row")


def check_read():
    """No other document has a block of code."""
    for folder in ROOT.iterdir():
        for file in [folder] if folder.suffix == ".md" else folder.rglob("*.md"):
            document = str(file.relative_to(ROOT))
            if folder.name != "build" and document not in [*DOCUMENTS, *EXAMPLES]:
                for line, *_ in blocks(document):
                    complain(document, line, "no test reads the blocks of this document")


def check_drawing(document, line, inside):
    """Folders are in the one that stands above them, less indented."""
    above, found = [], False
    for offset, text in enumerate(inside, 1):
        indent = len(text) - len(text.lstrip())
        above = [(other, folder) for other, folder in above if other < indent]
        parent = above[-1][1] if above else ROOT
        for name in re.match(r"((?:[\w/-]+/(?:, )?)*)", text.lstrip())[1].split(", "):
            if name and not (parent / name).is_dir():
                complain(document, line + offset, f"{parent.relative_to(ROOT) / name} is no folder")
            if name:
                found = True
                above.append((indent, parent / name))
    if not found:
        complain(document, line, "this drawing has no folder")


def check_blocks(document):
    tried = (ROOT / "packaging/try").read_text(encoding="utf-8")
    for line, language, what, inside in blocks(document):
        if "/" in what:
            file = ROOT / what
            if not file.is_file():
                complain(document, line, f"{what} is not there")
            elif flush_left(inside) not in flush_left(file.read_text(encoding="utf-8").splitlines()):
                complain(document, line, f"these lines do not stand so in {what}")
        elif "." in what:
            later = "\n".join(text for at, kind, _, lines in blocks(document) for text in lines
                              if at > line and kind in ("sh", "console"))
            if what not in later:
                complain(document, line, f"no command below uses {what}")
        elif (language, what) == ("text", ""):
            check_drawing(document, line, inside)
        elif (language, what) == ("sh", "packages"):
            if document not in tried:
                complain(document, line, "packaging/try does not run this")
        elif (language, what) not in (("sh", ""), ("sh", "stays"), ("console", ""), ("console", "stays"),
                                      ("console", "linuxcnc")):
            complain(document, line, f'"{language} {what}": neither a quotation nor run (see the head of check_docs.py)')


def check_safety(document="docs/safety.md"):
    tests = set()
    for source in sorted((ROOT / "tests").rglob("*.cpp")):
        tests |= {".".join(name) for name in re.findall(r"^TEST(?:_[FP])?\((\w+), (\w+)\)",
                                                        source.read_text(encoding="utf-8"), re.MULTILINE)}
    properties = (ROOT / "docs/reference/configuration.md").read_text(encoding="utf-8")
    under = None
    for line, text in enumerate(lines_of(document), 1):
        if text.startswith("## "):
            under = text
        named = re.findall(r"`([A-Z]\w+\.[A-Z]\w+)`", text)
        for name in named:
            if name not in tests:
                complain(document, line, f"{name} is no test")
        if under == "## What protects" and re.match(r"\| (?!What \|)[^-]", text):
            if not named:
                complain(document, line, "no test holds this")
            if not all(cell.strip() for cell in text.strip("|").split("|")):
                complain(document, line, "what it does, or how soon, is not said")
        for figure, unit, constant, file in re.findall(r"([\d,]+) (ms|s|passes)(?: each)?, `(k\w+)` of `([^`]+)`", text):
            wanted = int(figure.replace(",", "")) * (1000 if unit == "s" else 1)
            stands = re.search(rf"\b{constant} = ([\d']+)", (ROOT / file).read_text(encoding="utf-8"))
            if not stands or int(stands[1].replace("'", "")) != wanted:
                complain(document, line, f"{constant} of {file} is {stands[1] if stands else 'not there'}")
        for figure, section, name in re.findall(r"([\d,]+) ms(?: each)?, `([^`]+)/(\w+)` of the machine file", text):
            row = re.search(rf"## `{re.escape(section)}`\n(?:(?!## ).*\n)*?\| `{name}` \| \w+ \| `(\w+)`", properties)
            if not row or row[1] != figure.replace(",", ""):
                complain(document, line, f"{section}/{name} is {row[1] if row else 'not there'} unless it is set")


def check_kept(document="docs/kept.md"):
    """What a row names stands in a source that marks an oddity, and a source that marks one has a row."""
    marked = {file: text for folder in ("commandline", "controller", "ixocamglue", "ixocut", "machines", "verify")
              for file in (ROOT / folder).rglob("*.*") if file.suffix in (".cpp", ".h")
              and "Kept:" in (text := file.read_text(encoding="utf-8"))}
    rowed = set()
    for line, text in enumerate(lines_of(document), 1):
        for name in re.findall(r"`([^`]+)`", text.split(" | ")[0]) if text.startswith("| ") else []:
            word = re.findall(r"\w+", name)[-1]
            files = [file for file, source in marked.items() if re.search(rf"\b{word}\b", source)]
            rowed.update(files)
            if not files:
                complain(document, line, f"{name} is in no source that says \"Kept:\"")
    for file in sorted({*marked} - rowed):
        complain(document, 1, f"{file.relative_to(ROOT)} says \"Kept:\" of what has no row")


def commands(inside):
    """(offset, command, what it prints) of a `console` block."""
    offset = 0
    while offset < len(inside):
        start, command = offset, inside[offset].removeprefix("$ ")
        while command.endswith("\\"):
            offset += 1
            command += "\n" + inside[offset]
        offset += 1
        shown = []
        while offset < len(inside) and not inside[offset].startswith("$ "):
            shown.append(inside[offset])
            offset += 1
        yield start, command, shown


def script(document):
    """The document's commands as one shell script, and (line, what is shown) of those that show what they print."""
    parts, shows = ['set -e -o pipefail; STAYED=(); echo 1 >"$OUT/at"'], []

    def run(line, text, shown):
        parts.append(f'echo {line} >"$OUT/at"\n{{ {text}\n}} >"$OUT/{line}" 2>&1' + (" || true" if shown else ""))
        if shown:
            shows.append((line, "\n".join(shown)))

    for line, language, what, inside in blocks(document):
        if "/" in what or what in ("packages", "linuxcnc") or language == "text":
            continue
        told = list(commands(inside)) if language == "console" else [(0, "\n".join(inside), None)]
        if "." in what:
            parts.append(f"cat >{what} <<'END OF {what}'\n" + "\n".join(inside) + f"\nEND OF {what}")
        elif what == "stays":
            # It is up when it has said its first words.
            (_, command, shown), = told
            parts.append(f'echo {line} >"$OUT/at"\n{command} >"$OUT/{line}" 2>&1 &\nSTAYED+=($!)\n'
                         f'until [ -s "$OUT/{line}" ]; do kill -0 $!; sleep 0.02; done')
            if shown:
                shows.append((line, "\n".join(shown) + "..."))
        else:
            for offset, command, shown in told:
                run(line + 1 + offset, command, shown)
    parts.append('for process in "${STAYED[@]}"; do kill "$process"; done; wait')
    return "\n".join(parts) + "\n", shows


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return str(probe.getsockname()[1])


def shape(text):
    text = re.sub(r"\b[0-9a-f]{16}\b", "0", text)
    return re.sub(r"\d+(\.\d+)?", "0", re.sub(r"\s+", "", text))


def is_shown(shown, printed):
    return re.fullmatch(".*".join(re.escape(shape(part)) for part in shown.split("...")), shape(printed))


def tool(file, text):
    file.write_text("#!/bin/sh\n" + text, encoding="utf-8")
    file.chmod(0o755)


def workplace(document, program, folder, port):
    """Where its commands are run: their folder, the one for what they print, the one of their tools, and their environment.
    A controller that was not told otherwise listens on that port."""
    home, out, tools = (folder / name for name in ("home", "out", "bin"))
    for emptied in (out, tools, home / ".local", home / "examples", home / "share"):
        shutil.rmtree(emptied, ignore_errors=True)
    for made in (home, out, tools):
        made.mkdir(parents=True, exist_ok=True)
    for copied in ("examples", "share"):
        if (ROOT / copied).is_dir():
            shutil.copytree(ROOT / copied, home / copied)
    (home / ".curlrc").write_text("silent\nshow-error\n", encoding="utf-8")
    ports = f'case "$*" in *--port*) ;; serve*) set -- "$@" --port {port} ;; esac'
    tool(tools / "ixocut", f'{ports}\nexec {program} "$@"\n')
    tool(home / "run", '[ $# -gt 0 ] || set -- tour\nexec ixocut "$@"\n')
    settings = {"HOME": str(home), "OUT": str(out), "PATH": f"{tools}:/usr/bin:/bin", "LC_ALL": "C.UTF-8",
                "IXOCUT_LANG": LANGUAGES.get(document, "zh" if "/zh/" in document else "en"),
                **{name: value for name, value in os.environ.items() if name == "CXX" or name.startswith("CMAKE_")}}
    return home, out, tools, settings


def make_test(program, home, tools):
    """A ./test that is the checkout's, but that nothing is installed or built, and none of the build's tests does anything."""
    (home / "scripts").mkdir()
    for name in ("test", "scripts/packages.sh"):
        shutil.copy(ROOT / name, home / name)
    tool(tools / "dpkg-query", "echo installed\n")
    tool(tools / "cmake", "")
    build = home / "build/debug"
    build.mkdir(parents=True)
    # Asked from here: ctest would write its log into the other folder, which the one that runs this is writing.
    file = build / "CTestTestfile.cmake"
    file.write_text(f'subdirs("{program.parents[1]}")\n', encoding="utf-8")
    listed = subprocess.run(["ctest", "--show-only=json-v1"], cwd=build, check=True, capture_output=True, text=True)
    lines = []
    for test in json.loads(listed.stdout)["tests"]:
        labels = {one["name"]: one["value"] for one in test.get("properties", [])}.get("LABELS", [])
        lines += [f'add_test([==[{test["name"]}]==] /bin/true)',
                  f'set_tests_properties([==[{test["name"]}]==] PROPERTIES LABELS "{";".join(labels)}")']
    file.write_text("\n".join(lines), encoding="utf-8")


def run_commands(document, program, folder):
    """What was wrong, as (line, reason)."""
    text, shows = script(document)
    instead = {**HERE, **{port: free_port() for port in PORTS}}
    home, out, tools, settings = workplace(document, program, folder, instead[PORTS[0]])
    if not pathlib.Path(DATA).is_dir():
        text = text.replace(DATA, "share")
    for there, here in instead.items():
        text = re.sub(rf"\b{re.escape(there)}\b", here, text)
        if there in PORTS:  # in the files that come with it, too
            for file in home.glob("examples/**/*.xml"):
                file.write_text(re.sub(rf"\b{there}\b", here, file.read_text(encoding="utf-8")), encoding="utf-8")
    if "{ ./test\n" in text:
        make_test(program, home, tools)
    shell = subprocess.Popen(["bash", "-c", text], cwd=home, env=settings, stdin=subprocess.DEVNULL,
                             start_new_session=True)
    patience = BUILD_PATIENCE_S if "cmake --build" in text else PATIENCE_S
    try:
        status = shell.wait(patience)
    except subprocess.TimeoutExpired:
        status = f"no end after {patience} s"
    try:
        os.killpg(shell.pid, signal.SIGKILL)  # what a failure has left behind
    except ProcessLookupError:
        pass
    shell.wait()

    def printed(line):
        file = out / str(line)
        return file.read_text(encoding="utf-8", errors="replace").replace(str(home), "/home/li") if file.exists() else ""

    faults = []
    at = int((out / "at").read_text())
    if status != 0:
        faults.append((at, f"this failed ({status}):\n{printed(at)}"))
    for line, shown in shows:
        if line <= at and not is_shown(shown, printed(line)):
            faults.append((line, f"this printed instead:\n{printed(line)}"))
    return faults


def main():
    if len(sys.argv) > 2:
        program = pathlib.Path(sys.argv[2]).resolve()
        examples = pathlib.Path(sys.argv[4]).resolve() if sys.argv[3:4] == ["--examples"] else None
        for document in EXAMPLES if examples else sys.argv[3:] or DOCUMENTS:
            for attempt in range(2):  # once more where it failed: most of it is in real time
                with tempfile.TemporaryDirectory(prefix="ixo-docs-") as fresh:
                    faults = run_commands(document, program, examples or pathlib.Path(fresh).resolve())
                if not faults:
                    break
            for fault in faults:
                complain(document, *fault)
    else:
        check_places()
        check_links()
        check_dependencies()
        check_safety()
        check_kept()
        check_read()
        for document in [*DOCUMENTS, *EXAMPLES]:
            check_blocks(document)
    sys.exit(1 if wrong else 0)


if __name__ == "__main__":
    main()
