"""The file managers that there are modules for, and how one of the build is tried in each."""

import copy
import os
import shutil
import subprocess
from pathlib import Path

BUILD = Path(os.environ["CORVID_BIN_DIR"]).parent


def library_folder():
    libraries = subprocess.run(["pkg-config", "--variable=libdir", "gtk+-3.0"],
                               capture_output=True, text=True, check=False).stdout.strip()
    return libraries or "/usr/lib"


class FileManager:
    """What has to be known of one of them."""

    def __init__(self, name, command, own_folder, item, left=4, settings="", is_gtk4=False):
        self.name = name
        self.command = command
        self.own_folder = f"{library_folder()}/{own_folder}"
        self.modules = BUILD / "modules" / name
        self.item = item  # the accessible role of a file or folder
        self.left = left  # how many pixels of it are to the left of what has its name
        self.settings = settings
        self.is_gtk4 = is_gtk4

    def with_modules(self, folder):
        """The same with the modules in another folder."""
        other = copy.copy(self)
        other.modules = folder
        return other

    def with_ready_module(self):
        """The same with a module that has all its answers from the start."""
        return self.with_modules(BUILD / "tests/ready-modules" / self.name)

    def missing(self):
        """Why it cannot be run, as a sentence; empty when it can."""
        if not shutil.which(self.command[0]):
            return f"{self.command[0]} is not installed; script/bootstrap test installs most of them"
        if not list(self.modules.glob("*.so")):
            return (f"{self.modules} holds no module; install lib{self.name}-extension-dev and "
                    "build again")
        return ""


CAJA = FileManager("caja", ["caja", "--no-desktop", "--browser"], "caja/extensions-2.0", "icon")
# Nemo does not say where the items of its other views are.
NEMO = FileManager("nemo", ["nemo", "--no-desktop"], "nemo/extensions-3.0", "table cell", left=60,
                   settings="[org/nemo/preferences]\ndefault-folder-viewer='list-view'\n"
                            "[org/nemo/list-view]\ndefault-zoom-level='standard'\n")
NAUTILUS = FileManager("nautilus", ["nautilus", "--new-window"], "nautilus/extensions-4",
                       "table cell", is_gtk4=True)


def environment_of(manager, world, extension=True):
    """Has the file manager load the module of the build, in the world's home, with its settings.
    `extension` is the program to start in place of the build's, or False for one that cannot be
    started."""
    configuration = world.home / ".config"
    (configuration / "glib-2.0/settings").mkdir(parents=True, exist_ok=True)
    (configuration / "glib-2.0/settings/keyfile").write_text(manager.settings)
    # Two clicks for two menus may follow each other fast, and are no double click.
    for toolkit, settings in (("gtk-3.0", "gtk-menu-images=1\n"),
                              ("gtk-4.0", "gtk-enable-animations=0\ngtk-double-click-time=50\n")):
        (configuration / toolkit).mkdir(exist_ok=True)
        (configuration / toolkit / "settings.ini").write_text(f"[Settings]\n{settings}")
    return {
        **world.environment,
        "XDG_DATA_DIRS": f"{BUILD / 'share'}:/usr/local/share:/usr/share",
        "XDG_CURRENT_DESKTOP": "X-Generic",
        "GSETTINGS_BACKEND": "keyfile", "GIO_USE_VFS": "local", "GIO_USE_VOLUME_MONITOR": "unix",
        # GTK 4 would have its shaders compiled for the processor, in ten seconds.
        "LIBGL_ALWAYS_SOFTWARE": "1", "GSK_RENDERER": "cairo", "GDK_DEBUG": "gl-disable",
        # A module that was built for a sanitizer needs its runtime from the start.
        "LD_PRELOAD": " ".join([*os.environ.get("CORVID_SANITIZER_RUNTIME", "").split(),
                                str(BUILD / "modules/libcorvid-trial.so")]),
        **({"CORVID_TRIAL_ALONE": "1"} if "CORVID_SANITIZER_RUNTIME" in os.environ else {}),
        "CORVID_TRIAL_OWN": manager.own_folder,
        "CORVID_TRIAL_MODULES": str(manager.modules),
        "CVD_FINDER_EXT_PROGRAM":
            str(BUILD / "bin/corvid-finder-ext") if extension is True else
            str(extension or "/nonexistent/extension"),
    }


def bus_configuration(scratch, runtime):
    """The file of a session bus, with its socket in `runtime`, that starts the accessibility bus when
    that is wanted and nothing else: no indexer, portal or settings daemon has a part in what is
    tried, or outlives it."""
    configuration, services = scratch / "bus.conf", scratch / "services"
    services.mkdir()
    accessibility = Path("/usr/share/dbus-1/services/org.a11y.Bus.service")
    if accessibility.exists():
        shutil.copy(accessibility, services)
    configuration.write_text(f"""<busconfig>
  <type>session</type>
  <listen>unix:path={runtime}/bus</listen>
  <auth>EXTERNAL</auth>
  <servicedir>{services}</servicedir>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
""")
    return configuration
