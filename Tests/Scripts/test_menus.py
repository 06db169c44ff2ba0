"""The menus that are kept here are those that make_menus.py writes."""

import sys
import tempfile
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
FOLDER = Path(__file__).parents[1] / "Data" / "menus"
sys.path.insert(0, str(FOLDER))

import make_menus  # noqa: E402


class Menus(unittest.TestCase):
    def test_are_those_that_are_written(self):
        with tempfile.TemporaryDirectory() as folder:
            make_menus.write(folder)
            written = {file.name: file.read_bytes() for file in Path(folder).iterdir()}
        kept = {file.name: file.read_bytes() for file in FOLDER.iterdir()
                if file.suffix in (".plist", ".json")}
        self.assertEqual(sorted(written), sorted(kept))
        for name, content in written.items():
            self.assertEqual(content, kept[name], f"{name}: run make_menus.py {FOLDER}")


unittest.main()
