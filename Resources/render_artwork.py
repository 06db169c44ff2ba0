#!/usr/bin/env python3
"""Renders the SVG sources beside this file into what the programs and file managers load.

    render_artwork.py OUTPUT          everything below OUTPUT (a share folder)
    render_artwork.py --sheet FILE    one PNG that shows every badge, for the documents

Needs rsvg-convert (Debian: librsvg2-bin, Homebrew: librsvg).
"""

import argparse
import re
import struct
import subprocess
import sys
from pathlib import Path

SOURCES = Path(__file__).resolve().parent
EMBLEM_SIZES = (16, 24, 32, 48, 64)

# Resource name of each badge's picture -> its source. The finished-transfer badge shares the
# picture of synced under its resource name; as an emblem it has a picture of its own.
ICON_FILES = {
    "FinderSyncExtensionIcons_syncing.icns": "inProgress",
    "FinderSyncExtensionIcons_checkout.icns": "checkedOut",
    "FinderSyncExtensionIcons_error.icns": "error",
    "FinderSyncExtensionIcons_accessdenied.icns": "accessDenied",
    "FinderSyncExtensionIcons_synced.icns": "synced",
    "FinderSyncExtensionIcons_syncedpartial.icns": "syncedpartial",
}
CLOUD_IMAGE = "Cloud_icon_16"
MENU_ICON = "MorrowFilesAppIcon"
BADGES = {
    "cloud": "Cloud",
    "inProgress": "In Progress",
    "checkedOut": "Checked Out",
    "finishedTransfer": "Finished Transfer",
    "error": "Error",
    "accessDenied": "Access Denied",
    "synced": "Synced",
    "syncedpartial": "Synced Partial",
}

# Element types of an .icns file that hold a PNG, with their size in pixels.
ICNS_TYPES = ((b"icp4", 16), (b"icp5", 32), (b"icp6", 64), (b"ic07", 128), (b"ic08", 256),
              (b"ic11", 32), (b"ic12", 64))


def png(svg: bytes, width: int, height: int) -> bytes:
    """The picture as a PNG of that many pixels; ends the program if rsvg-convert fails."""
    command = ["rsvg-convert", "--format=png", f"--width={width}", f"--height={height}"]
    try:
        return subprocess.run(command, input=svg, stdout=subprocess.PIPE, check=True).stdout
    except FileNotFoundError:
        sys.exit("render_artwork.py: rsvg-convert is missing; install librsvg2-bin (Debian) or "
                 "librsvg (Homebrew)")
    except subprocess.CalledProcessError as error:
        sys.exit(f"render_artwork.py: {' '.join(command)} ended with status {error.returncode}")


def icns(pictures: dict) -> bytes:
    """An .icns file: "icns" and the whole length, then each element as type, length, PNG; lengths
    are big-endian and count their own eight bytes."""
    elements = b"".join(kind + struct.pack(">I", len(pictures[size]) + 8) + pictures[size]
                        for kind, size in ICNS_TYPES)
    return b"icns" + struct.pack(">I", len(elements) + 8) + elements


def render(output: Path) -> None:
    def write(path: str, data: bytes) -> None:
        target = output / path
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(data)

    sizes = sorted({size for _, size in ICNS_TYPES} | set(EMBLEM_SIZES))
    for badge in BADGES:
        svg = (SOURCES / "Badges" / f"{badge}.svg").read_bytes()
        pictures = {size: png(svg, size, size) for size in sizes}
        for size in EMBLEM_SIZES:
            write(f"icons/hicolor/{size}x{size}/emblems/emblem-corvid-{badge}.png", pictures[size])
        for name in (name for name, source in ICON_FILES.items() if source == badge):
            write(f"corvid/badges/{name}", icns(pictures))
        if badge == "cloud":
            write(f"corvid/badges/{CLOUD_IMAGE}.png", pictures[16])
    menu_icon = (SOURCES / f"{MENU_ICON}.svg").read_bytes()
    write(f"corvid/{MENU_ICON}.png", png(menu_icon, 16, 16))
    # File managers look an entry's icon up by its name.
    for size in EMBLEM_SIZES:
        write(f"icons/hicolor/{size}x{size}/apps/{MENU_ICON}.png", png(menu_icon, size, size))


def sheet() -> bytes:
    """Every badge at every emblem size: on white, on dark, and without colour."""
    row_height, name_width, block_width = 84, 170, 268
    columns = (("on white", "#ffffff", ""), ("on dark", "#2b2b2b", ""),
               ("without colour", "#ffffff", ' filter="url(#grey)"'))
    width, height = name_width + block_width * len(columns), 40 + row_height * (len(BADGES) + 1)
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}">',
             '<filter id="grey"><feColorMatrix type="saturate" values="0"/></filter>',
             f'<rect width="{width}" height="{height}" fill="#ffffff"/>']
    for index, (title, ground, _) in enumerate(columns):
        x = name_width + block_width * index
        parts.append(f'<text x="{x + 12}" y="26" font-family="sans-serif" font-size="15" '
                     f'fill="#333333">{title}</text>')
        parts.append(f'<rect x="{x}" y="40" width="{block_width}" height="{height - 40}" '
                     f'fill="{ground}"/>')
    rows = [(f"Badges/{badge}.svg", label) for badge, label in BADGES.items()]
    rows.append((f"{MENU_ICON}.svg", "menu icon"))
    for row, (source, label) in enumerate(rows):
        y = 40 + row * row_height
        drawing = re.sub(r"</?svg[^>]*>", "", (SOURCES / source).read_text())
        parts.append(f'<text x="12" y="{y + 47}" font-family="sans-serif" font-size="15" '
                     f'fill="#333333">{label}</text>')
        for index, (_, _, effect) in enumerate(columns):
            x = name_width + block_width * index + 14
            for size in EMBLEM_SIZES:
                parts.append(f'<g{effect}><svg x="{x}" y="{y + (row_height - size) // 2}" '
                             f'width="{size}" height="{size}" viewBox="0 0 16 16">{drawing}'
                             '</svg></g>')
                x += size + 14
    parts.append("</svg>")
    return png("".join(parts).encode(), width, height)


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("output", nargs="?", type=Path)
    parser.add_argument("--sheet", type=Path, metavar="FILE")
    arguments = parser.parse_args()
    if not arguments.output and not arguments.sheet:
        parser.error("name an output folder, or --sheet FILE")
    if arguments.output:
        render(arguments.output)
    if arguments.sheet:
        arguments.sheet.write_bytes(sheet())


if __name__ == "__main__":
    main()
