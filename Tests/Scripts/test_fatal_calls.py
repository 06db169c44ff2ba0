"""Every state that stops the process is on one list, and a test sees each of them stop it."""

import re
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]

# What the system treats as impossible.
CONDITIONS = {
    "Source/App/Reporting/AppReportingService.cpp": ["there is no shared reporting service"],
    "Source/App/Logging/CVMALogFileManager.cpp": [
        "Use of unimplemented initializer 'init(logsDirectory:)' for class "
        "'CorvidFinderExt.CVMALogFileManager'",
        "there is no library folder to keep logs in",
        "the main bundle has no identifier to name the logs folder by",
        "a log file manager without a base name was asked for a file name",
        "a log file can be recognised only by a name and a base name"],
    "Source/Core/Utility/Extensions/PathStrings.cpp": [
        "truncateString: a text cannot have a negative length"],
    "Source/Extensions/Finder/CVMABadgeHandler.cpp": [
        "the host application pushed an unknown badge"],
    "Source/Extensions/Finder/CVMAFinderSync.cpp": [
        "a badge's image is missing from the bundle",
        "the controller has gone while it starts",
        "a menu was asked for without a selection",
        "an action was performed without a selection"],
    "Source/Extensions/Finder/CVMAMessagePort.cpp": [
        "the host application answered a badge request with an unknown badge"],
}

# A program that is wired wrongly, or a system that fails it; named in docs/decisions.md.
PLATFORM_EDGE = {
    "Source/Platform/Interfaces/FIFinderSyncController.cpp": [
        "no Finder Sync controller is installed"],
    "Source/Platform/Interfaces/Platform.cpp": ["no platform is installed"],
    "Source/Platform/Unix/UnixProcessInfo.cpp": ["the system's random source failed"],
}
# No test can take the random source away from a process.
UNTESTED = {"the system's random source failed"}

LITERALS = r'((?:"(?:[^"\\]|\\.)*"\s*)+)'


def text_of(literals):
    """What adjacent string literals of C++ say together."""
    parts = re.findall(r'"((?:[^"\\]|\\.)*)"', literals)
    return "".join(parts).replace('\\"', '"').replace("\\\\", "\\")


def sources(folder, *endings):
    return [path for path in sorted((ROOT / folder).rglob("*")) if path.suffix in endings]


class FatalCalls(unittest.TestCase):
    def test_the_calls_are_the_list(self):
        found = {}
        for path in sources("Source", ".cpp", ".h", ".mm") + sources("Tools", ".cpp", ".h"):
            if path.name in ("Fatal.h", "Fatal.cpp"):
                continue
            code = re.sub(r"//[^\n]*", "", path.read_text())
            for call in re.finditer(r"\bfatal\(\s*" + LITERALS + "?", code):
                text = text_of(call.group(1) or "")
                self.assertTrue(text, f"{path}: a fatal call says a text that is written out")
                found.setdefault(str(path.relative_to(ROOT)), []).append(text)
        self.assertEqual(found, {**CONDITIONS, **PLATFORM_EDGE})

    def test_each_is_seen_to_stop_a_process(self):
        patterns = [text_of(match.group(1))
                    for path in sources("Tests", ".cpp", ".mm")
                    for match in re.finditer(r"(?:EXPECT|ASSERT)_DEATH\(.*?,\s*" + LITERALS + r"\)\s*(?:;|<<)",
                                             path.read_text(), re.S)]
        for texts in [*CONDITIONS.values(), *PLATFORM_EDGE.values()]:
            for text in texts:
                if text not in UNTESTED:
                    self.assertTrue(any(re.search(pattern, "fatal: " + text)
                                        for pattern in patterns),
                                    f"no test expects the process to stop with: {text}")

    def test_the_platform_edge_is_documented(self):
        decisions = (ROOT / "docs" / "decisions.md").read_text()
        decisions = re.sub(r"\s+", " ", decisions)
        for texts in PLATFORM_EDGE.values():
            for text in texts:
                self.assertIn(text, decisions)


if __name__ == "__main__":
    unittest.main()
