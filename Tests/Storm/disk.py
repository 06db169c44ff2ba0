"""A small disk of its own for the log files, which can be full or hang. It takes root; without, the
logs are in a folder and neither happens.

    disk.py MOUNT_POINT     the watcher: lets the disk go on and removes it when its parent ends

A frozen file system holds whoever writes to it, even against SIGKILL. So a process of its own,
which never writes, thaws it when the storm ends, however it ends."""

import fcntl
import os
import signal
import subprocess
import sys
import tempfile
import threading
import time

FREEZE, THAW = 0xC0045877, 0xC0045878  # FIFREEZE and FITHAW of <linux/fs.h>
SIZE = 48 << 20
PATIENCE = 60


class Disk:
    """`reason` says why it can neither be full nor hang; None when it can."""

    def __init__(self):
        self.folder = tempfile.mkdtemp(prefix="corvid-storm-disk-")
        self.mount_point = os.path.join(self.folder, "mounted")
        os.mkdir(self.mount_point)
        self.lock = threading.Lock()
        self.is_frozen = False
        self.root = None
        self.watcher = None
        self.reason = self._mount()

    def _mount(self):
        if os.geteuid() != 0:
            return "only root can mount a disk"
        image = os.path.join(self.folder, "image")
        with open(image, "wb") as file:
            file.truncate(SIZE)
        for command in (["mkfs.ext4", "-q", "-m", "0", image],
                        ["mount", "-o", "loop", image, self.mount_point]):
            try:
                result = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True,
                                        text=True, check=False)
            except FileNotFoundError:
                return f"{command[0]} is not installed"
            if result.returncode != 0:
                return f"{command[0]}: {result.stderr.strip()}"
        # Opened before it ever hangs.
        self.root = os.open(self.mount_point, os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
        self.watcher = subprocess.Popen(
            [sys.executable, __file__, self.mount_point], stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, start_new_session=True,
            # Nothing marks it as started by a test: it outlives all that is.
            env={"PATH": os.environ["PATH"]})
        self.watcher.stdout.readline()
        try:
            self.freeze()
            self.thaw()
        except OSError as error:
            return f"its file system cannot be frozen: {error.strerror}"
        return None

    def freeze(self):
        with self.lock:
            fcntl.ioctl(self.root, FREEZE, 0)
            self.is_frozen = True

    def thaw(self):
        with self.lock:
            if self.is_frozen:
                fcntl.ioctl(self.root, THAW, 0)
                self.is_frozen = False

    def fill(self):
        """Takes all the space that there is, in a file that empty() removes."""
        with open(os.path.join(self.mount_point, "filling"), "ab", buffering=0) as file:
            for size in (1 << 20, 1 << 12, 1):
                try:
                    while True:
                        file.write(bytes(size))
                except OSError:
                    continue

    def empty(self):
        try:
            os.unlink(os.path.join(self.mount_point, "filling"))
        except FileNotFoundError:
            pass

    def close(self):
        """After the end of whoever uses it."""
        if self.root is not None:
            self.thaw()
            os.close(self.root)
            self.root = None
        if self.watcher is not None:
            self.watcher.stdin.close()
            self.watcher.wait(PATIENCE)
            self.watcher.stdout.close()
        else:
            remove(self.mount_point)


def remove(mount_point):
    """Unmounts it, waiting a while for those who still use it, and removes its folder."""
    deadline = time.monotonic() + PATIENCE
    while os.path.ismount(mount_point):
        lazy = ["-l"] if time.monotonic() > deadline else []
        if subprocess.run(["umount", *lazy, mount_point], stderr=subprocess.DEVNULL,
                          check=False).returncode != 0:
            threading.Event().wait(0.2)
    subprocess.run(["rm", "-rf", os.path.dirname(mount_point)], check=False)


def main():
    mount_point = sys.argv[1]
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, signal.SIG_IGN)
    root = os.open(mount_point, os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
    print("watching", flush=True)
    sys.stdin.buffer.read()  # until the storm has closed its end, which it does by ending
    try:
        fcntl.ioctl(root, THAW, 0)
    except OSError:
        pass  # it was not frozen
    os.close(root)
    remove(mount_point)


if __name__ == "__main__":
    main()
