"""The extension's end of the Finder link, played by a test: one of another version. Written from
docs/finder-link-protocol.md."""

import os
import queue
import socket
import struct
import threading

MAGIC = b"CVFL"
HELLO, WELCOME, REFUSED, VOLUME, BEGIN, ASK, BADGES = 1, 2, 3, 4, 6, 8, 9
MENU_REQUEST, MENU_REPLY, CLICK = 10, 11, 12
ENABLED = 1
UNKNOWN_TYPE = 200


def text(value):
    data = value if isinstance(value, bytes) else value.encode()
    return struct.pack("<I", len(data)) + data


class PlayedExtension:
    """Speaks the versions from `oldest` to `newest`, as the protocol has a later one do: with types
    of frames, and fields at their ends, that a front end of today does not know. Each item has the
    badge "synced"; the menu has the entries "First" and "Second"; `clicks` gets their numbers."""

    def __init__(self, world, oldest, newest):
        self.oldest, self.newest, self.volume = oldest, newest, os.fsencode(world.volume)
        self.clicks = queue.Queue()
        self.refused = threading.Event()
        world.runtime.mkdir(mode=0o700, exist_ok=True)
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(str(world.runtime / "finder-link"))
        self.listener.listen()
        self.server = threading.Thread(target=self._serve, daemon=True)
        self.server.start()

    def close(self):
        # Closed under the thread's accept(), the number could be that of the next one's listener.
        self.listener.shutdown(socket.SHUT_RDWR)
        self.server.join()
        self.listener.close()

    def _serve(self):
        while True:
            try:
                connection = self.listener.accept()[0]
            except OSError:
                return
            threading.Thread(target=self._serve_one, args=(connection,), daemon=True).start()

    def _serve_one(self, connection):
        def say(kind, fields):
            connection.sendall(struct.pack("<IB", len(fields) + 1, kind) + fields)
            connection.sendall(struct.pack("<IB", 4, UNKNOWN_TYPE) + b"???")

        with connection, connection.makefile("rb") as stream:
            while header := stream.read(4):
                frame = stream.read(struct.unpack("<I", header)[0])
                kind, fields = frame[0], frame[1:]
                if kind == HELLO:
                    oldest, newest = struct.unpack_from("<HH", fields, len(MAGIC))
                    if oldest > self.newest or newest < self.oldest:
                        connection.sendall(self._refusal())
                        self.refused.set()
                        return
                    say(WELCOME, MAGIC + struct.pack("<HI", min(newest, self.newest), os.getpid())
                        + text("9.9") + b"a field of later times")
                    say(VOLUME, text(self.volume) + b"another")
                elif kind == ASK:
                    say(BADGES, self._badges(fields))
                elif kind == MENU_REQUEST:
                    entry = struct.pack("<BbB", ENABLED, 0, 0)
                    say(MENU_REPLY, fields[:4] + struct.pack("<BI", 0, 1) + text("Corvid")
                        + struct.pack("<I", 2) + entry + text("First") + text("") + text("")
                        + entry + text("Second") + text("") + text("") + b"and more")
                elif kind == CLICK:
                    self.clicks.put(struct.unpack_from("<III", fields)[1:])

    def _refusal(self):
        fields = struct.pack("<HH", self.oldest, self.newest) + text("Restart the older one.")
        return struct.pack("<IB", len(fields) + 1, REFUSED) + fields

    @staticmethod
    def _badges(ask):
        """Settles every question of an `ask`."""
        def take(at):
            end = at + 4 + struct.unpack_from("<I", ask, at)[0]
            return ask[at + 4:end], end

        folder, at = take(0)
        count, at = struct.unpack_from("<I", ask, at)[0], at + 4
        answers = b""
        for _ in range(count):
            name, at = take(at + 1)
            answers += b"\1" + text(name) + text("synced")
        return text(folder) + struct.pack("<I", count) + answers
