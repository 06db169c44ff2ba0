"""`corvid decode` and `corvid encode`, as a user and as a script calls them."""

import json
import os
import subprocess
import tempfile
import unittest
from pathlib import Path

CORVID = Path(os.environ["CORVID_BIN_DIR"], "corvid")
MESSAGE = {"badgeID": "synced", "path": {"$url": "file:///Volumes/Corvid/a%20b.txt"}}


def corvid(*arguments, data=b""):
    return subprocess.run([CORVID, *arguments], input=data, capture_output=True, check=False)


class Archives(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.scratch = Path(scratch.name)
        self.message = self.scratch / "message"
        self.message.write_bytes(corvid("encode", data=json.dumps(MESSAGE).encode()).stdout)

    def test_shows_a_tree(self):
        run = corvid("decode", self.message)
        self.assertEqual((run.returncode, run.stderr), (0, b""))
        self.assertEqual(run.stdout.decode(),
                         'dictionary of 2\n'
                         '  "badgeID": "synced"\n'
                         '  "path": URL file:///Volumes/Corvid/a%20b.txt\n')

    def test_says_a_line_for_each_file(self):
        broken = self.scratch / "broken"
        broken.write_bytes(self.message.read_bytes()[:100])
        missing = self.scratch / "missing"
        run = corvid("decode", "--json", self.message, broken, missing, self.scratch)
        self.assertEqual(run.returncode, 1)
        self.assertEqual([json.loads(line) for line in run.stdout.splitlines()], [
            {"file": str(self.message), "root": MESSAGE},
            {"file": str(broken), "error": "badTrailer", "at": {"byte": 75}},
            {"file": str(missing), "error": "unreadable", "at": None},
            {"file": str(self.scratch), "error": "unreadable", "at": None}])

    def test_says_why_a_file_cannot_be_read(self):
        for file, why in ((self.scratch / "missing", "No such file or directory"),
                          (self.scratch, "Is a directory")):
            run = corvid("decode", file)
            self.assertEqual((run.returncode, run.stdout), (1, b""))
            self.assertEqual(run.stderr.decode(), f"corvid decode: {file}: cannot be read: {why}\n")

    def test_reads_standard_input_and_writes_a_file(self):
        copy = self.scratch / "copy"
        run = corvid("encode", "-o", copy, data=json.dumps(MESSAGE).encode())
        self.assertEqual((run.returncode, run.stdout, run.stderr), (0, b"", b""))
        self.assertEqual(copy.read_bytes(), self.message.read_bytes())
        run = corvid("decode", "--json", "-", data=copy.read_bytes())
        self.assertEqual(json.loads(run.stdout), {"file": "-", "root": MESSAGE})

    def test_refuses_what_is_no_notation(self):
        for text, why in ((b'{"a":', "standard input is not JSON"),
                          (b'{"a": {"$url": "a b"}}', "a b")):
            run = corvid("encode", data=text)
            self.assertEqual((run.returncode, run.stdout), (1, b""))
            self.assertIn(why, run.stderr.decode())


if __name__ == "__main__":
    unittest.main()
