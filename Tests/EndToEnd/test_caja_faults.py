"""What Caja does when those fail that it gets its badges and menus from."""

import os
import signal
import subprocess
import sys
import threading
import time
from pathlib import Path

from desktop import Atspi, GLib
from file_manager_tests import MENU, FileManagerCase, main
from file_managers import CAJA

NOT_ANSWERING = "Corvid is not answering"


class WhenThingsFail(FileManagerCase):
    """Nobody who fails holds up the window."""

    # How long the main loop may be held up by others, in milliseconds: at any time, and where a
    # menu is opened. A busy machine adds to it.
    AT_ANY_TIME, OPENING_A_MENU = 20, 120
    SLACK = 10

    def setUp(self):
        super().setUp()
        self.make("a.txt", "b.txt")

    def check_pauses(self, window, limit):
        pauses = window.probe.read()
        print(f"{self.id().rsplit('.')[-1]}: " + ", ".join(
            f"{name} {value:.1f}" for name, value in pauses.items()), file=sys.stderr)
        self.assertGreater(pauses["iterations"], 0)
        self.assertLess(pauses["held up"], limit * self.SLACK)

    def wait_for_recovery(self, window, badges):
        begin = time.monotonic()
        self.wait_for_badges(window, badges)
        print(f"badges were right again after {time.monotonic() - begin:.2f} s", file=sys.stderr)

    def start(self, **options):
        host = self.host("badge ** synced\n" + MENU)
        window = self.open(**options)
        self.wait_for_badges(window, {"a.txt": "synced", "b.txt": "synced"})
        window.probe.restart()
        return host, window

    def test_host_hangs_and_goes_on(self):
        host, window = self.start()
        host.process.send_signal(signal.SIGSTOP)
        window.open_menu("a.txt")
        note = window.entry(NOT_ANSWERING)
        self.assertFalse(note.get_state_set().contains(Atspi.StateType.SENSITIVE))
        self.check_pauses(window, self.OPENING_A_MENU)
        self.desktop.key("Escape")
        host.process.send_signal(signal.SIGCONT)
        window.open_menu("b.txt")
        window.choose("Corvid", "Share", "By Mail")
        self.assertEqual(host.wait_for("action")["paths"], [str(self.world.volume / "b.txt")])
        self.wait_for_recovery(window, {"a.txt": "synced", "b.txt": "inProgress"})

    def test_host_is_killed_and_comes_back(self):
        host, window = self.start()
        host.end(signal.SIGKILL)
        self.wait_for_badges(window, {"a.txt": "cloud", "b.txt": "cloud"})
        host = self.host("badge a.txt error\nbadge b.txt none\n" + MENU)
        # What the host answers with none keeps the badge that it has.
        self.wait_for_recovery(window, {"a.txt": "error", "b.txt": "cloud"})
        self.check_pauses(window, self.AT_ANY_TIME)
        window.open_menu("a.txt")
        window.choose("Corvid", "Open Online")
        self.assertEqual(host.wait_for("action")["paths"], [str(self.world.volume / "a.txt")])

    def test_extension_is_killed_and_comes_back(self):
        host, window = self.start()
        host.wait_for("extension", open=True)
        os.kill(self.world.status()["extension"]["pid"], signal.SIGKILL)
        host.wait_for("extension", open=False)
        host.wait_for("extension", open=True)
        self.wait_for_recovery(window, {"a.txt": "synced", "b.txt": "synced"})
        self.check_pauses(window, self.AT_ANY_TIME)
        window.open_menu("b.txt")
        window.choose("Corvid", "Share", "By Mail")
        self.assertEqual(host.wait_for("action")["paths"], [str(self.world.volume / "b.txt")])
        self.wait_for_badges(window, {"a.txt": "synced", "b.txt": "inProgress"})

    def test_extension_cannot_be_started(self):
        self.host("badge ** synced\n" + MENU)
        window = self.open(extension=False)
        window.item("a.txt")
        window.probe.restart()
        window.open_menu("a.txt")
        window.entry("Properties")
        self.assertNotIn("Corvid", [one.get_name() for one in window.shown_entries()])
        self.wait_for_badges(window, {"a.txt": None, "b.txt": None})
        self.check_pauses(window, self.OPENING_A_MENU)

    def test_menu_of_5000_entries(self):
        self.host("badge ** synced\n" + "".join(
            f'menu ** "Entry {number}" open\n' for number in range(5000)))
        window = self.open()
        self.wait_for_badges(window, {"a.txt": "synced", "b.txt": "synced"})
        pauses = []
        # The second time the module has the menu ready.
        for _ in range(2):
            window.probe.restart()
            window.open_menu("a.txt")
            window.choose("Corvid")
            window.entry("Entry 0")
            self.check_pauses(window, self.OPENING_A_MENU)
            pauses.append(window.probe.read()["longest"])
            self.desktop.key("Escape")
        self.assertLess(pauses[0], self.OPENING_A_MENU + self.SLACK * pauses[1])

    def test_pushes_as_fast_as_they_can_be_sent(self):
        self.make(*(f"c{number}.txt" for number in range(100)))
        _, window = self.start()
        floods = [subprocess.Popen(
            [sys.executable, Path(__file__).with_name("flood.py"), self.world.runtime / "ports",
             "10", "b.txt", *(f"c{number}.txt" for number in range(100))],
            stdout=subprocess.PIPE, text=True) for _ in range(2)]
        ended = threading.Event()
        threading.Thread(target=lambda: ([flood.wait() for flood in floods], ended.set(),
                                         GLib.idle_add(lambda: False))).start()
        self.desktop.wait_for(ended.is_set, "the end of the pushes")
        counts = [int(flood.communicate()[0]) for flood in floods]
        print(f"{counts} pushes", file=sys.stderr)
        self.assertGreater(min(counts), 0)
        self.world.run("corvid", "push", "b.txt", "accessDenied")
        self.wait_for_recovery(window, {"a.txt": "synced", "b.txt": "accessDenied"})
        self.check_pauses(window, self.AT_ANY_TIME)


if __name__ == "__main__":
    main(CAJA, WhenThingsFail)
