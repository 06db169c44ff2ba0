"""What every file manager has to show: seen on its screen, and heard by the host application."""

import signal
import sys
import time
import unicodedata
import unittest
from pathlib import Path

from desktop import BADGES, LINE, PATIENCE, PICTURES, Atspi, Desktop, skip
from gtk4_window import open_window
from played_extension import PlayedExtension
from world import World

NAMES = ("blank in it", "percent%41", "hash#", "line\nbreak", "🐦",
         unicodedata.normalize("NFC", "Größe"), unicodedata.normalize("NFD", "é"))
MENU = '''menu ** "Open Online" open
menu ** -
menu ** "Share" > "By Mail" mail
menu ** "Share" > "By Carrier" carrier disabled
menu ** "Marked" marked checked
menu ** "Not available" disabled
on mail inProgress
on open none
'''


class FileManagerCase(unittest.TestCase):
    manager = None
    desktop = None

    def setUp(self):
        self.world = World()
        self.addCleanup(self.world.close)
        self.rules = self.world.scratch / "rules"

    def make(self, *names):
        for name in names:
            path = self.world.volume / name
            path.parent.mkdir(exist_ok=True)
            path.write_text("one\n", encoding="utf-8")

    def host(self, rules):
        self.rules.write_text(rules, encoding="utf-8")
        host = self.world.start("corvid-host", "rules", self.rules, self.world.volume, "--json")
        host.wait_for("serving")
        return host

    def open(self, **options):
        window = open_window(self.desktop, self.manager, self.world, **options)
        self.addCleanup(window.close)
        self.addCleanup(self.keep_picture)
        return window

    def keep_picture(self):
        name = f"{self.manager.name}-{self.id().rsplit('.')[-1]}.png"
        self.desktop.picture(PICTURES / name)

    def wait_for_badges(self, window, badges):
        """Until each item shows that badge and no other; None for no badge."""
        seen = {}

        def shown():
            screen = self.desktop.screen()
            for name, badge in badges.items():
                seen[name] = window.badges_of(name, screen)
            return all(seen[name] == ({badge} if badge else set())
                       for name, badge in badges.items())
        try:
            self.desktop.wait_for(shown, f"{badges}")
        except AssertionError as problem:
            raise AssertionError(f"{problem}; but {seen}; {window.said()}") from None

    def wait_for_entries(self, window, title, entries):
        seen = []

        def shown():
            seen[:] = window.entries_below(title)
            return seen == entries
        try:
            self.desktop.wait_for(shown, f"{entries} below {title!r}")
        except AssertionError as problem:
            raise AssertionError(f"{problem}; but {seen}; {window.said()}") from None


class InTheFileManager(FileManagerCase):
    def test_every_badge_in_its_place(self):
        self.make(*(f"{badge}.txt" for badge in BADGES), "plain.txt", "~$Report.docx")
        self.host("".join(f"badge {badge}.txt {badge}\n" for badge in BADGES)
                  + "badge plain.txt none\nbadge ** error\n")
        window = self.open()
        self.wait_for_badges(window, {**{f"{badge}.txt": badge for badge in BADGES},
                                      "plain.txt": None, "~$Report.docx": None})

    def test_none_on_the_volume_itself(self):
        self.make("a.txt")
        (self.world.home / "beside").mkdir()
        self.host("badge ** synced\n")
        window = self.open()
        self.wait_for_badges(window, {"a.txt": "synced"})
        self.desktop.key("Up", "Alt_L")
        self.wait_for_badges(window, {"Corvid": None, "beside": None})

    def test_volume_moves(self):
        usual, other = self.world.volume, self.world.home / "Other"
        self.make("a.txt")
        other.mkdir()
        for name in ("b.txt", "c.txt"):
            (other / name).touch()
        host = self.host("badge ** synced\n")
        window = self.open()
        self.wait_for_badges(window, {"a.txt": "synced"})
        self.desktop.key("Up", "Alt_L")
        window.click_item("Other", count=2)
        self.wait_for_badges(window, {"b.txt": None, "c.txt": None})
        # To a folder that is on the screen,
        host.end()
        self.world.volume = other
        host = self.host("badge ** synced\n" + MENU)
        self.wait_for_badges(window, {"b.txt": "synced", "c.txt": "synced"})
        window.open_menu("b.txt")
        window.choose("Corvid", "Share", "By Mail")
        self.assertEqual(host.wait_for("action")["paths"], [str(other / "b.txt")])
        self.wait_for_badges(window, {"b.txt": "inProgress", "c.txt": "synced"})
        # away from it, and back.
        host.end()
        self.world.volume = usual
        host = self.host("badge ** synced\n")
        self.wait_for_badges(window, {"b.txt": None, "c.txt": None})
        host.end()
        self.world.volume = other
        self.host("badge ** error\n")
        self.wait_for_badges(window, {"b.txt": "error", "c.txt": "error"})

    def test_names(self):
        self.make(*NAMES)
        host = self.host("badge ** synced\n" + MENU)
        window = self.open()
        self.wait_for_badges(window, {name: "synced" for name in NAMES})
        for name in NAMES:
            window.open_menu(name)
            window.choose("Corvid", "Share", "By Mail")
            self.assertEqual(host.wait_for("action"), {
                "event": "action", "action": "mail", "title": "By Mail",
                "paths": [str(self.world.volume / name)]})
            self.wait_for_badges(window, {name: "inProgress"})

    def test_menu_and_push(self):
        self.make("a.txt", "b.txt")
        host = self.host("badge ** synced\n" + MENU)
        window = self.open()
        self.wait_for_badges(window, {"a.txt": "synced", "b.txt": "synced"})
        window.open_menu("a.txt")
        window.choose("Corvid")
        self.wait_for_entries(window, "Corvid", [
            ("Open Online", True), (LINE, False), ("Share", True), ("✓ Marked", True),
            ("Not available", False)])
        window.choose("Share")
        self.wait_for_entries(window, "Share", [("By Mail", True), ("By Carrier", False)])
        window.choose("By Mail")
        action = host.wait_for("action")
        self.wait_for_badges(window, {"a.txt": "inProgress", "b.txt": "synced"})
        self.assertEqual((action["title"], action["paths"]),
                         ("By Mail", [str(self.world.volume / "a.txt")]))
        # A badge that is pushed away goes.
        window.open_menu("b.txt")
        window.choose("Corvid", "Open Online")
        self.wait_for_badges(window, {"a.txt": "inProgress", "b.txt": None})
        self.assertEqual(host.wait_for("action")["paths"], [str(self.world.volume / "b.txt")])

    def test_push(self):
        self.make("a.txt")
        self.host("badge ** synced\n" + MENU)
        window = self.open()
        self.wait_for_badges(window, {"a.txt": "synced"})
        x, y, width, height = window.item("a.txt")
        area = (x - self.manager.left, y - 4, width + self.manager.left + 4, height + 8)
        begin = time.monotonic()
        # By the host, which file managers may have asked again at any time.
        self.world.run("corvid", "do", "a.txt", "--item", "Share > By Mail")
        self.desktop.wait_for(lambda: self.desktop.badges_in(area) == {"inProgress"}, "the push")
        passed = time.monotonic() - begin
        print(f"{self.manager.name}: a pushed badge is seen after {passed:.3f} s", file=sys.stderr)
        self.assertLess(passed, 5)

    def test_menu_of_the_folder_itself(self):
        self.make("a.txt")
        host = self.host("badge ** synced\n" + MENU)
        window = self.open()
        # Once it is drawn: before, the item may be anywhere.
        self.wait_for_badges(window, {"a.txt": "synced"})
        x, y, width, height = window.item("a.txt")
        self.desktop.click(x + width / 2, y + 2.5 * height, button=3)
        window.choose("Corvid", "✓ Marked")
        self.assertEqual(host.wait_for("action")["paths"], [str(self.world.volume)])

    def test_observation(self):
        self.world.commit("a.txt", "folder/b.txt")
        host = self.world.host()
        window = self.open()
        host.wait_for("shown", folder=str(self.world.volume))
        self.wait_for_badges(window, {"a.txt": "synced", "folder": "synced"})
        window.click_item("folder", count=2)
        host.wait_for("shown", folder=str(self.world.volume / "folder"))
        host.wait_for("hidden", folder=str(self.world.volume))
        self.wait_for_badges(window, {"b.txt": "synced"})
        self.world.change("folder/b.txt")
        self.wait_for_badges(window, {"b.txt": "inProgress"})
        self.desktop.key("Up", "Alt_L")
        host.wait_for("shown", folder=str(self.world.volume))
        host.wait_for("hidden", folder=str(self.world.volume / "folder"))
        self.wait_for_badges(window, {"a.txt": "synced", "folder": "inProgress"})
        self.desktop.key("w", "Control_L")
        host.wait_for("hidden", folder=str(self.world.volume))


class OfEveryKind(FileManagerCase):
    """What a host may put into a menu, and how an item of it is shown."""

    def test_entries(self):
        self.make("a.txt")
        host = self.world.start(sys.executable, Path(__file__).with_name("menu_host.py"),
                                self.world.volume, "a.txt=synced")
        host.wait_for("line", text="ready")
        window = self.open()
        self.wait_for_badges(window, {"a.txt": "synced"})
        window.open_menu("a.txt")
        window.choose("Corvid")
        self.wait_for_entries(window, "Corvid", [
            ("Open Online", True), (LINE, False), ("Disabled", False), ("✓ Marked", True),
            ("– Partly", True), ("    Indented", True), ("Under_score & more", True),
            ("Share", True)])
        window.choose("Share")
        self.wait_for_entries(window, "Share", [
            ("By Mail", True), ("Deeper", True), ("By Link", True)])
        window.choose("Deeper")
        # A click there would not reach the host.
        self.wait_for_entries(window, "Deeper", [("Too Deep", False)])
        window.close_menu(depth=4)
        window.open_menu("a.txt")
        window.choose("Corvid", "Share", "By Link")
        host.wait_for("line", text="clicked 12 a.txt")
        window.open_menu("a.txt")
        window.choose("Corvid", "Under_score & more")
        host.wait_for("line", text="clicked 8 a.txt")


class OfAnotherTime(FileManagerCase):
    """A module and an extension of different versions: one of them was updated while the file
    manager ran."""

    def play(self, oldest, newest):
        self.make("a.txt")
        extension = PlayedExtension(self.world, oldest, newest)
        self.addCleanup(extension.close)
        return extension, self.open(extension=False)

    def check_note(self, extension, window):
        window.item("a.txt")
        self.assertTrue(extension.refused.wait(PATIENCE), window.said())
        window.open_menu("a.txt")
        note = window.entry("Restart the file manager")
        self.assertFalse(note.get_state_set().contains(Atspi.StateType.SENSITIVE))
        self.assertNotIn("Corvid", [one.get_name() for one in window.shown_entries()])
        self.wait_for_badges(window, {"a.txt": None})

    def test_module_is_too_old(self):
        self.check_note(*self.play(7, 9))

    def test_module_is_too_new(self):
        self.check_note(*self.play(0, 0))

    def test_extension_is_newer_and_speaks_this_version_too(self):
        extension, window = self.play(1, 9)
        self.wait_for_badges(window, {"a.txt": "synced"})
        window.open_menu("a.txt")
        window.choose("Corvid", "Second")
        self.assertEqual(extension.clicks.get(timeout=PATIENCE), (1, 1))


class WhileTheHostHangs(FileManagerCase):
    def test_host_hangs_and_goes_on(self):
        self.make("a.txt")
        host = self.host("badge ** synced\n" + MENU)
        window = self.open()
        self.wait_for_badges(window, {"a.txt": "synced"})
        host.process.send_signal(signal.SIGSTOP)
        window.open_menu("a.txt")
        note = window.entry("Corvid is not answering")
        self.assertFalse(note.get_state_set().contains(Atspi.StateType.SENSITIVE))
        window.close_menu()
        window.wait_for_no_menu()
        host.process.send_signal(signal.SIGCONT)
        # Not the menu that was asked for before is awaited, which the host may answer late.
        for _ in range(20):
            window.open_menu("a.txt")
            window.entry("Properties")
            if "Corvid" in [one.get_name() for one in window.shown_entries()]:
                break
            window.close_menu()
            # Until it has gone it takes the click that is to open the next one.
            window.wait_for_no_menu()
        window.choose("Corvid", "Share", "By Mail")
        self.assertEqual(host.wait_for("action")["paths"], [str(self.world.volume / "a.txt")])


class TwoWindows(FileManagerCase):
    def test_one_of_two_windows_is_closed(self):
        self.world.commit("a.txt", "folder/b.txt")
        host = self.world.host()
        window = self.open()
        self.wait_for_badges(window, {"a.txt": "synced", "folder": "synced"})
        window.open_another(self.world.volume / "folder")
        self.desktop.side_by_side(2)
        self.wait_for_badges(window, {"a.txt": "synced", "folder": "synced", "b.txt": "synced"})
        host.wait_for("shown", folder=str(self.world.volume))
        host.wait_for("shown", folder=str(self.world.volume / "folder"))
        self.world.change("folder/b.txt")
        self.wait_for_badges(window, {"folder": "inProgress", "b.txt": "inProgress"})
        # Both on one folder, and then the other one only.
        self.desktop.key("Up", "Alt_L", at=3 / 4)
        host.wait_for("hidden", folder=str(self.world.volume / "folder"))
        self.desktop.wait_for(lambda: len(list(window.find_items("a.txt"))) == 2, "a.txt in both")
        self.desktop.key("w", "Control_L", at=3 / 4)
        self.desktop.side_by_side(1)
        self.world.change("a.txt")
        self.wait_for_badges(window, {"a.txt": "inProgress", "folder": "inProgress"})
        self.assertEqual([one for one in host.passed_over if one["event"] == "hidden"], [])
        self.desktop.key("w", "Control_L")
        host.wait_for("hidden", folder=str(self.world.volume))


def main(manager, *cases):
    """Runs the tests of those classes with that file manager, or those named on the command line,
    and ends the program."""
    if reason := manager.missing():
        skip(reason)
    desktop = Desktop()
    loader = unittest.defaultTestLoader
    suite = unittest.TestSuite()
    for case in cases:
        case.manager, case.desktop = manager, desktop
        for name in loader.getTestCaseNames(case):
            if not sys.argv[1:] or name in sys.argv[1:]:
                suite.addTest(case(name))
    result = unittest.TextTestRunner(verbosity=2).run(suite)
    desktop.close()
    sys.exit(not result.wasSuccessful())
