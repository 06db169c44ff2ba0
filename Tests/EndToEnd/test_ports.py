"""`corvid ports` and `corvid push`: who serves a port, and a badge from the command line."""

import json
import signal
import unittest

from world import World

HOST = "com.corvid.desktop.widget"
EXTENSION = "ZQ7X2KD4W9.group.corvid.desktop.widget.findesync-"


class Ports(unittest.TestCase):
    def setUp(self):
        self.world = World()
        self.addCleanup(self.world.close)
        self.world.commit("a.txt", "grün & [1].txt", "folder/c.txt")

    def start_all(self):
        host = self.world.host()
        extension = self.world.start("corvid-finder-ext")
        host.wait_for("extension", open=True)
        return host, extension

    def ports(self):
        return [json.loads(line)
                for line in self.world.run("corvid", "ports", "--json").splitlines()]

    def test_ports_without_any(self):
        self.assertEqual(self.world.run("corvid", "ports"),
                         f"No process serves a port in {self.world.runtime}/ports.\n")
        self.assertEqual(self.ports(), [])

    def test_ports_of_live_processes(self):
        host, extension = self.start_all()
        of_extension, of_host = self.ports()
        self.assertTrue(of_extension["name"].startswith(EXTENSION), of_extension)
        self.assertEqual(of_host["name"], HOST)
        for port, program, name in [(of_host, host, "corvid-host"),
                                    (of_extension, extension, "corvid-finder-e")]:
            self.assertEqual(port["pid"], program.process.pid)
            self.assertEqual(port["program"], name)
            self.assertIn(port["age_s"], range(120))
            self.assertIs(port["answers"], True)
        title, *lines = self.world.run("corvid", "ports").splitlines()
        self.assertEqual(title.split(), ["NAME", "PROCESS", "PROGRAM", "AGE", "ANSWERS"])
        name, process, program, _, unit, answers = lines[1].split()
        self.assertEqual([name, process, program, unit, answers],
                         [HOST, str(host.process.pid), "corvid-host", "s", "yes"])

    def test_ports_of_processes_that_hang_or_die(self):
        host, extension = self.start_all()
        host.process.send_signal(signal.SIGSTOP)
        of_extension, of_host = self.ports()
        self.assertIs(of_extension["answers"], True)
        self.assertIs(of_host["answers"], False)
        self.assertTrue(self.world.run("corvid", "ports").splitlines()[2].endswith(" no"))
        host.end(signal.SIGKILL)
        self.assertEqual([port["pid"] for port in self.ports()], [extension.process.pid])
        # The socket of the dead is still there.
        self.assertIn(HOST, self.world.ports())

    def test_push(self):
        self.start_all()
        watch = self.world.watch()
        self.assertEqual(self.world.run("corvid", "push", "a.txt", "error"), "")
        watch.wait_for("push", name="a.txt", badge="error")
        pushed = json.loads(self.world.run(
            "corvid", "push", self.world.volume / "grün & [1].txt", "syncedpartial", "--json"))
        watch.wait_for("push", name="grün & [1].txt", badge="syncedpartial")
        self.assertEqual(pushed, {
            "port": self.ports()[0]["name"], "pid": self.ports()[0]["pid"],
            "badge": "syncedpartial",
            "url": "file:///Volumes/Corvid/gr%C3%BCn%20&%20%5B1%5D.txt", "taken": True})
        self.world.run("corvid", "push", "folder/", "cloud")
        watch.wait_for("push", name="folder", badge="cloud")
        self.world.run("corvid", "push", "/Volumes/Corvid/a.txt", "none")
        watch.wait_for("push", name="a.txt", badge="none")

    def test_push_that_cannot_be(self):
        def refused(*words):
            return self.world.run("corvid", "push", *words, status=1)

        self.assertIn("No extension is running", refused("/Volumes/Corvid/a.txt", "synced"))
        self.start_all()
        self.assertIn('"Synced" is not a badge; the badges are cloud, ',
                      refused("a.txt", "Synced"))
        outside = refused(self.world.home / "a.txt", "synced")
        self.assertIn(f"is not on the volume, which is {self.world.volume}", outside)
        self.world.run("corvid", "push", "a.txt", status=2)

    def test_push_to_an_extension_that_hangs(self):
        _, extension = self.start_all()
        extension.process.send_signal(signal.SIGSTOP)
        # The kernel takes some for it. The one that finds no room says so within its second.
        for _ in range(200):
            try:
                self.world.run("corvid", "push", "a.txt", "error")
            except AssertionError:
                break
        self.assertIn("The extension did not take the badge within a second",
                      self.world.run("corvid", "push", "a.txt", "error", status=1))
        line = json.loads(self.world.run("corvid", "push", "a.txt", "error", "--json", status=1))
        self.assertIs(line["taken"], False)
        # Nobody can be asked any more who it is.
        of_extension = self.ports()[0]
        self.assertIs(of_extension["answers"], False)
        self.assertIsNone(of_extension["pid"])
        self.assertEqual(self.world.run("corvid", "ports").splitlines()[1].split()[1:3],
                         ["?", "?"])


if __name__ == "__main__":
    unittest.main()
