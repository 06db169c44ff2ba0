"""The rules that lint holds source files to, each with a neighbour that is allowed."""

import sys
import tempfile
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "script" / "lib"))
import figures  # noqa: E402
import layers  # noqa: E402
import source_rules  # noqa: E402


class Layers(unittest.TestCase):
    def test_order(self):
        for layer, target, allowed in (
                ("Core/Archive", "Core/Base", True),
                ("Core/Base", "Core/Archive", False),
                ("Platform/Unix", "Platform/Interfaces", True),
                ("Platform/Interfaces", "Platform/Unix", False),
                ("Platform/Unix", "Platform/Mac", False),
                ("Platform/Mac", "Platform/Unix", True),
                ("Platform/Unix", "Platform/Fake", False),
                ("Extensions/Finder", "App/Logging", True),
                ("App/Logging", "Extensions/Finder", False),
                ("HostKit", "Extensions/FileManagers", True),
                ("Tools", "HostKit", True),
                ("Tools", "Platform/Fake", False)):
            self.assertEqual(layers.is_allowed(layer, target), allowed, (layer, target))

    def test_layer_of_a_file(self):
        for path, layer in (("Source/Core/Base/URL.h", "Core/Base"),
                            ("Source/Extensions/FinderLike/A.h", None),
                            ("Source/Extensions/Finder/Mac/A.mm", "Extensions/Finder"),
                            ("Tools/corvid/main.cpp", "Tools"),
                            ("Tests/Core/Base/URLTest.cpp", None)):
            self.assertEqual(layers.layer_of(Path(path)), layer, path)


class Rules(unittest.TestCase):
    def breaches(self, path, text):
        with tempfile.TemporaryDirectory() as folder:
            (Path(folder) / path).parent.mkdir(parents=True)
            (Path(folder) / path).write_text(text)
            root, layers.ROOT = layers.ROOT, Path(folder)
            try:
                return [reason for _, reason in source_rules.breaches(Path(path))]
            finally:
                layers.ROOT = root

    def test_each_line(self):
        for path, text, breached in (
                ("Source/Core/Base/A.cpp", "#include <unistd.h>\n", True),
                ("Source/Platform/Unix/A.cpp", "#include <unistd.h>\n", False),
                ("Source/Core/Base/A.cpp", "#include <cstdio>\n", False),
                ("Source/Core/Base/A.cpp", "auto t = std::chrono::steady_clock::now();\n", True),
                ("Source/Extensions/Finder/A.cpp", "#include <Foundation/Foundation.h>\n", True),
                ("Source/Extensions/Finder/Mac/A.mm", "#include <Foundation/Foundation.h>\n",
                 False),
                ("Tools/corvid/A.cpp", "#ifdef __linux__\n", True),
                ("Tools/corvid/A.cpp", "#ifdef CORVID_VERSION\n", False),
                ("Source/Platform/Unix/A.cpp", "#ifdef __linux__\n", False),
                ("Tests/Core/A.cpp", "std::this_thread::sleep_for(1s);\n", True),
                ("Tests/Core/A.cpp", "EXPECT_EQ(countSleep(), 1);\n", False),
                ("Source/Core/Base/A.cpp", "// TO" + "DO later\n", True),
                ("Source/Core/Base/A.h", "struct A;\n", True),
                ("Source/Core/Base/A.h", "#pragma once\n", False)):
            self.assertEqual(bool(self.breaches(path, text)), breached, (path, text))


class Figures(unittest.TestCase):
    def test_goal(self):
        for value, goal, better, met in ((1, 2, "lower", True), (3, 2, "lower", False),
                                         (3, 2, "higher", True), (1, 2, "higher", False),
                                         (2, 2, "lower", True), (9, None, "lower", True)):
            self.assertEqual(figures.meets({"value": value, "goal": goal, "better": better}), met)


if __name__ == "__main__":
    unittest.main()
