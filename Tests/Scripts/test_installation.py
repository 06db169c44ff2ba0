"""What `cmake --install` puts in place, that the uninstall target takes all of it away, and what
the modules for file managers need."""

import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ["CORVID_BIN_DIR"]).parent


LIBRARY = re.compile(r"[\w.+-]+\.so\.[\d.]+")


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def files_below(folder):
    return {str(path.relative_to(folder)) for path in folder.rglob("*") if not path.is_dir()}


class Installation(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory(prefix="corvid-installation-")
        self.addCleanup(scratch.cleanup)
        self.scratch = Path(scratch.name)
        self.prefix = self.scratch / "a prefix"
        # A theme that is in use: it has all sizes, and a cache of their icons.
        self.theme = self.prefix / "share/icons/hicolor"
        self.cache = self.theme / "icon-theme.cache"
        for folder in (BUILD / "share/icons/hicolor").iterdir():
            (self.theme / folder.name).mkdir(parents=True)
        self.cache.touch()
        # The list of what was installed is the developer's; this test works with one of its own.
        manifest = BUILD / "install_manifest_programs.txt"
        developers = manifest.read_bytes() if manifest.exists() else None
        subprocess.run(["cmake", "--install", BUILD, "--component", "programs", "--prefix",
                        self.prefix], check=True, stdout=subprocess.DEVNULL)
        (self.scratch / manifest.name).write_bytes(manifest.read_bytes())
        manifest.unlink()
        if developers is not None:
            manifest.write_bytes(developers)

    def test_everything_is_there_and_goes_again(self):
        installed = files_below(self.prefix)
        for file in ("bin/corvid-finder-ext", "bin/corvid",
                     "share/systemd/user/corvid-finder-ext.service",
                     "share/icons/hicolor/16x16/emblems/emblem-corvid-synced.png",
                     "share/icons/hicolor/16x16/apps/MorrowFilesAppIcon.png"):
            self.assertIn(file, installed)
        for module in (BUILD / "modules").glob("*/*.so"):
            folder = output("pkg-config", "--variable=extensiondir", {
                "caja": "libcaja-extension", "nemo": "libnemo-extension",
                "nautilus": "libnautilus-extension-4"}[module.parent.name]).strip()
            self.assertIn(f"{folder.removeprefix('/usr/')}/{module.name}", installed)
        unit = (self.prefix / "share/systemd/user/corvid-finder-ext.service").read_text()
        self.assertIn(f'ExecStart="{self.prefix}/bin/corvid-finder-ext"', unit)
        subprocess.run(["cmake", "-P", ROOT / "cmake/Uninstall.cmake"], check=True,
                       cwd=self.scratch, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.assertFalse(self.is_found("emblem-corvid-synced"))
        self.cache.unlink(missing_ok=True)
        self.assertEqual(files_below(self.prefix), set())

    def is_found(self, icon):
        """Whether a desktop finds it: one looks into the folders only when there is no cache, or an
        older one."""
        if (self.cache.exists()
                and self.cache.stat().st_mtime_ns >= self.theme.stat().st_mtime_ns):
            return icon.encode() in self.cache.read_bytes()
        return bool(list(self.theme.rglob(f"{icon}.png")))

    def test_desktops_find_the_icons(self):
        self.assertTrue(self.is_found("emblem-corvid-synced"))
        self.assertTrue(self.is_found("MorrowFilesAppIcon"))

    def test_a_front_end_needs_the_library_of_cpp_alone(self):
        front_end = BUILD / "tests/libcorvid-front-end.so"
        if not front_end.exists():
            self.skipTest("no module is built")
        self.assertIn("BadgeCache", output("nm", "--demangle", front_end))
        self.assertLessEqual(set(LIBRARY.findall(output("readelf", "-d", front_end))), {
            "libstdc++.so.6", "libgcc_s.so.1", "libm.so.6", "libc.so.6", "ld-linux-x86-64.so.2",
            "ld-linux-aarch64.so.1"})

    def test_modules_bring_nothing_along(self):
        for module in sorted((BUILD / "modules").glob("*/*.so")):
            name = module.parent.name
            with self.subTest(name):
                exported = output("nm", "-D", "--defined-only", "--format=posix", module)
                self.assertEqual({line.split()[0] for line in exported.splitlines()},
                                 {f"{name}_module_{entry}"
                                  for entry in ("initialize", "shutdown", "list_types")})
                manager = shutil.which(name)
                if not manager:
                    self.skipTest(f"{name} is not installed")
                there = set(LIBRARY.findall(output("ldd", manager)))
                needed = set(LIBRARY.findall(output("readelf", "-d", module)))
                self.assertLessEqual(needed - there, {"libstdc++.so.6", "libgcc_s.so.1"})


if __name__ == "__main__":
    unittest.main()
