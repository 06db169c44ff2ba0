"""An extension that hangs, at its start or later, and one whose start goes wrong: the commands end
when their time-out says, and the extension itself serves whatever becomes of its output."""

import os
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

    def check_time_outs(self, text, *options, programs=PROGRAMS):
        """Every command ends by its time-out, and says why."""
        for command in (("status",), ("ls",), ("menu", "a.txt"), ("do", "a.txt", "--item", "Stage"),
                        ("watch",)):
            begin = time.monotonic()
            result = subprocess.run(
                [programs / "corvid", *command, "--timeout", "0.5", *options],
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
        self.check_time_outs("There is no room.", programs=self.bin)

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


if __name__ == "__main__":
    unittest.main()
