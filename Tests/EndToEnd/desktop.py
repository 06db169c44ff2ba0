"""A screen that nobody sees, with a file manager on it: found by accessible names, looked at by
pixels, driven by the pointer and keys. Whatever is waited for is looked for again whenever
something happens on the screen or in a program, and only then."""

import mmap
import os
import shutil
import struct
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from file_managers import BUILD, bus_configuration, environment_of
from leftovers import Scratch

SKIPPED = 77
PICTURES = BUILD / "pictures"
PATIENCE = 120  # seconds
EMBLEM_SIZES = (16, 24, 32, 48, 64)


def skip(reason):
    print(f"Skipped: {reason}")
    sys.exit(SKIPPED)


try:
    import gi
    gi.require_version("Atspi", "2.0")
    gi.require_version("GdkPixbuf", "2.0")
    from gi.repository import Atspi, GdkPixbuf, GLib
    from Xlib import XK, X
    from Xlib import error as xerror
    from Xlib import display as xdisplay
    from Xlib.ext import damage, xtest
except (ImportError, ValueError) as problem:
    skip(f"{problem}; script/bootstrap test installs what this needs")


def library_folder():
    libraries = subprocess.run(["pkg-config", "--variable=libdir", "gtk+-3.0"],
                               capture_output=True, text=True, check=False).stdout.strip()
    return libraries or "/usr/lib"


LINE = "────────"  # between entries, where there are no real lines


class Desktop:
    """An X server, a session bus and the accessibility bus on it: one for a process."""

    def __init__(self, width=1100, height=750):
        self.width, self.height = width, height
        if not shutil.which("Xvfb"):
            skip("Xvfb is not installed; script/bootstrap test installs it")
        self.scratch = Scratch.new("desktop")
        runtime = self.scratch / "run"
        runtime.mkdir(mode=0o700)
        os.environ.update(HOME=str(self.scratch), XDG_RUNTIME_DIR=str(runtime),
                          GSETTINGS_BACKEND="memory", GIO_USE_VFS="local", LANG="C.UTF-8")
        for name in ("AT_SPI_BUS_ADDRESS", "WAYLAND_DISPLAY", "XDG_CONFIG_HOME", "XDG_DATA_HOME",
                     "XDG_CACHE_HOME", "NO_AT_BRIDGE"):
            os.environ.pop(name, None)
        self.server, number = self._start("-displayfd", [
            "Xvfb", "-screen", "0", f"{width}x{height}x24", "-nolisten", "tcp", "-noreset",
            "-nocursor", "-fbdir", str(self.scratch)])
        os.environ["DISPLAY"] = ":" + number
        with open(self.scratch / "Xvfb_screen0", "rb") as file:
            self.pixels = mmap.mmap(file.fileno(), 0, prot=mmap.PROT_READ)
        # The header of an XWD file: its size, the bytes in a line, and the colours that follow it.
        header = struct.unpack(">25I", self.pixels[:100])
        assert header[12] == 4 * width
        self.first_pixel = header[0] + 12 * header[19]
        self.bus, address = self._start("--print-address", [
            "dbus-daemon", f"--config-file={bus_configuration(self.scratch, runtime)}", "--nofork",
            "--nopidfile"], joined="=")
        os.environ["DBUS_SESSION_BUS_ADDRESS"] = address

        self.display = xdisplay.Display()
        self.root = self.display.screen().root
        self.display.extension_event  # noqa: B018 (loads the table of extension events)
        self.display.damage_query_version()
        self.root.damage_create(damage.DamageReportRawRectangles)
        self.root.change_attributes(event_mask=X.SubstructureNotifyMask)
        self.display.flush()
        GLib.io_add_watch(self.display.fileno(), GLib.PRIORITY_DEFAULT, GLib.IO_IN,
                          lambda *_: self._take_x_events())
        Atspi.init()
        self.listener = Atspi.EventListener.new(lambda _event: None)
        for event in ("object:state-changed", "object:children-changed", "object:bounds-changed",
                      "object:visible-data-changed", "object:text-changed", "window:"):
            self.listener.register(event)
        self.pictures = {}  # that were looked for

    def _start(self, option, command, joined=None):
        """Starts a server and returns it with what it writes once it is ready."""
        reading, writing = os.pipe()
        arguments = [f"{option}{joined}{writing}"] if joined else [option, str(writing)]
        process = subprocess.Popen(command + arguments, pass_fds=[writing],
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                   start_new_session=True)
        os.close(writing)
        with os.fdopen(reading, encoding="ascii") as ready:
            return process, ready.readline().strip()

    def _take_x_events(self):
        while self.display.pending_events():
            self.display.next_event()
        return GLib.SOURCE_CONTINUE

    def close(self):
        for server in (self.bus, self.server):
            server.terminate()
            server.wait()
        shutil.rmtree(self.scratch, ignore_errors=True)

    # Waiting.

    def wait_for(self, predicate, what):
        """What `predicate` returns, as soon as that is true; it is called again after events."""
        context = GLib.MainContext.default()
        expired = []
        timer = GLib.timeout_add_seconds(PATIENCE, lambda: expired.append(True) or False)
        try:
            while True:
                try:
                    result = predicate()
                except GLib.Error:  # an object that went away while it was looked at
                    result = None
                if result:
                    return result
                if expired:
                    self.picture(PICTURES / f"not-seen-{time.strftime('%H-%M-%S')}.png")
                    raise AssertionError(f"not seen in {PATIENCE} s: {what}")
                # X events that came with a reply wait in the library, where no poll sees them.
                if not self.display.pending_events():
                    context.iteration(True)
                self._take_x_events()
                while context.pending():
                    context.iteration(False)
        finally:
            if not expired:
                GLib.source_remove(timer)

    # Looking.

    def screen(self):
        """The pixels of the whole screen, four bytes each: blue, green, red and nothing."""
        return self.pixels[self.first_pixel:self.first_pixel + 4 * self.width * self.height]

    def surfaces(self, is_popup):
        """The windows on the screen, as the X server has them, or what pops up above them."""
        for surface in self.root.query_tree().children:
            try:
                attributes = surface.get_attributes()
            except xerror.BadWindow:  # it has just gone
                continue
            if (attributes.map_state == X.IsViewable and
                    bool(attributes.override_redirect) == is_popup):
                yield surface

    def picture(self, target, area=None):
        """Keeps what is on the screen, or in an area of it, as a picture."""
        target.parent.mkdir(exist_ok=True)
        pixels = bytearray(self.screen())
        pixels[0::4], pixels[2::4] = pixels[2::4], pixels[0::4]
        pixels[3::4] = b"\xff" * (self.width * self.height)
        image = GdkPixbuf.Pixbuf.new_from_bytes(GLib.Bytes.new(bytes(pixels)),
                                                GdkPixbuf.Colorspace.RGB, True, 8, self.width,
                                                self.height, self.width * 4)
        if area:
            image = image.new_subpixbuf(*area)
        image.savev(str(target), "png", [], [])

    def emblem(self, badge, size):
        return self.rows_of(f"emblems/emblem-corvid-{badge}", size)

    def rows_of(self, name, size):
        """The rows of a picture of ours: where each begins that has opaque pixels, and those."""
        if (name, size) not in self.pictures:
            # Below the smallest it is made smaller.
            drawn = max(size, EMBLEM_SIZES[0])
            path = BUILD / f"share/icons/hicolor/{drawn}x{drawn}/{name}.png"
            image = GdkPixbuf.Pixbuf.new_from_file(str(path))
            if drawn != size:
                image = image.scale_simple(size, size, GdkPixbuf.InterpType.BILINEAR)
            pixels, stride = image.get_pixels(), image.get_rowstride()
            rows = []
            for y in range(size):
                line = [pixels[y * stride + 4 * x:y * stride + 4 * x + 4] for x in range(size)]
                opaque = [x for x in range(size) if line[x][3] == 255]
                if opaque and opaque == list(range(opaque[0], opaque[-1] + 1)):
                    rows.append((opaque[0], y, b"".join(
                        bytes((line[x][2], line[x][1], line[x][0])) for x in opaque)))
            self.pictures[name, size] = rows
        return self.pictures[name, size]

    def lines_of(self, area, screen=None):
        """The pixels in the area (x, y, width, height), line by line, three bytes each."""
        left, top = max(0, area[0]), max(0, area[1])
        right, bottom = min(self.width, area[0] + area[2]), min(self.height, area[1] + area[3])
        pixels = screen or self.screen()
        lines = []
        for y in range(top, bottom):
            line = bytearray(pixels[4 * (y * self.width + left):4 * (y * self.width + right)])
            del line[3::4]
            lines.append(bytes(line))
        return lines

    def badges_in(self, area, screen=None):
        """Which badges are drawn in the area (x, y, width, height), as pixels tell."""
        lines = self.lines_of(area, screen)
        return {badge for badge in BADGES for size in EMBLEM_SIZES
                if self._is_drawn(self.emblem(badge, size), lines)}

    @staticmethod
    def _is_drawn(rows, lines):
        # The longest row is looked for, then the others where they would have to be.
        start, y0, key = max(rows, key=lambda row: len(row[2]))
        for number, line in enumerate(lines):
            at = line.find(key)
            while at >= 0:
                if at % 3 == 0 and all(
                        0 <= number + y - y0 < len(lines) and
                        lines[number + y - y0][at + 3 * (x - start):][:len(row)] == row
                        for x, y, row in rows):
                    return True
                at = line.find(key, at + 1)
        return False

    def places_of(self, rows):
        """Where a picture is drawn on the screen, (x, y) of each, line by line."""
        pixels = bytearray(self.screen())
        del pixels[3::4]
        start, y0, key = max(rows, key=lambda row: len(row[2]))
        places = []
        at = pixels.find(key)
        while at >= 0:
            origin = at // 3 - start - y0 * self.width
            if at % 3 == 0 and all(
                    pixels.startswith(row, max(0, 3 * (origin + y * self.width + x)))
                    for x, y, row in rows):
                places.append((origin % self.width, origin // self.width))
            at = pixels.find(key, at + 1)
        return places

    def menus(self):
        """The areas (x, y, width, height) of the open menus, outermost first."""
        areas = []
        for surface in self.surfaces(is_popup=True):
            try:
                area = surface.get_geometry()
            except xerror.XError:  # it has just gone
                continue
            if area.width > 20:
                areas.append((area.x, area.y, area.width, area.height))
        return areas

    # The pointer and keys.

    def click(self, x, y, button=1, count=1):
        self.move(x, y)
        for _ in range(count):
            xtest.fake_input(self.display, X.ButtonPress, button)
            xtest.fake_input(self.display, X.ButtonRelease, button)
        self.display.sync()

    def move(self, x, y):
        xtest.fake_input(self.display, X.MotionNotify, x=int(x), y=int(y))
        self.display.sync()

    def side_by_side(self, count):
        """Waits for so many windows, the oldest first from the left. There is no window manager: they
        are all in one corner of the screen."""
        seen = []

        def are_all_there():
            seen[:] = self.surfaces(is_popup=False)
            return len(seen) == count
        try:
            self.wait_for(are_all_there, f"{count} windows")
        except AssertionError as problem:
            raise AssertionError(f"{problem}; but {[one.get_wm_name() for one in seen]}") from None
        for number, window in enumerate(seen):
            window.configure(x=number * self.width // count, y=0, width=self.width // count,
                             height=self.height)
        self.display.sync()

    def key(self, name, *modifiers, at=1 / 4):
        """Presses a key while others are held. There is no window manager to say whose they are:
        they go to the window at that part of the screen's width."""
        self.move(self.width * at, self.height / 2)
        self.root.query_pointer().child.set_input_focus(X.RevertToParent, X.CurrentTime)
        codes = [self.display.keysym_to_keycode(XK.string_to_keysym(key))
                 for key in (*modifiers, name)]
        for code in codes:
            xtest.fake_input(self.display, X.KeyPress, code)
        for code in reversed(codes):
            xtest.fake_input(self.display, X.KeyRelease, code)
        self.display.sync()


BADGES = ("accessDenied", "checkedOut", "cloud", "error", "finishedTransfer", "inProgress", "synced",
          "syncedpartial")


class Probe:
    """What a file manager's main loop says of its pauses, in milliseconds."""

    FIELDS = struct.Struct("QQQQ QQQ QQQ Q")

    def __init__(self, folder):
        # A file of its own, for a running process has its own mapped.
        with tempfile.NamedTemporaryFile(prefix="probe-", dir=folder, delete=False) as file:
            file.write(bytes(self.FIELDS.size))
            file.flush()
            self.path = Path(file.name)
            self.memory = mmap.mmap(file.fileno(), self.FIELDS.size)

    def restart(self):
        self.memory[:] = bytes(self.FIELDS.size)

    def read(self):
        fields = self.FIELDS.unpack(self.memory)
        read = {"iterations": fields[0], "longest": fields[1] / 1e6, "held up": fields[2] / 1e6,
                "of the module": fields[3] / 1e6, "emblems": fields[10]}
        for name, (count, time, longest) in (("badges", fields[4:7]), ("menus", fields[7:10])):
            read[name] = count
            read[f"{name} us"] = time / 1e3 / max(count, 1)
            read[f"longest of {name} us"] = longest / 1e3
        return read


class Window:
    """A running file manager that shows the volume of a world."""

    ENVIRONMENT = {}
    SAID_ALL_THE_TIME = ()

    def __init__(self, desktop, manager, world, folder=None, extension=True):
        self.desktop, self.manager, self.world = desktop, manager, world
        self.probe = Probe(world.scratch)
        self.environment = {
            **environment_of(manager, world, extension),
            "DISPLAY": os.environ["DISPLAY"], "GDK_BACKEND": "x11",
            "DBUS_SESSION_BUS_ADDRESS": os.environ["DBUS_SESSION_BUS_ADDRESS"],
            "CORVID_TRIAL_PROBE": str(self.probe.path), **self.ENVIRONMENT,
        }
        self.messages = tempfile.TemporaryFile(mode="w+")
        self.process = subprocess.Popen(
            [*manager.command, str(folder or world.volume)], env=self.environment,
            stdin=subprocess.DEVNULL, stdout=self.messages, stderr=self.messages,
            start_new_session=True)

    def open_another(self, folder):
        """One more window of the same process."""
        subprocess.run([*self.manager.command, str(folder)], env=self.environment, check=True,
                       stdin=subprocess.DEVNULL, stdout=self.messages, stderr=self.messages,
                       timeout=PATIENCE)

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        self.messages.close()

    def said(self):
        self.messages.seek(0)
        lines = [line for line in self.messages if line.strip() and
                 not any(noise in line for noise in self.SAID_ALL_THE_TIME)]
        ended = self.process.poll()
        return (f"{self.manager.name} said {''.join(lines).strip()!r}" +
                ("" if ended is None else f" and ended with {ended}"))

    # What is in it, by accessible names.

    PASSED_OVER = ("menu bar", "tool bar", "status bar")

    def application(self):
        return next((child for child in children_of(Atspi.get_desktop(0))
                     if child.get_process_id() == self.process.pid), None)

    def walk(self, accessible=None):
        """What can be seen and what is in it, outermost first."""
        accessible = accessible or self.application()
        if accessible is None:
            return
        yield accessible
        if not self.passes_over(accessible):
            for child in children_of(accessible):
                yield from self.walk(child)

    def passes_over(self, accessible):
        """Whether nothing in it is looked at."""
        role = accessible.get_role_name()
        return role in self.PASSED_OVER or role == "menu" and not is_showing(accessible)

    def tree(self):
        """All of it as text, for messages."""
        return "\n".join(f"{one.get_role_name()} {one.get_name()!r}" for one in self.walk())

    def find_item(self, name):
        """The area (x, y, width, height) of a file or folder in the view; None when it is not
        there."""
        return next(self.find_items(name), None)

    def find_items(self, name):
        """The areas of all files or folders of that name, in all windows of the process."""
        return (area_of(one) for one in self.walk()
                if one.get_name() == name and one.get_role_name() == self.manager.item)

    def item(self, name):
        return self.desktop.wait_for(lambda: self.find_item(name), f"{name}\n{self.said()}")

    def badges_of(self, name, screen=None):
        """The badges that are drawn on an item; None when there is no such item."""
        area = self.find_item(name)
        if not area:
            return None
        # Emblems stand out by a pixel or two.
        x, y, width, height = area
        left = self.manager.left
        return self.desktop.badges_in((x - left, y - 4, left + width + 4, height + 8), screen)

    def area(self):
        """Where the window is."""
        return self.desktop.wait_for(lambda: next(
            (area_of(one) for one in self.walk() if one.get_role_name() == "frame"), None),
            "the window")

    # Its menus.

    MENU_ROLES = ("menu", "menu item", "check menu item", "radio menu item", "separator")

    def shown_entries(self):
        """The entries of the menus that are open."""
        return (one for one in self.walk()
                if one.get_role_name() in self.MENU_ROLES and is_showing(one))

    def entry(self, title):
        """Waits for an entry of an open menu."""
        return self.desktop.wait_for(
            lambda: next((one for one in self.shown_entries()
                          if one.get_name() == title and area_of(one)[2] > 1), None),
            f"the menu entry {title!r}")

    def entries_below(self, title):
        """Title and "is enabled" of what the open submenu of an entry shows."""
        return [(LINE, False) if one.get_role_name() == "separator" else
                (one.get_name(), one.get_state_set().contains(Atspi.StateType.SENSITIVE))
                for one in self.shown_entries() if one.get_parent().get_name() == title]

    def open_menu(self, name):
        """Right-clicks an item."""
        self.click_item(name, button=3)

    def click_item(self, name, **options):
        x, y, width, height = self.item(name)
        # In a list the icon is beside what has the name, and what is right of the name is no item.
        x += -self.manager.left / 2 if self.manager.item == "table cell" else width / 2
        self.desktop.click(x, y + height / 3, **options)

    def close_menu(self, depth=1):
        """Without a click on anything; `depth` is how many are open, each from the one before."""
        for _ in range(depth):
            self.desktop.key("Escape")

    def wait_for_no_menu(self):
        self.desktop.wait_for(lambda: not self.desktop.menus(), "the menus to close")

    def choose(self, *titles):
        """Clicks through entries of the open menu."""
        for title in titles:
            x, y, width, height = area_of(self.entry(title))
            self.desktop.click(x + width / 2, y + height / 2)


class UnobservedWindow(Window):
    """A running file manager whose main loop is measured: nobody asks what it shows, which would
    keep it busy, so that its items are known by where their badges are."""

    ENVIRONMENT = {"NO_AT_BRIDGE": "1"}
    EMBLEM = 24  # the size beside icons of 48 pixels

    def wait_for_items(self, names, badge):
        """Until that many items show that badge; then their places are known, by their names."""
        def shown():
            places = self.desktop.places_of(self.desktop.emblem(badge, self.EMBLEM))
            return places if len(places) == len(names) else None
        places = self.desktop.wait_for(shown, f"{badge} on {len(names)} items\n{self.said()}")
        self.places = dict(zip(sorted(names), places))
        self.names = {name: self.name_of(name) for name in names}

    def name_of(self, item, rise=0):
        """The pixels of an item's name, which is that much higher."""
        x, y = self.places[item]
        return self.desktop.lines_of((x - 40, y + 60 - rise, 60, 20))

    def wait_for_items_of(self, other):
        """Until the items are seen, without badges, that another window had with them: Caja makes
        room for badges above its icons."""
        self.places, self.names = other.places, other.names
        self.desktop.wait_for(
            lambda: all(self.name_of(name, self.EMBLEM // 2) == pixels
                        for name, pixels in self.names.items()),
            f"the items\n{self.said()}")

    def badges_of(self, name, screen=None):
        x, y = self.places[name]
        return self.desktop.badges_in((x, y, self.EMBLEM, self.EMBLEM), screen)

    def click_item(self, name, **options):
        x, y = self.places[name]
        self.desktop.click(x - 10, y + 24, **options)

    def wait_for_menus(self, count):
        """Until that many menus are open; the area of the innermost."""
        def opened():
            menus = self.desktop.menus()
            return menus if len(menus) == count else None
        return self.desktop.wait_for(opened, f"{count} menus")[-1]

    def close_menus(self):
        while menus := self.desktop.menus():
            self.desktop.key("Escape")
            self.desktop.wait_for(lambda: len(self.desktop.menus()) < len(menus),  # noqa: B023
                                  "a menu to close")

    def corvid_entry(self):
        """Waits for the entry with the menu icon in the open menu, and returns where it is."""
        return self.desktop.wait_for(
            lambda: self.desktop.places_of(self.desktop.rows_of("apps/MorrowFilesAppIcon", 16)),
            "the menu icon")[0]

    def open_corvid_menu(self, name):
        """Opens an item's menu and in it the host's; the area of the latter."""
        self.open_menu(name)
        self.wait_for_menus(1)
        x, y = self.corvid_entry()
        self.desktop.click(x + 8, y + 8)
        return self.wait_for_menus(2)


def children_of(accessible):
    for index in range(accessible.get_child_count()):
        child = accessible.get_child_at_index(index)
        if child is not None:
            yield child


def is_showing(accessible):
    return accessible.get_state_set().contains(Atspi.StateType.SHOWING)


def area_of(accessible):
    extents = accessible.get_extents(Atspi.CoordType.SCREEN)
    return extents.x, extents.y, extents.width, extents.height
