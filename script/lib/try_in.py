"""What script/try-in runs: a file manager, the extension and a host application."""

import argparse
import os
import shutil
import subprocess
import sys
from pathlib import Path

import file_managers
from world import World

EXAMPLES = {
    "Archive 2019/": "cloud", "Photos/": "syncedpartial", "Budget.ods": "synced",
    "Contract.odt": "checkedOut", "Film.mkv": "inProgress", "Minutes.txt": "finishedTransfer",
    "Report (conflict).odt": "error", "Salaries.ods": "accessDenied", "Slides.odp": "synced",
}
MENU = '''menu ** "Open on the Web" open
menu ** -
menu ** "Check Out" check-out
menu ** "Check In" check-in disabled
menu ** "Share" > "By Mail" mail
menu ** "Share" > "By Link" link
menu ** "Keep on This Computer" keep checked
on check-out checkedOut
on keep inProgress
'''
SHOWN = "Film.mkv"
SHOWN_IN_GTK4 = "Minutes.txt"  # beside which there is room for the menu


def start_host(world, folder):
    if folder:
        host = world.start("corvid-host", "git", folder, "--json")
    else:
        for name in EXAMPLES:
            path = world.volume / name
            if name.endswith("/"):
                path.mkdir()
            else:
                path.touch()
        rules = world.scratch / "rules"
        rules.write_text("".join(f'badge "{name.rstrip("/")}" {badge}\n'
                                 for name, badge in EXAMPLES.items()) + MENU)
        host = world.start("corvid-host", "rules", rules, world.volume, "--json")
    host.wait_for("serving")


def run_on_display(manager, world):
    environment = file_managers.environment_of(manager, world)
    for name in ("DISPLAY", "XAUTHORITY"):
        if name in os.environ:
            environment[name] = os.environ[name]
    if "WAYLAND_DISPLAY" in os.environ:
        environment["WAYLAND_DISPLAY"] = str(Path(os.environ.get("XDG_RUNTIME_DIR", "/"))
                                             / os.environ["WAYLAND_DISPLAY"])
    # A bus of its own: else it would only have a file manager that runs open another window.
    command = list(manager.command)
    if shutil.which("dbus-run-session"):
        bus = file_managers.bus_configuration(world.scratch, world.runtime.parent)
        command = ["dbus-run-session", f"--config-file={bus}", "--", *command]
    print(f"{manager.name} runs until you close its window.", flush=True)
    result = subprocess.run([*command, str(world.volume)], env=environment, check=False,
                            stdin=subprocess.DEVNULL, capture_output=True, text=True)
    if result.returncode:
        sys.exit(f"{result.stderr}try-in: {manager.name} ended with {result.returncode}")


def take_picture(manager, world, target):
    from desktop import Desktop
    from gtk4_window import open_window
    desktop = Desktop()
    if not manager.is_gtk4:
        manager.command.append("--geometry=900x700")
    try:
        window = open_window(desktop, manager, world)
        try:
            shown = SHOWN_IN_GTK4 if manager.is_gtk4 else SHOWN
            name = shown if (world.volume / shown).exists() else sorted(
                path.name for path in world.volume.iterdir() if path.name[0] != ".")[0]
            expected = {name.rstrip("/"): {badge} for name, badge in EXAMPLES.items()}
            if name == shown:
                desktop.wait_for(lambda: all(window.badges_of(name) == badge
                                             for name, badge in expected.items()), "every badge")
            window.open_menu(name)
            window.choose("Corvid")
            if name == shown:
                window.choose("Share")
                window.entry("By Link")
            desktop.picture(target, window.area())
        finally:
            window.close()
    finally:
        desktop.close()
    print(target)


def main():
    parser = argparse.ArgumentParser(prog="script/try-in")
    parser.add_argument("manager")
    parser.add_argument("folder", nargs="?")
    parser.add_argument("--picture", type=Path)
    arguments = parser.parse_args()
    manager = getattr(file_managers, arguments.manager.upper())
    if reason := manager.missing():
        sys.exit(f"try-in: {reason}")
    world = World()
    try:
        if arguments.folder:
            shutil.rmtree(world.volume)
            world.volume = Path(arguments.folder)
        start_host(world, arguments.folder)
        if arguments.picture:
            take_picture(manager, world, arguments.picture.absolute())
        else:
            run_on_display(manager, world)
    finally:
        world.close()


if __name__ == "__main__":
    main()
