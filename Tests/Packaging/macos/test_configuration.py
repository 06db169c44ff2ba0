"""What CMake would build on macOS, read from the files that it generates there. CMake runs for
real; no compiler does, so this says nothing about whether the sources compile on a Mac."""

import os
import plistlib
import re
import subprocess
import tempfile
import unittest
from pathlib import Path

SOURCE = Path(os.environ["CORVID_SOURCE"])


class MacConfiguration(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.build = Path(cls.folder.name).resolve()
        toolchain = Path(__file__).with_name("StubToolchain.cmake")
        subprocess.run(["cmake", "-S", SOURCE, "-B", cls.build, "-G", "Ninja", "-Wno-dev",
                        f"-DCMAKE_TOOLCHAIN_FILE={toolchain}",
                        "-DCMAKE_OSX_ARCHITECTURES=arm64;x86_64",
                        "-DCMAKE_OSX_DEPLOYMENT_TARGET=12.0"],
                       check=True, stdout=subprocess.DEVNULL)
        cls.ninja = (cls.build / "build.ninja").read_text()

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def statement(self, output):
        """Inputs and variables of what makes `output`."""
        match = re.search(rf"^build {re.escape(output)}: (.*)\n((?:  .*\n)*)", self.ninja, re.M)
        self.assertIsNotNone(match, f"nothing makes {output}")
        variables = dict(re.findall(r"^  (\w+) = (.*)$", match[2], re.M))
        return match[1].split(" | ")[0].split(" || ")[0].split()[1:], variables

    def sources(self):
        return set(re.findall(rf"^build \S+\.o: \S+ {re.escape(str(SOURCE))}/(\S+)", self.ninja,
                              re.M))

    def test_every_source_of_the_shell_is_compiled_and_none_of_another_system(self):
        for folder in ("Source/Platform/Mac", "Source/Extensions/Finder/Mac"):
            for file in (SOURCE / folder).iterdir():
                if file.suffix in (".mm", ".cpp"):
                    self.assertIn(f"{folder}/{file.name}", self.sources())
        posix = {f"Source/Platform/Unix/{name}.cpp"
                 for name in ("FatalSignals", "UnixAppendFile", "UnixClock", "UnixProcessInfo")}
        self.assertEqual({file for file in self.sources() if "/Unix/" in file}, posix)
        self.assertFalse([file for file in self.sources() if file.startswith(("Tools", "Tests"))])

    def test_both_architectures_with_automatic_reference_counting(self):
        _, variables = self.statement(
            "Source/Extensions/Finder/Mac/CMakeFiles/corvid_finder_mac.dir/CVMAFinderSync.mm.o")
        for flag in ("-arch arm64", "-arch x86_64", "-mmacosx-version-min=12.0", "-fobjc-arc"):
            self.assertIn(flag, variables["FLAGS"])

    def test_the_extension_is_linked_as_one(self):
        inputs, variables = self.statement(
            "bin/CorvidFinderExt.appex/Contents/MacOS/CorvidFinderExt")
        objects = [file for file in inputs if file.endswith("CVMAFinderSync.mm.o")]
        self.assertEqual(len(objects), 1)
        self.assertIn("-e _NSExtensionMain", variables["LINK_FLAGS"])
        for framework in ("Foundation", "AppKit", "FinderSync"):
            self.assertIn(f"-framework {framework}", variables["LINK_LIBRARIES"])

    def test_the_extension_is_filled_and_signed_with_its_entitlements(self):
        _, variables = self.statement("bin/CorvidFinderExt.appex/Contents/MacOS/CorvidFinderExt")
        steps = variables["POST_BUILD"]
        resources = "bin/CorvidFinderExt.appex/Contents/Resources"
        for what in ("badges", "MorrowFilesAppIcon.png", *(
                table.parent.name for table in
                (SOURCE / "Resources").glob("*.lproj/Localizable.strings"))):
            self.assertRegex(steps, rf"{what} \S*{resources}")
        self.assertRegex(steps, r"sign\.sh \S*CorvidFinderExt\.appex \S*\.entitlements$")

    def test_the_application_carries_the_extension_and_is_signed_last(self):
        _, variables = self.statement("bin/Corvid.app/Contents/MacOS/Corvid")
        self.assertRegex(
            variables["POST_BUILD"],
            r"CorvidFinderExt\.appex \S*Corvid\.app/Contents/PlugIns/CorvidFinderExt\.appex && "
            r"\S*sign\.sh \S*Corvid\.app$")

    def test_the_property_lists_are_in_place(self):
        for bundle, identifier in (("CorvidFinderExt.appex", "com.corvid.desktop.widget.FinderExt"),
                                   ("Corvid.app", "com.corvid.desktop.widget")):
            with (self.build / "bin" / bundle / "Contents/Info.plist").open("rb") as file:
                information = plistlib.load(file)
            self.assertEqual(information["CFBundleIdentifier"], identifier)
            self.assertEqual(information["LSMinimumSystemVersion"], "12.0")


if __name__ == "__main__":
    unittest.main()
