"""A disk of its own that can be made to hang, and answers again whatever becomes of the test."""

import os
import subprocess
import unittest

# Nobody's child and without the mark of the test's processes, so that it outlives a test that is
# killed with all that it started. It waits for the
# end of its standard input, which is the test's, and thaws then; after two minutes in any case.
GUARD = """
timeout 120 cat
fsfreeze --unfreeze "$0"
umount --lazy "$0"
"""


class FrozenDisk:
    def __init__(self, scratch):
        """Mounts a new file system of 8 MB at `folder`, open to all. Skips the test where that
        cannot be."""
        if os.geteuid() != 0:
            raise unittest.SkipTest("only root can freeze a file system")
        self.folder = scratch / "disk"
        self.folder.mkdir()
        image = scratch / "disk.image"
        with open(image, "wb") as file:
            file.truncate(8 << 20)
        self._run("mkfs.ext4", "-q", "-F", image)
        self._run("mount", "-o", "loop", image, self.folder)
        self.folder.chmod(0o777)
        self.guard = subprocess.Popen(
            ["setsid", "--fork", "sh", "-c", GUARD, self.folder], env={"PATH": os.environ["PATH"]},
            stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.guard.wait()

    @staticmethod
    def _run(*command):
        try:
            done = subprocess.run(command, capture_output=True, text=True)
        except FileNotFoundError as missing:
            raise unittest.SkipTest(f"a disk cannot be frozen here: {missing}") from None
        if done.returncode != 0:
            raise unittest.SkipTest(f"a disk cannot be frozen here: {done.stderr.strip()}")

    def freeze(self):
        """From now on whoever changes something on it hangs in the kernel."""
        self._run("fsfreeze", "--freeze", self.folder)

    def thaw(self):
        subprocess.run(["fsfreeze", "--unfreeze", self.folder], stderr=subprocess.DEVNULL)

    def close(self):
        self.thaw()
        subprocess.run(["umount", "--lazy", self.folder], stderr=subprocess.DEVNULL)
        self.guard.stdin.close()
