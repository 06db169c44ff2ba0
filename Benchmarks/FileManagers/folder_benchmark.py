#!/usr/bin/python3
"""How soon badges are seen in large folders, and what that costs Caja and Nemo: in the file
managers themselves, on a screen that nobody sees, by its pixels."""

import os
import sys
import time

os.environ["CORVID_BIN_DIR"] = "@CMAKE_RUNTIME_OUTPUT_DIRECTORY@"
sys.path.insert(0, "@PROJECT_SOURCE_DIR@/Tests/EndToEnd")
sys.dont_write_bytecode = True

from desktop import Desktop, GLib, UnobservedWindow  # noqa: E402
from file_managers import CAJA, NEMO  # noqa: E402
from world import World  # noqa: E402

QUICK = "--quick" in sys.argv
ROUNDS = 1 if QUICK else 3
MANY, VERY_MANY = (200, 2000) if QUICK else (2000, 20000)
CAJA.command += ["--geometry=1100x750+0+0"]
CAJA.settings = ("[org/mate/caja/preferences]\ndefault-folder-viewer='compact-view'\n"
                 "[org/mate/caja/compact-view]\ndefault-zoom-level='small'\n")
NEMO.settings = ""
# A folder is loaded when the main thread has wanted hardly any of so much time.
QUIET_SECONDS, IDLE_SECONDS = 2, 0.05
# How large badges are drawn in these views.
COMPACT_BADGE, ICON_BADGE = 12, 32


def figure(name, value, unit, goal):
    goal = "null" if goal is None else goal
    print(f'{{"name": "{name}", "value": {value:.4g}, "unit": "{unit}", "goal": {goal}, '
          '"better": "lower"}', flush=True)


class Watched:
    """A file manager from its start until its folder is loaded."""

    VIEW = 300, 130, 400, 300  # is blank until there are items

    def __init__(self, desktop, world, manager, folder, badge_size):
        self.desktop = desktop
        self.rows = desktop.emblem("synced", badge_size)
        self.seen = []  # (time, badges on the screen)
        self.window = UnobservedWindow(desktop, manager, world, folder=folder)
        desktop.wait_for(lambda: any(surface.get_geometry().width > 200
                                     for surface in desktop.surfaces(is_popup=False)), "a window")
        self.begin = time.monotonic()
        self.first_item = None

    def look(self):
        """Notes how many badges are on the screen."""
        count = len(self.desktop.places_of(self.rows))
        now = time.monotonic()
        if self.first_item is None and any(
                line.strip(b"\xff\0") for line in self.desktop.lines_of(self.VIEW)):
            self.first_item = now
        self.seen.append((now, count))

    def look_until_loaded(self, asked):
        """Looks whenever something is drawn, until that many items were asked about and the main
        thread has nothing more to do."""
        ticks = GLib.timeout_add(250, lambda: True)
        worked, since = 0, time.monotonic()

        def is_quiet():
            nonlocal worked, since
            self.look()
            with open(f"/proc/{self.window.process.pid}/schedstat", encoding="ascii") as file:
                now = sum(int(field) for field in file.read().split()[:2]) / 1e9
            if now - worked > IDLE_SECONDS or self.window.probe.read()["badges"] < asked:
                worked, since = now, time.monotonic()
            return time.monotonic() - since > QUIET_SECONDS
        self.desktop.wait_for(is_quiet, "the end of loading")
        GLib.source_remove(ticks)

    def when_seen(self, count):
        return next(when for when, seen in self.seen if seen >= count)

    def when_all_seen(self):
        count = self.seen[-1][1]
        if count == 0:
            sys.exit("no badge is on the screen")
        return self.when_seen(count)

    def resident(self):
        with open(f"/proc/{self.window.process.pid}/status", encoding="ascii") as status:
            return next(int(line.split()[1]) for line in status if line.startswith("VmRSS")) / 1024

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.window.close()


def measure_many(desktop, world, folder):
    """All badges of a folder: those in view are on the screen, and Caja has the others to draw when
    they come into view. And what the module's calls take."""
    seconds, calls, outside = [], [], []
    for _ in range(ROUNDS):
        with Watched(desktop, world, CAJA, folder, COMPACT_BADGE) as caja:
            caja.look_until_loaded(MANY)
            if caja.window.probe.read()["emblems"] < MANY:
                sys.exit("some items have no badge")
            seconds.append(caja.when_all_seen() - caja.begin)
            calls.append(caja.window.probe.read()["badges us"])
        with Watched(desktop, world, CAJA, world.home / "outside", COMPACT_BADGE) as caja:
            caja.look_until_loaded(MANY)
            # Again, now that the module knows where the volume is.
            caja.window.probe.restart()
            for path in (world.home / "outside").iterdir():
                path.touch()
            caja.look_until_loaded(MANY // 2)
            outside.append(caja.window.probe.read()["badges us"])
    figure("caja_2000_items_s", min(seconds), "s", 1.0)
    figure("provider_call_us", min(calls), "us", 50)
    figure("provider_call_outside_us", min(outside), "us", 2)


def measure_very_many(desktop, world, folder):
    with Watched(desktop, world, CAJA, folder, COMPACT_BADGE) as caja:
        caja.look_until_loaded(VERY_MANY)
        if caja.window.probe.read()["emblems"] < VERY_MANY:
            sys.exit("some items have no badge")
        figure("caja_20000_items_first_200_s", caja.when_seen(200) - caja.first_item, "s", 1.0)
        pauses, resident = caja.window.probe.read(), caja.resident()
    # The same with a module that knows all badges from the start.
    with Watched(desktop, world, CAJA.with_ready_module(), folder, COMPACT_BADGE) as caja:
        caja.look_until_loaded(VERY_MANY)
        ready = caja.window.probe.read()
        figure("caja_20000_items_first_200_ready_s", caja.when_seen(200) - caja.first_item, "s",
               None)
        figure("caja_20000_items_memory_mb", resident - caja.resident(), "MB", None)
    figure("caja_20000_items_pause_ms", pauses["longest"], "ms", None)
    figure("caja_20000_items_pause_ready_ms", ready["longest"], "ms", None)
    figure("caja_20000_items_pause_module_ms", pauses["of the module"], "ms", 20)
    # Nemo asks no module for anything before it has loaded the folder: one that has its answers
    # ready is late.
    for manager, kind, goal in ((NEMO, "", 1.0), (NEMO.with_ready_module(), "ready_", None)):
        with Watched(desktop, world, manager, folder, ICON_BADGE) as nemo:
            nemo.look_until_loaded(1)
            figure(f"nemo_20000_items_first_screen_{kind}s", nemo.when_all_seen() - nemo.first_item,
                   "s", goal)


def main():
    world = World()
    desktop = Desktop()
    try:
        for name, count in (("Corvid/many", MANY), ("Corvid/very many", VERY_MANY),
                            ("outside", MANY)):
            (world.home / name).mkdir()
            for number in range(count):
                (world.home / name / f"{number:05}").touch()
        rules = world.scratch / "rules"
        rules.write_text("badge ** synced\n")
        world.start("corvid-host", "rules", rules, world.volume, "--json").wait_for("serving")
        measure_many(desktop, world, world.volume / "many")
        measure_very_many(desktop, world, world.volume / "very many")
    finally:
        desktop.close()
        world.close()


main()
