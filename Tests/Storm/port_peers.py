"""Strangers at the message ports, written from docs/message-port-protocol.md."""

import os
import plistlib
import socket
import struct

HOST = "com.corvid.desktop.widget"
EXTENSION = "ZQ7X2KD4W9.group.corvid.desktop.widget.findesync-"
HEADER = struct.Struct("<4sBBHBBHiQI")
REQUEST, DATA, WANTS_REPLY = 1, 1, 2
UPDATE_PORTS = 5
BACKLOG = 64


def request(message, data, flags=DATA):
    return HEADER.pack(b"CVMP", 1, 1, HEADER.size, REQUEST, flags, 0, message, 1, len(data)) + data


def registration(port_name):
    uid = plistlib.UID
    return plistlib.dumps({
        "$version": 100000, "$archiver": "NSKeyedArchiver", "$top": {"root": uid(1)},
        "$objects": [
            "$null",
            {"NS.keys": [uid(2), uid(3)], "NS.objects": [uid(4), uid(5)], "$class": uid(6)},
            "portId", "register", port_name, True,
            {"$classname": "NSDictionary", "$classes": ["NSDictionary", "NSObject"]}]},
        fmt=plistlib.FMT_BINARY)


def sockets_of(ports, beginning):
    """The sockets in that folder of the ports whose name begins so."""
    try:
        return [os.path.join(ports, name) for name in os.listdir(ports)
                if name.startswith(beginning)]
    except FileNotFoundError:
        return []


def connect(path, seconds=1):
    """A connection, or None where nobody takes one within that time."""
    connection = socket.socket(socket.AF_UNIX)
    connection.settimeout(seconds)
    try:
        # The whole path may be longer than a socket's address holds.
        folder = os.open(os.path.dirname(path), os.O_PATH | os.O_CLOEXEC)
        try:
            connection.connect(f"/proc/self/fd/{folder}/{os.path.basename(path)}")
        finally:
            os.close(folder)
    except OSError:
        connection.close()
        return None
    return connection


def send(path, data, seconds=1):
    """Whether somebody has taken all of it."""
    connection = connect(path, seconds)
    if connection is None:
        return False
    with connection:
        try:
            connection.sendall(data)
        except OSError:
            return False
    return True


def answers(path, seconds):
    """Whether who serves that port answers a message that means nothing."""
    connection = connect(path, seconds)
    if connection is None:
        return False
    with connection:
        connection.settimeout(seconds)
        try:
            connection.sendall(request(0, b"", WANTS_REPLY))
            return len(connection.recv(HEADER.size)) > 0
        except OSError:
            return False
