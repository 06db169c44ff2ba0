"""Front ends that do not read, that say nothing or too much, and an extension without descriptors:
each a process of its own."""

import os
import resource
import signal
import socket
import struct
import unittest

from world import World

HELLO, WELCOME, STATUS_REQUEST, STATUS_REPLY = 1, 2, 14, 15
MAGIC = b"CVFL"


class Peer:
    """A connection to the extension that says what the test says."""

    def __init__(self, world):
        self.socket = socket.socket(socket.AF_UNIX)
        # Without a time-out it waits for its place where many connect.
        self.socket.connect(str(world.runtime / "finder-link"))
        self.socket.settimeout(60)

    def say(self, kind, payload):
        self.socket.sendall(struct.pack("<IB", 1 + len(payload), kind) + payload)

    def greet(self, program=b"peer"):
        self.say(HELLO, MAGIC + struct.pack("<HHI", 1, 1, len(program)) + program)
        self.hear(WELCOME)

    def hear(self, kind):
        while True:
            length, said = struct.unpack("<IB", self.take(5))
            payload = self.take(length - 1)
            if said == kind:
                return payload

    def take(self, count):
        data = b""
        while len(data) < count:
            more = self.socket.recv(count - len(data))
            if not more:
                raise AssertionError("the extension has hung up")
            data += more
        return data

    def close(self):
        self.socket.close()


def seconds_of(process):
    """What the thread that serves front ends, a process's first, has taken of a processor."""
    with open(f"/proc/{process.pid}/schedstat", encoding="ascii") as file:
        return int(file.read().split()[0]) / 1e9


def megabytes_of(process):
    with open(f"/proc/{process.pid}/status", encoding="ascii") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("VmRSS")) / 1024


class Link(unittest.TestCase):
    def setUp(self):
        self.world = World()
        self.addCleanup(self.world.close)

    def start_all(self):
        self.world.commit("a.txt")
        host = self.world.host()
        extension = self.world.start("corvid-finder-ext")
        host.wait_for("extension", open=True)
        return host, extension

    def peer(self):
        peer = Peer(self.world)
        self.addCleanup(peer.close)
        return peer

    def test_a_watch_that_is_stopped_and_continued(self):
        names = {f"an ordinary name, neither short nor long, {number}.txt"
                 for number in range(12_000)}
        for name in names:
            (self.world.volume / name).touch()
        extension = self.world.start("corvid-finder-ext", "--volume", self.world.volume)
        extension.wait_for("line")
        watch = self.world.watch()
        self.assertEqual(set(watch.badges), names)
        watch.process.send_signal(signal.SIGSTOP)
        # With a host all badges are others, and nobody takes them.
        rules = self.world.scratch / "rules"
        rules.write_text("badge ** synced\n", encoding="utf-8")
        self.world.start("corvid-host", "rules", rules, self.world.volume, "--json")
        while (status := self.world.status())["messagesSent"] < len(names):
            self.assertEqual(status["messagesFailed"], 0)
        before = seconds_of(extension.process)
        begun = os.times().elapsed
        for _ in range(10):
            self.world.run("corvid", "status")
        passed = os.times().elapsed - begun
        self.assertLess(seconds_of(extension.process) - before, passed / 2)
        watch.process.send_signal(signal.SIGCONT)
        told = set()
        while told != names:
            told.add(watch.wait_for("push", badge="synced")["name"])

    def test_silent_connections_keep_nobody_out(self):
        self.start_all()
        silent = [self.peer() for _ in range(600)]
        self.assertEqual(self.world.badges(), {"a.txt": "synced"})
        for peer in silent:
            self.assertEqual(peer.socket.recv(1), b"")

    def test_requests_with_nothing_read_take_little_memory(self):
        _, extension = self.start_all()
        peers = [self.peer() for _ in range(200)]
        for peer in peers:
            peer.greet(b"n" * 255)
        before = megabytes_of(extension.process)
        peers[0].socket.settimeout(1)
        sent = 0
        try:
            for number in range(32_000):
                peers[0].say(STATUS_REQUEST, struct.pack("<I", number))
                sent += 1
        except TimeoutError:
            pass
        self.world.run("corvid", "ls")
        self.assertLess(megabytes_of(extension.process), before + 32)
        peers[0].socket.settimeout(60)
        for number in range(min(sent, 1000)):
            reply = peers[0].hear(STATUS_REPLY)
            self.assertEqual(struct.unpack("<I", reply[:4])[0], number)

    def test_without_descriptors_the_extension_waits_and_then_serves(self):
        _, extension = self.start_all()
        early = self.peer()
        early.greet()
        few = max(int(name) for name in os.listdir(f"/proc/{extension.process.pid}/fd")) + 1
        before = resource.prlimit(extension.process.pid, resource.RLIMIT_NOFILE)
        resource.prlimit(extension.process.pid, resource.RLIMIT_NOFILE, (few, before[1]))
        late = [self.peer() for _ in range(20)]
        for peer in late:
            peer.say(HELLO, MAGIC + struct.pack("<HHI", 1, 1, 0))
        used = seconds_of(extension.process)
        late[-1].socket.settimeout(1)  # Time itself is the matter: nothing may spin meanwhile.
        with self.assertRaises(TimeoutError):
            late[-1].socket.recv(1)
        self.assertLess(seconds_of(extension.process) - used, 0.03)
        early.say(STATUS_REQUEST, struct.pack("<I", 7))
        early.hear(STATUS_REPLY)
        resource.prlimit(extension.process.pid, resource.RLIMIT_NOFILE, before)
        for peer in late:
            peer.socket.settimeout(60)
            peer.hear(WELCOME)


if __name__ == "__main__":
    unittest.main()
