"""The layers of Source/ and what their files include."""

import re
import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]

# Lowest first. Folders in one row are neighbours: neither includes the other.
LAYERS = (
    ("Core/Base",),
    ("Core/Archive",),
    ("Core/Utility/Extensions",),
    ("Platform/Interfaces",),
    ("Platform/Unix", "Platform/Fake"),
    ("Platform/Mac",),
    ("App/Reporting", "App/Strings"),
    ("App/Logging",),
    ("Extensions/Finder",),
    ("Extensions/FileManagers",),
    ("HostKit",),
    ("Tools",),
)
RANK = {name: rank for rank, row in enumerate(LAYERS) for name in row}
# Stand-ins for tests: no product file includes them.
TEST_ONLY = "Platform/Fake"

INCLUDE = re.compile(r'^\s*#\s*(?:include|import)\s*(?:"([^"]+)"|<(CorvidHostKit/[^>]+)>)')
SUFFIXES = (".h", ".cpp", ".mm", ".m")


def source_files(*folders):
    """The C++ files below these folders that git knows or would add, as paths from the root."""
    output = subprocess.run(
        ["git", "ls-files", "--cached", "--others", "--exclude-standard", "--", *folders],
        cwd=ROOT, stdout=subprocess.PIPE, text=True, check=True).stdout
    return sorted(Path(line) for line in output.splitlines()
                  if line.endswith(SUFFIXES) and (ROOT / line).exists())


def layer_of(path):
    """The layer that a path from the root belongs to; None outside of all layers."""
    text = str(path).removeprefix("Source/")
    found = [name for name in RANK if text.startswith(name + "/")]
    return max(found, key=len) if found else None


def includes(path):
    """(line number, included file as a path from the root) for the project's own files."""
    for number, line in enumerate((ROOT / path).read_text(errors="replace").splitlines(), 1):
        match = INCLUDE.match(line)
        if not match:
            continue
        name = match.group(1) or match.group(2)
        for base in (path.parent, Path("Source"), Path("."), Path("Source/HostKit/Include")):
            if (ROOT / base / name).is_file():
                yield number, Path((ROOT / base / name).resolve().relative_to(ROOT))
                break


def edges():
    """(file, line, its layer, included file, that file's layer) for every include that leaves a
    layer."""
    for path in source_files("Source", "Tools"):
        layer = layer_of(path)
        for number, target in includes(path):
            target_layer = layer_of(target)
            if layer and target_layer and target_layer != layer:
                yield path, number, layer, target, target_layer


def is_allowed(layer, target_layer):
    if target_layer == TEST_ONLY:
        return False
    return RANK[target_layer] < RANK[layer]
