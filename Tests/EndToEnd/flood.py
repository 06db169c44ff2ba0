"""Pushes badges to every extension as fast as it takes them, and prints how many it took.

    flood.py PORTS SECONDS NAME...        PORTS is the folder of the ports
"""

import itertools
import os
import plistlib
import socket
import struct
import sys
import time

HEADER = struct.Struct("<4sBBHBBHiQI")
REQUEST, DATA, PROVIDE_BADGE = 1, 1, 3


def archive(badge, name):
    uid = plistlib.UID
    return plistlib.dumps({
        "$version": 100000, "$archiver": "NSKeyedArchiver", "$top": {"root": uid(1)},
        "$objects": [
            "$null",
            {"NS.keys": [uid(2), uid(3)], "NS.objects": [uid(4), uid(5)], "$class": uid(7)},
            "badgeID", "path", badge,
            {"NS.base": uid(0), "NS.relative": uid(6), "$class": uid(8)},
            f"file:///Volumes/Corvid/{name}",
            {"$classname": "NSDictionary", "$classes": ["NSDictionary", "NSObject"]},
            {"$classname": "NSURL", "$classes": ["NSURL", "NSObject"]}]},
        fmt=plistlib.FMT_BINARY)


def main():
    ports, seconds, *names = sys.argv[1:]
    os.chdir(ports)
    extensions = [port for port in os.listdir() if "findesync-" in port]
    messages = [archive(badge, name) for badge in ("error", "inProgress", "checkedOut")
                for name in names]
    end = time.monotonic() + float(seconds)
    taken = 0
    for data in itertools.cycle(messages):
        if time.monotonic() > end:
            break
        for extension in extensions:
            with socket.socket(socket.AF_UNIX) as connection:
                connection.settimeout(1)
                try:
                    connection.connect(extension)
                    connection.sendall(HEADER.pack(b"CVMP", 1, 1, HEADER.size, REQUEST, DATA, 0,
                                                   PROVIDE_BADGE, 0, len(data)) + data)
                    taken += 1
                except OSError:  # its queue is full
                    pass
    print(taken)


if __name__ == "__main__":
    main()
