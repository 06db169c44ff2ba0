"""Every test that docs/threat-model.md names exists."""

import re
import unittest
from pathlib import Path

ROOT = Path(__file__).parents[2]


def sources():
    for folder in ("Tests", "Fuzzers"):
        for file in sorted((ROOT / folder).rglob("*")):
            if file.suffix in (".cpp", ".mm", ".py", ".h"):
                yield file.read_text(encoding="utf-8", errors="replace")


class ThreatModel(unittest.TestCase):
    def test_names_tests_that_exist(self):
        page = (ROOT / "docs" / "threat-model.md").read_text(encoding="utf-8")
        text = "\n".join(sources())
        known = set(re.findall(r"\bTEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\s*\)", text))
        methods = set(re.findall(r"def (test_\w+)\(", text))
        count = 0
        for name in set(re.findall(r"`([^`]+)`", page)):
            if match := re.fullmatch(r"(?:\w+/)?([A-Z]\w+)\.(\w+)", name):
                self.assertIn(match.groups(), known, name)
                count += 1
            elif re.fullmatch(r"test_\w+", name) and name != "test_":
                self.assertIn(name, methods)
                count += 1
            elif re.fullmatch(r"test_\w+\.py", name):
                self.assertTrue((ROOT / "Tests" / "EndToEnd" / name).is_file(), name)
        self.assertGreater(count, 100)


unittest.main()
