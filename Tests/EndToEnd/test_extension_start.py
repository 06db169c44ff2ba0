"""An extension that hangs, at its start or later, and one whose start goes wrong: the commands end
when their time-out says, and the extension itself serves whatever becomes of its output."""

import ctypes
import errno
import os
import select
import shutil
import signal
import socket
import struct
import subprocess
import threading
import time
import unittest

from world import PATIENCE, PROGRAMS, World

# What a command may take beyond its time-out, on a busy machine.
SLACK = 10
MAGIC = b"CVFL"


class ExtensionThatHangs(unittest.TestCase):
    def setUp(self):
        self.world = World()
        self.addCleanup(self.world.close)
        self.world.commit("a.txt")
        self.bin = self.world.scratch / "bin"
        self.bin.mkdir()

    def fake_extension(self, script):
        """Has `corvid` start a program that does what `script` says; the start pipe is its
        descriptor 3. A command finds the extension beside itself."""
        shutil.copy(PROGRAMS / "corvid", self.bin)
        program = self.bin / "corvid-finder-ext"
        program.write_text(f"#!/bin/sh\n{script}\n", encoding="utf-8")
        program.chmod(0o700)

    def check_time_outs(self, text, *options, programs=PROGRAMS, time_out="0.5"):
        """Every command ends by its time-out, and says why."""
        for command in (("status",), ("ls",), ("menu", "a.txt"), ("do", "a.txt", "--item", "Stage"),
                        ("watch",)):
            begin = time.monotonic()
            result = subprocess.run(
                [programs / "corvid", *command, "--timeout", time_out, *options],
                env=self.world.environment, cwd=self.world.volume, stdin=subprocess.DEVNULL,
                capture_output=True, text=True, timeout=PATIENCE)
            self.assertEqual(result.returncode, 1, (command, result))
            self.assertLess(time.monotonic() - begin, SLACK, command)
            self.assertIn(text, result.stderr, command)

    def test_start_hangs(self):
        self.fake_extension("exec sleep 1000")
        self.check_time_outs("has not said in time that it runs", programs=self.bin)

    def test_start_is_said_and_never_ends(self):
        # It says how it went, and then stays in the foreground.
        self.fake_extension("printf 'There is no room.' >&3; exec 3>&-; exec sleep 1000")
        # After three tries, which take less than a second.
        self.check_time_outs("There is no room.", programs=self.bin, time_out="10")

    def test_start_pipe_is_held(self):
        self.fake_extension("sleep 1000 &")
        self.check_time_outs("has not said in time that it runs", programs=self.bin)

    def test_stopped(self):
        extension = self.world.start("corvid-finder-ext")
        extension.wait_for("line")
        extension.process.send_signal(signal.SIGSTOP)
        self.check_time_outs("does not answer")
        extension.process.send_signal(signal.SIGCONT)
        self.assertEqual(self.world.badges(), {"a.txt": "cloud"})

    def test_stopped_between_two_answers(self):
        extension = self.world.start("corvid-finder-ext")
        extension.wait_for("line")
        watch = self.world.watch()
        extension.process.send_signal(signal.SIGSTOP)
        self.check_time_outs("does not answer")
        extension.process.send_signal(signal.SIGCONT)
        self.world.host()
        watch.wait_for("push", name="a.txt", badge="synced")

    def listen(self):
        self.world.runtime.mkdir(mode=0o700, exist_ok=True)
        listener = socket.socket(socket.AF_UNIX)
        self.addCleanup(listener.close)
        listener.bind(str(self.world.runtime / "finder-link"))
        listener.listen(0)
        return listener

    def test_takes_no_connection(self):
        self.listen()
        queued = []
        while True:
            one = socket.socket(socket.AF_UNIX)
            one.setblocking(False)
            self.addCleanup(one.close)
            try:
                one.connect(str(self.world.runtime / "finder-link"))
            except BlockingIOError:
                break
            queued.append(one)
            self.assertLess(len(queued), 1000)
        self.check_time_outs("takes no more connections")
        self.check_time_outs("takes no more connections", "--no-start")

    def serve(self, talk):
        """An extension that says `talk(connection)` to whoever connects."""
        listener = self.listen()

        def serve_one(connection):
            try:
                talk(connection)
                connection.recv(1 << 20)
                self.is_over.wait()
            except OSError:
                pass  # the command has ended

        def serve_all():
            while True:
                try:
                    connection, _ = listener.accept()
                except OSError:
                    return
                connections.append(connection)
                threading.Thread(target=serve_one, args=(connection,), daemon=True).start()

        connections = []
        thread = threading.Thread(target=serve_all, daemon=True)
        thread.start()

        def stop():
            listener.shutdown(socket.SHUT_RDWR)
            thread.join()
            for connection in connections:
                connection.close()

        self.is_over = threading.Event()
        self.addCleanup(stop)
        self.addCleanup(self.is_over.set)

    @staticmethod
    def welcome(connection):
        fields = MAGIC + struct.pack("<HI", 1, os.getpid()) + struct.pack("<I", 3) + b"9.9"
        connection.sendall(struct.pack("<IB", len(fields) + 1, 2) + fields)

    def test_says_welcome_and_no_more(self):
        self.serve(self.welcome)
        self.check_time_outs("has not said in time what its volume is")

    def test_talks_without_end_and_answers_nothing(self):
        def talk(connection):
            self.welcome(connection)
            frame = struct.pack("<IB", 4, 200) + b"???"
            while True:
                connection.sendall(1000 * frame)

        self.serve(talk)
        self.check_time_outs("has not said in time what its volume is")

    def test_says_its_volume_and_no_more(self):
        def talk(connection):
            self.welcome(connection)
            volume = os.fsencode(self.world.volume)
            connection.sendall(struct.pack("<IBI", len(volume) + 5, 4, len(volume)) + volume)
            connection.sendall(struct.pack("<IBB", 2, 16, 1))

        self.serve(talk)
        begin = time.monotonic()
        for command in (("status",), ("menu", "a.txt"), ("ls",)):
            self.world.run("corvid", *command, "--timeout", "1", status=1)
        self.assertLess(time.monotonic() - begin, 3 * (1 + SLACK))


def fill(pipe):
    """Has the next byte that is written to a pipe wait for a reader."""
    os.set_blocking(pipe, False)
    for size in (4096, 1):
        try:
            while True:
                os.write(pipe, bytes(size))
        except BlockingIOError:
            pass
    os.set_blocking(pipe, True)


class Filter(ctypes.Structure):
    _fields_ = [("code", ctypes.c_ushort), ("yes", ctypes.c_ubyte), ("no", ctypes.c_ubyte),
                ("value", ctypes.c_uint)]


class Filters(ctypes.Structure):
    _fields_ = [("count", ctypes.c_ushort), ("filters", ctypes.POINTER(Filter))]


def have_no_children():
    """From now on this process, and what it becomes, can have threads but no child."""
    clone = {"x86_64": 56, "aarch64": 220}[os.uname().machine]
    thread, refuse, allow = 0x10000, 0x50000 | errno.EAGAIN, 0x7fff0000
    lines = [(0x20, 0, 0, 0), (0x15, 0, 2, clone),  # the call's number
             (0x20, 0, 0, 16), (0x45, 0, 1, thread),  # its flags
             (0x06, 0, 0, allow), (0x06, 0, 0, refuse)]
    filters = (Filter * len(lines))(*lines)
    libc = ctypes.CDLL(None, use_errno=True)
    libc.prctl(38, 1, 0, 0, 0)  # PR_SET_NO_NEW_PRIVS
    if libc.prctl(22, 2, ctypes.byref(Filters(len(lines), filters)), 0, 0) != 0:  # PR_SET_SECCOMP
        raise OSError(ctypes.get_errno(), "no filter for system calls")


class StartOfTheExtension(unittest.TestCase):
    def setUp(self):
        self.world = World()
        self.addCleanup(self.world.close)
        self.world.commit("a.txt")
        self.open = set()

    def pipe(self):
        ends = os.pipe()
        for end in ends:
            self.open.add(end)
            self.addCleanup(self.close, end)
        return ends

    def close(self, descriptor):
        if descriptor in self.open:
            self.open.remove(descriptor)
            os.close(descriptor)

    def start(self, report, **streams):
        """Starts the extension as a front end does, and waits for the process that does so."""
        process = subprocess.Popen(
            [PROGRAMS / "corvid-finder-ext", "--background", str(report)],
            env=self.world.environment, cwd=self.world.volume, stdin=subprocess.DEVNULL,
            pass_fds=[report], **streams)
        self.addCleanup(process.kill)
        return process

    def read(self, descriptor):
        """All that comes until nobody has the other end any more."""
        text = b""
        deadline = time.monotonic() + PATIENCE
        while True:
            ready, _, _ = select.select([descriptor], [], [], max(0, deadline - time.monotonic()))
            self.assertTrue(ready, f"nothing more was said after {text}")
            more = os.read(descriptor, 4096)
            if not more:
                return text.decode()
            text += more

    def check_serves(self):
        self.assertEqual(self.world.run("corvid", "ls", "--no-start").split(), ["Cloud", "a.txt"])
        return self.world.status()["extension"]["pid"]

    def test_no_process_can_be_made(self):
        reading, writing = self.pipe()
        process = self.start(writing, preexec_fn=have_no_children)
        self.close(writing)
        self.assertIn("cannot go on in the background: Resource temporarily unavailable",
                      self.read(reading))
        self.assertEqual(process.wait(PATIENCE), 1)
        self.assertEqual(self.world.ports(), [])

    def test_whoever_started_it_has_gone(self):
        reading, writing = self.pipe()
        said, saying = self.pipe()
        self.close(reading)
        process = self.start(writing, stdout=saying)
        self.assertEqual(process.wait(PATIENCE), 0)
        self.assertEqual(os.read(said, 4096).decode(),
                         f"Serving the volume {self.world.volume}.\n")
        self.check_serves()

    def test_whoever_started_it_does_not_listen(self):
        _, writing = self.pipe()
        said, saying = self.pipe()
        fill(writing)
        self.start(writing, stdout=saying)
        self.assertTrue(select.select([said], [], [], PATIENCE)[0])
        self.check_serves()

    def test_nobody_reads_its_output(self):
        reading, writing = self.pipe()
        _, full = self.pipe()
        fill(full)
        self.start(writing, stdout=full, stderr=full)
        self.close(writing)
        self.assertEqual(self.read(reading), "ready")
        self.check_serves()
        # Whoever shares the pipe still waits when it is full.
        self.assertTrue(os.get_blocking(full))
        host = self.world.host()
        host.wait_for("extension", open=True)
        self.assertEqual(self.world.badges(), {"a.txt": "synced"})

    def test_its_output_is_closed(self):
        reading, writing = self.pipe()

        def close_all():
            for descriptor in range(3):
                os.close(descriptor)

        self.start(writing, preexec_fn=close_all)
        self.close(writing)
        self.assertEqual(self.read(reading), "ready")
        process = self.check_serves()
        for descriptor in range(3):
            self.assertEqual(os.readlink(f"/proc/{process}/fd/{descriptor}"), "/dev/null")

    def test_descriptor_that_is_not_open(self):
        text = self.world.run("corvid-finder-ext", "--background", "77", status=2)
        self.assertIn("--background 77 names no open descriptor", text)


class HostThatIsFull(unittest.TestCase):
    """A host that hangs and has no room for one more connection: nobody can ask who it is."""

    PORT = "com.corvid.desktop.widget"

    def setUp(self):
        self.world = World()
        self.addCleanup(self.world.close)
        self.world.commit("a.txt")
        self.ports = self.world.runtime / "ports"
        self.ports.mkdir(mode=0o700, parents=True)
        self.world.runtime.chmod(0o700)

    def host(self):
        listener = socket.socket(socket.AF_UNIX)
        self.addCleanup(listener.close)
        path = self.ports / ".new"
        listener.bind(str(path))
        listener.listen(0)
        while True:
            one = socket.socket(socket.AF_UNIX)
            one.setblocking(False)
            self.addCleanup(one.close)
            try:
                one.connect(str(path))
            except BlockingIOError:
                break
        path.rename(self.ports / self.PORT)
        return listener

    def test_counts_as_there_and_its_successor_is_noticed(self):
        self.host()
        self.world.start("corvid-finder-ext").wait_for("line")
        self.assertNotEqual(self.world.status()["host"]["state"], "absent")
        watch = self.world.watch()
        if self.world.status()["host"]["state"] != "notAnswering":
            watch.wait_for("state", host="notAnswering")
        self.host()
        watch.wait_for("state", host="present")

    def test_end_of_a_host_that_was_full(self):
        host = self.world.host()
        host.process.send_signal(signal.SIGSTOP)
        while True:
            one = socket.socket(socket.AF_UNIX)
            one.setblocking(False)
            self.addCleanup(one.close)
            try:
                one.connect(str(self.ports / self.PORT))
            except BlockingIOError:
                break
        self.world.start("corvid-finder-ext").wait_for("line")
        watch = self.world.watch()
        self.assertNotEqual(self.world.status()["host"]["state"], "absent")
        host.end(signal.SIGKILL)
        watch.wait_for("state", host="absent")


if __name__ == "__main__":
    unittest.main()
