"""The files of the extension's bundle, as far as they can be judged without a Mac."""

import os
import plistlib
import re
import struct
import unittest
from pathlib import Path

SOURCE = Path(os.environ["CORVID_SOURCE"])
CONFIGURED = Path(os.environ["CORVID_CONFIGURED"])  # where CMake wrote the property lists
SHARE = Path(os.environ["CORVID_SHARE"])
VERSION = os.environ["CORVID_VERSION"]

PACKAGING = SOURCE / "Packaging/macos"
PORT_NAMES = (SOURCE / "Source/Extensions/Finder/CVMAMessagePortID.h").read_text()
BADGES = (SOURCE / "Source/Extensions/Finder/CVMABadgeID.cpp").read_text()
SHELL = (SOURCE / "Source/Extensions/Finder/Mac/CVMAFinderSync.h").read_text()
CMAKE = (PACKAGING / "CMakeLists.txt").read_text()


def property_list(path):
    with path.open("rb") as file:
        return plistlib.load(file)


def string_table(path):
    """Key and text of each entry of a .strings file, which must hold nothing else but comments."""
    text = path.read_text(encoding="utf-8")
    entry = r'\s*"((?:[^"\\]|\\.)*)"\s*=\s*"((?:[^"\\]|\\.)*)"\s*;'
    bare = re.sub(r"/\*.*?\*/", "", text, flags=re.DOTALL)
    entries = re.findall(entry, bare)
    rest = re.sub(entry, "", bare).strip()
    if rest:
        raise ValueError(f"{path}: not an entry: {rest!r}")
    keys = [key for key, _ in entries]
    if len(set(keys)) != len(keys):
        raise ValueError(f"{path}: a key stands there twice")
    return dict(entries)


class InformationLists(unittest.TestCase):
    COMMON = {
        "CFBundleDevelopmentRegion": "en",
        "CFBundleDisplayName": "Corvid",
        "CFBundleInfoDictionaryVersion": "6.0",
        "CFBundleShortVersionString": VERSION,
        "CFBundleSupportedPlatforms": ["MacOSX"],
        "CFBundleVersion": VERSION,
        "NSPrincipalClass": "NSApplication",
    }

    def check(self, name, expected):
        actual = property_list(CONFIGURED / name)
        minimum = actual.pop("LSMinimumSystemVersion")
        self.assertRegex(minimum, r"^\d+\.\d+$")
        self.assertEqual(actual, self.COMMON | expected)

    def test_extension(self):
        self.check("Extension-Info.plist", {
            "CFBundleExecutable": "CorvidFinderExt",
            "CFBundleIdentifier": "com.corvid.desktop.widget.FinderExt",
            "CFBundleName": "CorvidFinderExt",
            "CFBundlePackageType": "XPC!",
            "LSUIElement": True,
            "NSExtension": {
                "NSExtensionAttributes": {},
                "NSExtensionPointIdentifier": "com.apple.FinderSync",
                "NSExtensionPrincipalClass": "CVMAFinderSync",
            },
        })

    def test_application(self):
        self.check("Application-Info.plist", {
            "CFBundleExecutable": "Corvid",
            "CFBundleIdentifier": "com.corvid.desktop.widget",
            "CFBundleName": "Corvid",
            "CFBundlePackageType": "APPL",
            "NSHighResolutionCapable": True,
        })

    def test_extension_belongs_to_application(self):
        # The system takes no extension whose identifier does not begin with its application's.
        extension = property_list(CONFIGURED / "Extension-Info.plist")["CFBundleIdentifier"]
        application = property_list(CONFIGURED / "Application-Info.plist")["CFBundleIdentifier"]
        self.assertTrue(extension.startswith(application + "."))

    def test_names_agree_with_the_build(self):
        extension = property_list(CONFIGURED / "Extension-Info.plist")
        principal = extension["NSExtension"]["NSExtensionPrincipalClass"]
        self.assertRegex(SHELL, rf"@interface {principal} : FIFinderSync\b")
        self.assertIn(f"add_executable({extension['CFBundleExecutable']} MACOSX_BUNDLE", CMAKE)
        application = property_list(CONFIGURED / "Application-Info.plist")
        self.assertIn(f"add_executable({application['CFBundleExecutable']} MACOSX_BUNDLE", CMAKE)


class Entitlements(unittest.TestCase):
    def test_grant_what_the_code_uses_and_no_more(self):
        host_port, group = re.search(
            r'value_ == volumekeeper \? "([^"]+)"\s*:\s*"([^"]+)"', PORT_NAMES).groups()
        self.assertEqual(property_list(PACKAGING / "CorvidFinderExt.entitlements"), {
            "com.apple.security.app-sandbox": True,
            "com.apple.security.application-groups": [group],
            "com.apple.security.temporary-exception.mach-lookup.global-name": [host_port],
        })


class Images(unittest.TestCase):
    # Elements of an icns file that a badge must have, with their pixels: 16, 32 and 128 points,
    # each with the picture of double size for fine displays.
    REQUIRED = {b"icp4": 16, b"ic11": 32, b"icp5": 32, b"ic12": 64, b"ic07": 128, b"ic08": 256}

    def png_size(self, data, name):
        self.assertEqual(data[:8], b"\x89PNG\r\n\x1a\n", name)
        return struct.unpack(">II", data[16:24])

    def icon_elements(self, data, name):
        kind, length = struct.unpack(">4sI", data[:8])
        self.assertEqual((kind, length), (b"icns", len(data)), name)
        elements, position = {}, 8
        while position < length:
            kind, size = struct.unpack(">4sI", data[position:position + 8])
            self.assertGreater(size, 8, name)
            elements[kind] = data[position + 8:position + size]
            position += size
        self.assertEqual(position, length, name)
        return elements

    def test_every_badge_has_its_picture(self):
        names = set(re.findall(r'\{"\w+", "[^"]+", "([^"]+)"\}', BADGES))
        self.assertEqual(len(names), 7)
        for name in names:
            if not name.endswith(".icns"):
                data = (SHARE / f"corvid/badges/{name}.png").read_bytes()
                self.assertEqual(self.png_size(data, name), (16, 16), name)
                continue
            elements = self.icon_elements((SHARE / "corvid/badges" / name).read_bytes(), name)
            for kind, size in self.REQUIRED.items():
                self.assertEqual(self.png_size(elements[kind], name), (size, size), name)

    def test_menu_icon(self):
        data = (SHARE / "corvid/MorrowFilesAppIcon.png").read_bytes()
        self.assertEqual(self.png_size(data, "menu icon"), (16, 16))

    def test_every_picture_goes_into_the_bundle(self):
        self.assertIn('"${artwork}/badges" "${resources}"', CMAKE)
        self.assertIn('"${artwork}/MorrowFilesAppIcon.png" "${resources}"', CMAKE)


class StringTables(unittest.TestCase):
    KEYS = {"Global_Favorites", "CVMAOnboardingFinderItem_SharedFolders",
            "CVMAOnboardingFinderItem_PersonalFolders"}

    def test_every_language_has_every_key(self):
        tables = sorted((SOURCE / "Resources").glob("*.lproj/Localizable.strings"))
        self.assertGreaterEqual(len(tables), 9)
        self.assertIn(SOURCE / "Resources/en.lproj/Localizable.strings", tables)
        for table in tables:
            entries = string_table(table)
            self.assertEqual(set(entries), self.KEYS, table)
            for key, text in entries.items():
                # A text becomes the name of a folder.
                self.assertTrue(text.strip() and "/" not in text, f"{table}: {key}")


class Signing(unittest.TestCase):
    def test_inside_out(self):
        extension = CMAKE.index('"$<TARGET_BUNDLE_DIR:CorvidFinderExt>"\n          '
                                '"${CMAKE_CURRENT_SOURCE_DIR}/CorvidFinderExt.entitlements"')
        application = CMAKE.index('"${sign}" "$<TARGET_BUNDLE_DIR:Corvid>"')
        self.assertLess(extension, application)


if __name__ == "__main__":
    unittest.main()
