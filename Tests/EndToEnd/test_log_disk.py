"""The extension's log on a disk that hangs, and in a folder that cannot be written."""

import os
import signal
import socket
import subprocess
import time
import unittest

from frozen_disk import FrozenDisk
from world import PATIENCE, PROGRAMS, World

FOLDER = "corvid/Logs/com.corvid.desktop.widget.FinderExt"
HANGS = "the disk did not answer"
# Our programs end within five seconds whatever hangs; the rest is for a busy machine.
END = 10


class LogWorld(unittest.TestCase):
    def setUp(self):
        self.world = World()
        self.addCleanup(self.world.close)
        # Long names, so that a listing logs more than waits in memory.
        self.names = [f"{number:03}-" + 200 * "x" for number in range(400)]
        self.world.commit(*self.names)

    def log_into(self, state):
        self.state = state
        self.world.environment |= {"XDG_STATE_HOME": str(state),
                                   "CVD_ENABLE_FINDER_EXT_LOGGING": "1"}

    def problem(self):
        return self.world.status()["logProblem"]

    def wait_for_problem(self, text):
        deadline = time.monotonic() + PATIENCE
        while text not in (problem := self.problem()) or (not text and problem):
            self.assertLess(time.monotonic(), deadline, problem)
        return problem

    def contents(self):
        return "".join(path.read_text() for path in sorted((self.state / FOLDER).iterdir()))


class HungDisk(LogWorld):
    def setUp(self):
        super().setUp()
        self.disk = FrozenDisk(self.world.scratch)
        # Before the world is closed, which waits for its processes.
        self.addCleanup(self.disk.close)
        self.log_into(self.disk.folder)

    def start(self):
        host = self.world.host()
        extension = self.world.start("corvid-finder-ext")
        host.wait_for("extension", open=True)
        return extension

    def test_badges_and_menus_go_on(self):
        self.start()
        expected = self.world.badges()
        self.disk.freeze()
        for _ in range(3):
            self.assertEqual(self.world.badges(), expected)
        menu = self.world.run("corvid", "menu", self.world.volume / self.names[0])
        self.assertIn("Copy", menu)
        problem = self.wait_for_problem(HANGS)
        self.assertIn(str(self.state / FOLDER), problem)
        self.assertIn("See to that disk", problem)
        self.assertIn(problem.split(" (")[0], self.world.run("corvid", "status"))
        logs = subprocess.run([PROGRAMS / "corvid", "logs"], env=self.world.environment,
                              capture_output=True, text=True, timeout=PATIENCE)
        self.assertIn(HANGS, logs.stderr)
        self.disk.thaw()
        self.wait_for_problem("")
        self.assertRegex(self.contents(), rf"File logger: \d+ lines could not be written: {HANGS}\n")

    def test_start(self):
        self.disk.freeze()
        extension = self.start()
        self.assertEqual(self.world.badges()[self.names[0]], "synced")
        self.assertIn(HANGS, self.wait_for_problem(HANGS))
        self.assertIn(HANGS, extension.said())
        self.disk.thaw()
        self.wait_for_problem("")
        self.assertIn("<UI> Initializing Finder sync extension...", self.contents())

    def assert_let_go(self, program, started):
        """Of a process that has a thread in the kernel: nothing that others wait for."""
        self.assertIsNone(program.events.get(timeout=PATIENCE), "standard output is still open")
        self.assertLess(time.monotonic() - started, END)

    def test_terminated(self):
        extension = self.start()
        extension.wait_for("line")
        self.world.badges()
        self.disk.freeze()
        self.world.badges()
        self.wait_for_problem(HANGS)
        started = time.monotonic()
        extension.process.send_signal(signal.SIGTERM)
        self.assert_let_go(extension, started)
        with socket.socket(socket.AF_UNIX) as link, self.assertRaises(OSError):
            link.connect(str(self.world.runtime / "finder-link"))
        # Another one takes its place, although the first cannot end.
        self.assertIsNone(extension.process.poll())
        del self.world.environment["CVD_ENABLE_FINDER_EXT_LOGGING"]
        second = self.world.start("corvid-finder-ext")
        self.assertTrue(second.wait_for("line")["text"].startswith("Serving the volume"))
        self.assertEqual(self.world.badges()[self.names[0]], "synced")
        self.disk.thaw()
        self.assertEqual(extension.process.wait(PATIENCE), 0)

    def end_of_logging_process(self, step):
        process = subprocess.Popen(
            [PROGRAMS / "logging_process", "log:1:1", "flush", "say:ready", "wait", "log:1:10",
             step], env=self.world.environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE, text=True)
        try:
            self.assertEqual(process.stdout.readline(), "ready\n")
            self.disk.freeze()
            started = time.monotonic()
            process.stdin.write("\n")
            process.stdin.flush()
            self.assertEqual(process.stdout.read(), "")
            process.stderr.read()
            self.assertLess(time.monotonic() - started, END)
        finally:
            self.disk.thaw()
            process.communicate(timeout=PATIENCE)
        return process.returncode

    def test_return(self):
        self.assertEqual(self.end_of_logging_process("return"), 0)

    def test_fatal(self):
        self.assertEqual(self.end_of_logging_process("fatal"), -signal.SIGABRT)

    def test_crash(self):
        # The handler itself may hang in writing what is queued; then the deadline ends it.
        self.assertIn(self.end_of_logging_process("segv"), [-signal.SIGSEGV, 128 + signal.SIGSEGV])


class FolderThatCannotBeWritten(LogWorld):
    def setUp(self):
        super().setUp()
        self.log_into(self.world.scratch / "state")
        (self.state / FOLDER).parent.mkdir(parents=True)

    def said_by_all(self):
        extension = self.world.start("corvid-finder-ext")
        extension.wait_for("line")
        problem = self.wait_for_problem(str(self.state / FOLDER))
        # Behind it stands how many lines are lost so far, which grows.
        start = problem.split(" (")[0]
        self.assertIn(start, self.world.run("corvid", "status", status=3))
        self.assertIn(start, extension.said())
        logs = subprocess.run([PROGRAMS / "corvid", "logs"], env=self.world.environment,
                              capture_output=True, text=True, timeout=PATIENCE)
        self.assertIn(start, logs.stderr)
        return problem

    def test_cannot_be_written(self):
        # Not even root makes a file there.
        os.symlink("/sys/kernel", self.state / FOLDER)
        self.assertRegex(self.said_by_all(), "(?s)cannot be written to.*; the log then goes on")
        os.unlink(self.state / FOLDER)
        self.wait_for_problem("")
        self.assertRegex(self.contents(),
                         r"File logger: \d+ lines could not be written: Permission denied\n")

    def test_cannot_be_made(self):
        (self.state / FOLDER).write_text("in the way")
        problem = self.said_by_all()
        self.assertRegex(problem, "could not be made: .*File exists. Make that folder")


if __name__ == "__main__":
    unittest.main()
