"""Nothing that a test starts outlives it, whatever ends the test: a watcher that is no child of the
test waits for its end, then ends what it has left running and removes its scratch folder."""

import os
import select
import shutil
import signal
import subprocess
import sys
import tempfile
from pathlib import Path

# In the environment of all that a test starts, and of whatever that starts: the scratch folder.
MARK = "CORVID_TEST_SCRATCH"
GRACE_SECONDS = 5


def processes_of(scratch):
    """The processes that a test with that scratch folder has started, each by a descriptor."""
    wanted = f"{MARK}={scratch}".encode()
    found = {}
    for entry in Path("/proc").iterdir():
        if not entry.name.isdigit() or int(entry.name) == os.getpid():
            continue
        try:
            descriptor = os.pidfd_open(int(entry.name))
        except OSError:
            continue
        try:
            marked = wanted in (entry / "environ").read_bytes().split(b"\0")
        except OSError:
            marked = False
        if marked:
            found[descriptor] = int(entry.name)
        else:
            os.close(descriptor)
    return found


def wait_for_end(descriptors, seconds):
    """Whether those processes have ended within that time."""
    poller = select.poll()
    left = set(descriptors)
    for descriptor in left:
        poller.register(descriptor, select.POLLIN)
    while left:
        ended = poller.poll(seconds * 1000)
        if not ended:
            return False
        for descriptor, _ in ended:
            poller.unregister(descriptor)
            left.discard(descriptor)
    return True


def end_all(scratch):
    """Ends them, gently first: an X server then removes its lock."""
    number = signal.SIGTERM
    while found := processes_of(scratch):
        for descriptor in found:
            try:
                signal.pidfd_send_signal(descriptor, number)
            except ProcessLookupError:
                pass
        wait_for_end(found, GRACE_SECONDS)
        for descriptor in found:
            os.close(descriptor)
        number = signal.SIGKILL
    shutil.rmtree(scratch, ignore_errors=True)


class Scratch:
    """The scratch folder of this process, made and watched at the first use."""

    folder = None
    watcher = None

    @classmethod
    def new(cls, name):
        """A new folder in it."""
        if cls.folder is None:
            cls.folder = Path(tempfile.mkdtemp(prefix="corvid-test-"))
            cls.watcher = subprocess.Popen(
                [sys.executable, __file__, cls.folder], stdin=subprocess.PIPE,
                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
            cls.watcher.wait()
            os.environ[MARK] = str(cls.folder)
        return Path(tempfile.mkdtemp(prefix=f"{name}-", dir=cls.folder))


def main():
    scratch = sys.argv[1]
    if os.fork() != 0:
        os._exit(0)  # whoever kills a test with its children does not find the watcher among them
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, signal.SIG_IGN)
    sys.stdin.buffer.read()  # until the test has closed its end, which it does by ending
    end_all(scratch)


if __name__ == "__main__":
    main()
