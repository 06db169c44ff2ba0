"""The front end's end of the Finder link, written from docs/finder-link-protocol.md."""

import select
import socket
import struct
import time

MAGIC = b"CVFL"
HELLO, WELCOME, REFUSED, VOLUME, BEGIN, END, ASK, BADGES = 1, 2, 3, 4, 6, 7, 8, 9
MENU_REQUEST, MENU_REPLY, CLICK, CLICK_REPLY = 10, 11, 12, 13
STATUS_REQUEST, STATUS_REPLY, HOST_STATE, PING, PONG = 14, 15, 16, 17, 18
MAX_BATCH = 4096
ENABLED, HAS_SUBMENU = 1, 16
# Seconds that a connection is not read while what it sends is not taken.
UNREAD_FOR = 5


class HungUp(Exception):
    """The extension has closed the connection."""


def text(data):
    return struct.pack("<I", len(data)) + data


def frame(kind, fields=b""):
    return struct.pack("<IB", len(fields) + 1, kind) + fields


def hello(program=b"storm"):
    return frame(HELLO, MAGIC + struct.pack("<HH", 1, 1) + text(program))


def begin(folder):
    return frame(BEGIN, text(folder))


def end(folder):
    return frame(END, text(folder))


def asks(folder, names):
    """As many frames as it takes."""
    return b"".join(
        frame(ASK, text(folder) + struct.pack("<I", len(batch))
              + b"".join(b"\0" + text(name) for name in batch))
        for batch in (names[at:at + MAX_BATCH] for at in range(0, len(names), MAX_BATCH)))


def menu_request(request, context, folder, path):
    return frame(MENU_REQUEST, struct.pack("<IIB", request, context, 0) + text(folder)
                 + struct.pack("<I", 1) + b"\0" + text(path))


def click(request, menu, item):
    return frame(CLICK, struct.pack("<III", request, menu, item))


class Fields:
    def __init__(self, data):
        self.data = data
        self.at = 0

    def number(self, letter):
        value = struct.unpack_from("<" + letter, self.data, self.at)[0]
        self.at += struct.calcsize(letter)
        return value

    def text(self):
        size = self.number("I")
        value = self.data[self.at:self.at + size]
        assert len(value) == size
        self.at += size
        return value


def badges(fields):
    """(folder, [(is an answer, name, badge)])"""
    reader = Fields(fields)
    folder = reader.text()
    return folder, [(bool(reader.number("B") & 1), reader.text(), reader.text().decode())
                    for _ in range(reader.number("I"))]


def menu_reply(fields):
    """(request, outcome, menu, the numbers of the entries to click on, how many there are)"""
    reader = Fields(fields)
    request, outcome, menu = reader.number("I"), reader.number("B"), reader.number("I")
    reader.text()
    enabled = []
    count = 0

    def entries():
        nonlocal count
        for _ in range(reader.number("I")):
            flags = reader.number("B")
            reader.number("H")
            reader.text(), reader.text(), reader.text()
            if flags & ENABLED and not flags & HAS_SUBMENU:
                enabled.append(count)
            count += 1
            if flags & HAS_SUBMENU:
                entries()

    entries()
    return request, outcome, menu, enabled, count


class Connection:
    """One connection of a front end; for one thread."""

    def __init__(self, path, timeout=30, receive_buffer=None):
        self.socket = socket.socket(socket.AF_UNIX)
        try:
            if receive_buffer is not None:
                self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
            self.socket.settimeout(timeout)
            self.socket.connect(path)
            peer = self.socket.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, 12)
        except OSError:
            self.socket.close()
            raise
        self.extension = struct.unpack("3i", peer)[0]
        self.received = bytearray()

    def __enter__(self):
        return self

    def __exit__(self, *exception):
        self.socket.close()

    def say(self, data):
        """Sends all of it, and reads nothing meanwhile."""
        self.socket.sendall(data)

    def say_much(self, data):
        """Sends all of it. A front end that has much to say and does not read is not read from
        either, once much waits for it; so this reads when nothing is taken for a while."""
        rest = memoryview(data)
        patience = self.socket.gettimeout()
        while rest:
            _, writable, _ = select.select([], [self.socket], [], min(patience, UNREAD_FOR))
            readable = []
            if not writable:
                readable, writable, _ = select.select([self.socket], [self.socket], [], patience)
            if writable:
                rest = rest[self.socket.send(rest):]
            elif readable:
                self._receive()
            else:
                raise TimeoutError(f"{len(rest)} bytes were not taken within {patience} s")

    def _receive(self):
        data = self.socket.recv(1 << 18)
        if not data:
            raise HungUp
        self.received += data

    def next_frame(self, seconds):
        """(type, fields), or None when that time has passed."""
        deadline = time.monotonic() + seconds
        while True:
            if len(self.received) >= 4:
                size = struct.unpack_from("<I", self.received)[0]
                if len(self.received) >= 4 + size:
                    data = bytes(self.received[4:4 + size])
                    del self.received[:4 + size]
                    return data[0], data[1:]
            left = deadline - time.monotonic()
            if left <= 0 and seconds > 0:
                return None
            self.socket.settimeout(max(left, 0.001))
            try:
                self._receive()
            except TimeoutError:
                return None
            finally:
                self.socket.settimeout(30)

    def wait_for(self, kind, seconds, matches=lambda fields: True):
        """The fields of the next frame of that type, those of others being passed over."""
        deadline = time.monotonic() + seconds
        while (left := deadline - time.monotonic()) > 0:
            got = self.next_frame(left)
            if got is not None and got[0] == kind and matches(got[1]):
                return got[1]
        raise TimeoutError(f"no frame of type {kind} within {seconds} s")

    def greet(self, seconds):
        """Says hello, and returns the folder that the volume is."""
        self.say(hello())
        return Fields(self.wait_for(VOLUME, seconds)).text()
