"""A test that is killed leaves nothing running and nothing behind."""

import os
import signal
import subprocess
import sys
import unittest
from pathlib import Path

import leftovers

# A front end that starts the extension, which then is nobody's child, and a program that hangs.
KILLED = """
import signal
from world import World
world = World()
world.host().process.send_signal(signal.SIGSTOP)
world.run("corvid", "ls", world.volume)
print(world.scratch.parent, flush=True)
signal.pause()
"""


class Leftovers(unittest.TestCase):
    def test_killed(self):
        with subprocess.Popen([sys.executable, "-c", KILLED], stdout=subprocess.PIPE, text=True,
                              cwd=Path(__file__).parent) as test:
            scratch = Path(test.stdout.readline().strip())
            running = leftovers.processes_of(scratch)
            for descriptor in running:
                self.addCleanup(os.close, descriptor)
            names = sorted(Path(f"/proc/{pid}/comm").read_text().strip()
                           for pid in running.values())
            self.assertEqual(names, ["corvid-finder-e", "corvid-host"])
            watcher = os.pidfd_open(self.watcher_of(scratch))
            self.addCleanup(os.close, watcher)
            test.kill()
        self.assertEqual(test.returncode, -signal.SIGKILL)
        self.assertTrue(leftovers.wait_for_end([*running, watcher], 60))
        self.assertFalse(scratch.exists())

    @staticmethod
    def watcher_of(scratch):
        for entry in Path("/proc").glob("[0-9]*"):
            try:
                words = (entry / "cmdline").read_bytes().split(b"\0")
            except OSError:
                continue
            if os.fsencode(scratch) in words and leftovers.__file__.encode() in words:
                return int(entry.name)
        raise AssertionError("nobody watches the test")


if __name__ == "__main__":
    unittest.main()
