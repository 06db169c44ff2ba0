"""Somebody removes what the programs have in the runtime folder: badges work again."""

import os
import resource
import shutil
import signal
import time
import unittest
from pathlib import Path

from world import PATIENCE, World

HOST = "com.corvid.desktop.widget"


def remove(folder):
    """As far as it comes: what is removed may be back before the folder is empty."""
    shutil.rmtree(folder, ignore_errors=True)


class RuntimeFolder(unittest.TestCase):
    def setUp(self):
        self.world = World()
        self.addCleanup(self.world.close)
        self.world.commit("a.txt", "b.txt")
        self.host = self.world.host()
        self.extension = self.world.start("corvid-finder-ext")
        self.extension.wait_for("line")
        self.folder = self.world.runtime

    def await_badges(self, of_a):
        """Until a front end that comes new gets the badge of a.txt from the host, of this
        extension."""
        end = time.monotonic() + PATIENCE
        while True:
            try:
                if self.world.badges().get("a.txt") == of_a:
                    break
            except AssertionError:
                pass  # There is no socket at this moment.
            self.assertLess(time.monotonic(), end, self.world.status())
        status = self.world.status()
        self.assertEqual(status["extension"]["pid"], self.extension.process.pid, status)
        self.assertEqual(status["host"]["pid"], self.host.process.pid, status)

    def test_whatever_is_removed(self):
        self.await_badges("synced")
        removals = {
            "the host's port": lambda: (self.folder / "ports" / HOST).unlink(),
            "every port": lambda: remove(self.folder / "ports"),
            "the host's volume": (self.folder / "host.volume").unlink,
            "the extension's volume": (self.folder / "finder-ext.volume").unlink,
            "the socket of the link": (self.folder / "finder-link").unlink,
            "everything": lambda: remove(self.folder),
        }
        for what, act in removals.items():
            with self.subTest(what):
                watch = self.world.watch()
                act()
                self.await_badges("synced")
                # Pushes arrive again, and at front ends that were there before.
                self.world.run("corvid", "push", "b.txt", "error")
                watch.wait_for("push", name="b.txt", badge="error")
                watch.end()
        self.assertEqual(self.host.end(), 0)
        self.assertEqual(self.extension.end(), 0)
        self.assertEqual(sorted(path.name for path in self.folder.rglob("*")), ["ports"])

    def test_port_of_a_host_with_rules(self):
        self.host.end()
        rules = self.world.scratch / "rules"
        rules.write_text("badge ** error\n", encoding="utf-8")
        self.host = self.world.start("corvid-host", "rules", rules, self.world.volume, "--json")
        self.host.wait_for("serving")
        self.await_badges("error")
        (self.folder / "ports" / HOST).unlink()
        self.await_badges("error")
        remove(self.folder)
        self.await_badges("error")
        self.assertEqual(self.host.end(), 0)

    def without_descriptors(self, program, act):
        """Does something while the program can open nothing, and has it look at the folder."""
        pid = program.process.pid
        before = resource.prlimit(pid, resource.RLIMIT_NOFILE)
        resource.prlimit(pid, resource.RLIMIT_NOFILE, (3, before[1]))
        act()
        looked_at = self.folder / "ports" / ".looked-at"
        looked_at.touch()
        looked_at.unlink()
        # It has looked when it waits again.
        end = time.monotonic() + PATIENCE
        while not all(Path(f"/proc/{pid}/task/{task}/stat").read_text().rpartition(")")[2].split()[0]
                      == "S" for task in os.listdir(f"/proc/{pid}/task")):
            self.assertLess(time.monotonic(), end)
        resource.prlimit(pid, resource.RLIMIT_NOFILE, before)

    def test_no_descriptors_for_a_while(self):
        watch = self.world.watch()
        self.without_descriptors(self.extension, lambda: self.world.change("a.txt"))
        watch.wait_for("push", name="a.txt", badge="inProgress")
        self.await_badges("inProgress")
        self.without_descriptors(self.host, lambda: None)
        self.world.git("checkout", "--", "a.txt")
        watch.wait_for("push", name="a.txt", badge="synced")
        self.await_badges("synced")

    def test_second_host_while_the_first_was_away(self):
        self.host.process.send_signal(signal.SIGSTOP)
        os.waitid(os.P_PID, self.host.process.pid, os.WSTOPPED)
        remove(self.folder)
        second = self.world.host()
        first, self.host = self.host, second
        self.await_badges("synced")
        first.process.send_signal(signal.SIGCONT)
        problem = first.wait_for("problem")
        self.assertIn(f"process {second.process.pid} has", str(problem))
        self.await_badges("synced")
        second.end(signal.SIGKILL)
        self.host = first
        self.await_badges("synced")

    def test_second_extension_while_the_first_was_away(self):
        first = self.extension
        first.process.send_signal(signal.SIGSTOP)
        os.waitid(os.P_PID, first.process.pid, os.WSTOPPED)
        remove(self.folder)
        self.extension = self.world.start("corvid-finder-ext")
        self.extension.wait_for("line")
        first.process.send_signal(signal.SIGCONT)
        # One a user: it ends, and leaves what is the other's.
        self.assertEqual(first.process.wait(PATIENCE), 0)
        self.assertIn("end one of the two", first.said())
        self.await_badges("synced")


if __name__ == "__main__":
    unittest.main()
