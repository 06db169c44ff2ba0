#!/usr/bin/env python3
"""What a conversation between a host, the extension and a front end costs, in real processes."""

import os
import statistics
import sys
import time
from pathlib import Path

os.environ["CORVID_BIN_DIR"] = "@CMAKE_RUNTIME_OUTPUT_DIRECTORY@"
sys.path.insert(0, "@PROJECT_SOURCE_DIR@/Tests/EndToEnd")
sys.dont_write_bytecode = True

from world import World  # noqa: E402

QUICK = "--quick" in sys.argv
ROUNDS = 2 if QUICK else 7
IDLE_SECONDS = 1 if QUICK else 10


def figure(name, value, unit, goal):
    goal = "null" if goal is None else goal
    print(f'{{"name": "{name}", "value": {value:.4g}, "unit": "{unit}", "goal": {goal}, '
          '"better": "lower"}', flush=True)


def extension_status(process, field):
    text = Path(f"/proc/{process.pid}/status").read_text()
    return int(next(line.split()[1] for line in text.splitlines() if line.startswith(field)))


def switches(process):
    """How often any thread of the process has been put on a processor."""
    total = 0
    for task in Path(f"/proc/{process.pid}/task").iterdir():
        for line in (task / "status").read_text().splitlines():
            if "ctxt_switches" in line:
                total += int(line.split()[1])
    return total


def timed_list(world, folder):
    begun = time.perf_counter()
    world.run("corvid", "ls", folder, "--json")
    return time.perf_counter() - begun


def main():
    world = World()
    try:
        sizes = {"none": 0, "some": 100, "many": 10000}
        for folder, count in sizes.items():
            (world.volume / folder).mkdir()
            for number in range(count):
                (world.volume / folder / f"item {number}.txt").write_text("one\n")
        world.commit("a.txt")
        host = world.host()

        starts = []
        for _ in range(ROUNDS):
            begun = time.perf_counter()
            extension = world.start("corvid-finder-ext")
            host.wait_for("extension", open=True)
            starts.append(time.perf_counter() - begun)
            extension.end()
            host.wait_for("extension", open=False)
        extension = world.start("corvid-finder-ext")
        host.wait_for("extension", open=True)
        world.run("corvid", "ls")
        process = extension.process
        figure("extension_start_ms", 1000 * statistics.median(starts), "ms", 10)
        figure("extension_rss_mb", extension_status(process, "VmRSS") / 1024, "MB", 8)

        # One run of each size in turn, so that what disturbs the machine disturbs them alike.
        times = {folder: [] for folder in sizes}
        for _ in range(ROUNDS):
            for folder in sizes:
                times[folder].append(timed_list(world, folder))
        median = {folder: statistics.median(values) for folder, values in times.items()}
        each = {folder: (median[folder] - median["none"]) / sizes[folder]
                for folder in ("some", "many")}
        figure("ls_10000_items_s", median["many"], "s", 2)
        figure("ls_item_us", 1e6 * each["many"], "us", None)
        figure("ls_item_10000_to_100", each["many"] / each["some"], "ratio", 1.5)

        watch = world.watch()
        pushes = []
        for _ in range(ROUNDS):
            for change, badge in ((lambda: world.change("a.txt"), "inProgress"),
                                  (lambda: world.git("checkout", "-q", "a.txt"), "synced")):
                begun = time.perf_counter()
                change()
                watch.wait_for("push", name="a.txt", badge=badge)
                if badge == "inProgress":
                    pushes.append(time.perf_counter() - begun)
        figure("push_to_front_end_ms", 1000 * statistics.median(pushes), "ms", 500)
        watch.end()
        host.wait_for("hidden", folder=str(world.volume))

        before = switches(process)
        time.sleep(IDLE_SECONDS)
        figure("extension_idle_wakeups", switches(process) - before, "wake-ups", 0)
        figure("extension_rss_after_mb", extension_status(process, "VmRSS") / 1024, "MB", None)
    finally:
        world.close()


main()
