#!/usr/bin/env python3
"""A complete host application, written from docs/message-port-protocol.md.

    host.py FOLDER [PATH=BADGE ...]

FOLDER stands for the volume, PATH is an item in it. Each line "PATH=BADGE" of standard input
changes a badge and pushes it; what happens is told on standard output."""

import contextlib, fcntl, os, plistlib, socket, struct, sys, tempfile, threading
from urllib.parse import quote, unquote

HOST = "com.corvid.desktop.widget"
EXTENSION = "ZQ7X2KD4W9.group.corvid.desktop.widget.findesync-"
ROOT = "file:///Volumes/Corvid/"
HEADER = struct.Struct("<4sBBHBBHiQI")
REQUEST, REPLY, DATA, WANTS_REPLY, REFUSED = 1, 2, 1, 2, 4

def open_folder(path):
    os.makedirs(path, mode=0o700, exist_ok=True)
    fd = os.open(path, os.O_RDONLY | os.O_DIRECTORY | os.O_NOFOLLOW)
    if os.fstat(fd).st_uid != os.getuid() or os.fstat(fd).st_mode & 0o077:
        sys.exit(f"{path} is not this user's alone; remove it")
    return fd

def checked(connection):
    peer = connection.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, 12)
    if struct.unpack("3i", peer)[1] != os.getuid():
        raise ConnectionRefusedError("another user's process")
    return connection

def connect(name):
    connection = socket.socket(socket.AF_UNIX)
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_SNDTIMEO, struct.pack("2l", 1, 0))
    connection.connect(f"/proc/self/fd/{ports}/{quote(name, safe='')}")
    return checked(connection)

def take(name):
    fcntl.flock(ports, fcntl.LOCK_EX)
    with contextlib.suppress(FileNotFoundError, ConnectionRefusedError):
        connect(name).close()
        sys.exit(f"another process serves {name}; end it first")
    temporary = f"={os.getpid()}"
    listener = socket.socket(socket.AF_UNIX)
    listener.bind(f"/proc/self/fd/{ports}/{temporary}")
    listener.listen(64)
    os.chmod(temporary, 0o600, dir_fd=ports)
    os.rename(temporary, quote(name, safe=""), src_dir_fd=ports, dst_dir_fd=ports)
    fcntl.flock(ports, fcntl.LOCK_UN)
    return listener

def publish_volume():
    fcntl.flock(runtime, fcntl.LOCK_EX)
    file = os.open(".host.volume", os.O_RDWR | os.O_CREAT | os.O_TRUNC, 0o600, dir_fd=runtime)
    os.write(file, f"{folder}\nfixed\n{os.getpid()}\n".encode())
    fcntl.fcntl(file, fcntl.F_OFD_SETLK, struct.pack("hhqqi4x", fcntl.F_WRLCK, 0, 0, 0, 0))
    os.rename(".host.volume", "host.volume", src_dir_fd=runtime, dst_dir_fd=runtime)
    fcntl.flock(runtime, fcntl.LOCK_UN)  # the lock on the file stays, as long as this process lives

def archive(root):
    objects = ["$null"]
    def add(value):
        objects.append(value)
        return plistlib.UID(len(objects) - 1)
    def encode(value):
        if isinstance(value, list):
            return list(map(encode, value))
        if isinstance(value, tuple):  # an object: its class and its fields
            names = {"$classname": value[0], "$classes": [value[0], "NSObject"]}
            fields = {name: encode(field) for name, field in value[1].items()}
            return add({**fields, "$class": add(names)})
        return add(value) if isinstance(value, str) else value
    return plistlib.dumps({"$version": 100000, "$archiver": "NSKeyedArchiver", "$top":
                           {"root": encode(root)}, "$objects": objects}, fmt=plistlib.FMT_BINARY)

def unarchive(data):
    plist = plistlib.loads(data)
    def decode(value):
        value = plist["$objects"][value.data] if isinstance(value, plistlib.UID) else value
        fields = value if isinstance(value, dict) else {}
        if "NS.keys" in fields:
            return dict(zip(map(decode, fields["NS.keys"]), map(decode, fields["NS.objects"])))
        if "NS.objects" in fields:
            return list(map(decode, fields["NS.objects"]))
        return decode(fields["NS.relative"]) if "NS.relative" in fields else value
    return decode(plist["$top"]["root"])

def path_of(url):
    return unquote(url).removeprefix(ROOT).rstrip("/")

def answer(message, payload):
    if message == 1:
        item = {"NSTitle": f"Share {len(payload['paths'])} Items", "NSKeyEquiv": "", "NSTag": 1,
                "NSMnemonicLoc": 2147483647, "NSAction": "share:"}
        return "NSArray", {"NS.objects": [("NSMenuItem", item)]}
    if message == 2:
        print("clicked", payload["action"]["NSTag"], *map(path_of, payload["path"]), flush=True)
    if message == 4:
        return badges.get(path_of(payload["url"]), "none")
    if message == 5:
        print("registered" if payload["register"] else "unregistered", flush=True)
    if message == 6:
        print("shown" if payload["add"] else "left", path_of(payload["path"]), flush=True)

def send(connection, kind, flags, message, number, data):
    header = HEADER.pack(b"CVMP", 1, 1, 28, kind, flags, 0, message, number, len(data))
    connection.sendall(header + data)

def serve_one(connection):
    connection.settimeout(5)
    stream = checked(connection).makefile("rb")
    magic, _, oldest, size, kind, flags, _, message, number, length = HEADER.unpack(stream.read(28))
    if (magic, kind) != (b"CVMP", REQUEST) or length > 64 << 20:
        return
    data = stream.read(size - 28 + length)[size - 28:]
    root = answer(message, unarchive(data)) if oldest == 1 and length == len(data) > 0 else None
    if flags & WANTS_REPLY:
        reply = b"" if root is None else archive(root)
        mark = REFUSED if oldest > 1 else DATA if reply else 0
        send(connection, REPLY, mark, message, number, reply)

def serve():
    while True:
        with listener.accept()[0] as connection, contextlib.suppress(Exception):
            serve_one(connection)  # whatever one peer sends, the next is served

def main():
    global folder, badges, runtime, ports, listener
    folder, *pairs = sys.argv[1:] or sys.exit(__doc__)
    badges = dict(pair.rsplit("=", 1) for pair in pairs)
    base = os.environ.get("XDG_RUNTIME_DIR", "")
    place = base + "/corvid" if base[:1] == "/" else f"{tempfile.gettempdir()}/corvid-{os.getuid()}"
    runtime, ports = open_folder(place), open_folder(place + "/ports")
    listener = take(HOST)
    publish_volume()
    threading.Thread(target=serve, daemon=True).start()
    print("ready", flush=True)
    for line in sys.stdin:
        path, badges[path] = line.rstrip("\n").rsplit("=", 1)
        url = "NSURL", {"NS.base": plistlib.UID(0), "NS.relative": ROOT + quote(path)}
        push = "NSDictionary", {"NS.keys": ["badgeID", "path"], "NS.objects": [badges[path], url]}
        for name in map(unquote, os.listdir(ports)):  # all that are there, registered or not
            if name.startswith(EXTENSION):
                with contextlib.suppress(OSError), connect(name) as connection:
                    send(connection, REQUEST, DATA, 3, 0, archive(push))
    os.unlink(HOST, dir_fd=ports)
    os.unlink("host.volume", dir_fd=runtime)

if __name__ == "__main__":
    main()
