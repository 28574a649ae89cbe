"""What the documents tell to type beside a LinuxCNC, in their blocks ```console linuxcnc: typed as it stands, line by line
in a terminal, where every question is answered with yes. Each command succeeds and prints what is shown."""
import os
import pathlib
import pty
import re
import select
import sys
import tempfile
import time
import unittest

import fixture

sys.path.insert(0, str(fixture.ROOT / "tests"))
import check_docs  # noqa: E402

LEFT_OUT = {"./scripts/linuxcnc proof": "it takes 50 minutes; drawn.py runs a part of it"}
WITHIN_S = 60
QUESTION = "y: yes, q: end, else no: "


class Terminal:
    """A person's: a shell on a pseudo-terminal, and in it those that scripts/linuxcnc opens."""

    def __init__(self, folder, settings):
        self.text = ""
        self.opened = 0
        shell = [*fixture.first(), "bash", "--norc", "--noprofile"]
        self.process, self.end = pty.fork()
        if self.process == 0:
            os.chdir(folder)
            os.execvpe(shell[0], shell, settings)

    def type(self, text):
        os.write(self.end, text.encode() + b"\n")

    def read(self, pattern):
        """What stands there by then; answers questions meanwhile."""
        until, answered = time.monotonic() + WITHIN_S, 0
        while not (found := re.search(pattern, self.text, re.MULTILINE | re.DOTALL)):
            if time.monotonic() > until:
                raise TimeoutError(f"within {WITHIN_S} s no end of:\n{self.text}")
            if select.select([self.end], [], [], 0.1)[0]:
                self.text += os.read(self.end, 65536).decode(errors="replace").replace("\r\n", "\n")
            if self.text.endswith(QUESTION) and self.text.count(QUESTION) > answered:
                answered = self.text.count(QUESTION)
                self.type("y")
        self.text = self.text[found.end():]
        return found

    def run(self, command):
        """Its exit code, and what it has printed."""
        if re.search(r"\bbash$", command):
            # The next line is the opened shell's, or this one's where none was opened.
            self.type(f'{command}\necho "exit $?"')
            found = self.read(r"^(.*)^exit (\d+)$")
            self.opened += found[2] == "0"
        else:
            # Read to its end before it begins, it leaves what is typed meanwhile to the command.
            self.type(f'{{ echo begins\n{command}\n}}; echo "exit $?"')
            found = self.read(r"^begins\n(.*)^exit (\d+)$")
        return int(found[2]), found[1]

    def close(self):
        """The exit codes of the opened shells."""
        codes = []
        for _ in range(self.opened):
            self.type('exit\necho "exit $?"')
            codes.append(int(self.read(r"^exit (\d+)$")[1]))
        return codes

    def hang_up(self):
        os.close(self.end)
        os.waitpid(self.process, 0)


def typed(document):
    """(line, command, what it prints)"""
    for line, _, what, inside in check_docs.blocks(document):
        for offset, command, shown in check_docs.commands(inside) if what == "linuxcnc" else ():
            yield line + 1 + offset, re.sub(r"\s+# .*", "", command), "\n".join(shown)


class Documents(unittest.TestCase):
    def held(self, document, commands, folder):
        home, _, _, settings = check_docs.workplace(document, os.environ["IXOCUT"], folder, check_docs.PORTS[0])
        (home / "scripts").symlink_to(fixture.ROOT / "scripts")
        terminal = Terminal(home, settings | {"IXOCUT_HAL": os.environ["IXOCUT_HAL"], "TERM": "dumb"})
        try:
            for line, command, shown in commands:
                code, printed = terminal.run(command)
                if code == fixture.CANNOT:
                    self.skipTest(printed)
                self.assertEqual(code, 0, f"{document}:{line}: {command}\n{printed}")
                self.assertTrue(not shown or check_docs.is_shown(shown, printed),
                                f"{document}:{line}: this printed instead:\n{printed}")
            self.assertFalse(any(terminal.close()), document)
        finally:
            terminal.hang_up()

    def test_what_they_tell_to_type_works(self):
        left_out = set()
        for document in [*check_docs.DOCUMENTS, *check_docs.EXAMPLES]:
            commands = list(typed(document))
            left_out |= {command for _, command, _ in commands} & set(LEFT_OUT)
            commands = [each for each in commands if each[1] not in LEFT_OUT]
            if commands:
                with self.subTest(document), tempfile.TemporaryDirectory(prefix="ixo-docs-") as folder:
                    self.held(document, commands, pathlib.Path(folder).resolve())
        self.assertEqual(left_out, set(LEFT_OUT), "is in no document any more")


if __name__ == "__main__":
    unittest.main()
