"""What the build has drawn: every name that a program or file manager asks for, at its size."""

import os
import struct
import unittest
import zlib
from pathlib import Path

SHARE = Path(os.environ["CORVID_SHARE"])
BADGES = ("cloud", "inProgress", "checkedOut", "finishedTransfer", "error", "accessDenied",
          "synced", "syncedpartial")
ICON_FILES = ("syncing", "checkout", "error", "accessdenied", "synced", "syncedpartial")


def size_of(png):
    assert png[:8] == b"\x89PNG\r\n\x1a\n" and png[12:16] == b"IHDR"
    return struct.unpack(">II", png[16:24])


def pixels(png):
    """Rows of (red, green, blue, alpha) of an 8-bit RGBA picture without interlace."""
    width, height = size_of(png)
    assert png[24:26] == b"\x08\x06" and png[28] == 0
    data, position = b"", 8
    while position < len(png):
        length = struct.unpack(">I", png[position:position + 4])[0]
        if png[position + 4:position + 8] == b"IDAT":
            data += png[position + 8:position + 8 + length]
        position += 12 + length
    raw, rows, above = zlib.decompress(data), [], bytes(width * 4)
    for y in range(height):
        kind = raw[y * (width * 4 + 1)]
        row = bytearray(raw[y * (width * 4 + 1) + 1:(y + 1) * (width * 4 + 1)])
        for x in range(width * 4):
            a, b, c = row[x - 4] if x > 3 else 0, above[x], above[x - 4] if x > 3 else 0
            p = a + b - c
            nearest = min((abs(p - a), 0, a), (abs(p - b), 1, b), (abs(p - c), 2, c))[2]
            row[x] = (row[x] + (0, a, b, (a + b) // 2, nearest)[kind]) & 255
        rows.append([tuple(row[x:x + 4]) for x in range(0, width * 4, 4)])
        above = bytes(row)
    return rows


def greys(png):
    """The picture on white, without colour."""
    return [255 - alpha + alpha * (0.3 * red + 0.59 * green + 0.11 * blue) / 255
            for row in pixels(png) for red, green, blue, alpha in row]


class Emblems(unittest.TestCase):
    def test_every_badge_has_one_at_every_size(self):
        for size in (16, 24, 32, 48, 64):
            folder = SHARE / f"icons/hicolor/{size}x{size}/emblems"
            self.assertEqual({file.name for file in folder.iterdir()},
                             {f"emblem-corvid-{badge}.png" for badge in BADGES})
            for file in folder.iterdir():
                self.assertEqual(size_of(file.read_bytes()), (size, size), file)

    def test_they_differ_at_16_pixels_without_colour(self):
        folder = SHARE / "icons/hicolor/16x16/emblems"
        seen = {badge: greys((folder / f"emblem-corvid-{badge}.png").read_bytes())
                for badge in BADGES}
        for one in BADGES:
            for other in BADGES:
                if one < other:
                    different = sum(abs(a - b) > 48 for a, b in zip(seen[one], seen[other]))
                    self.assertGreater(different, 256 // 8, f"{one} looks like {other}")


class IconFiles(unittest.TestCase):
    def test_hold_a_picture_of_the_size_that_each_element_says(self):
        sizes = {b"icp4": 16, b"icp5": 32, b"icp6": 64, b"ic07": 128, b"ic08": 256, b"ic11": 32,
                 b"ic12": 64}
        for name in ICON_FILES:
            data = (SHARE / f"corvid/badges/FinderSyncExtensionIcons_{name}.icns").read_bytes()
            self.assertEqual(data[:4], b"icns")
            self.assertEqual(struct.unpack(">I", data[4:8])[0], len(data))
            found, position = {}, 8
            while position < len(data):
                kind, length = data[position:position + 4], struct.unpack(
                    ">I", data[position + 4:position + 8])[0]
                found[kind] = size_of(data[position + 8:position + length])[0]
                position += length
            self.assertEqual(found, sizes, name)

    def test_cloud_and_menu_icon_are_plain_pictures_of_16_pixels(self):
        for name in ("badges/Cloud_icon_16.png", "MorrowFilesAppIcon.png"):
            self.assertEqual(size_of((SHARE / "corvid" / name).read_bytes()), (16, 16), name)


if __name__ == "__main__":
    unittest.main()
