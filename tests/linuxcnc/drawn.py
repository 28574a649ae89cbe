"""A part of scripts/linuxcnc proof, drawn by the commit's hash: 16 ended procedures, each failure and each kill once."""
import os
import subprocess
import tempfile
import unittest

import fixture


def commit():
    ran = subprocess.run(["git", "-C", str(fixture.ROOT), "rev-parse", "HEAD"], capture_output=True, text=True)
    return ran.stdout.strip() or "no commit"


class Drawn(unittest.TestCase):
    def test_every_drawn_point_is_as_it_has_to_be(self):
        with tempfile.TemporaryDirectory() as folder:
            ran = fixture.beside("proof", "--sample", commit(), "--again", "2", "--table",
                                 os.path.join(folder, "table.jsonl"), within_s=450)
        print(ran.stdout)
        self.assertEqual(ran.returncode, 0, ran.stdout + ran.stderr)


if __name__ == "__main__":
    unittest.main()
