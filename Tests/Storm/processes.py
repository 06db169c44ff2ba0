"""The programs that the storm runs and disturbs: each is followed from its start to its end, and an
end that the storm did not bring about is a fault."""

import ctypes
import json
import os
import queue
import resource
import select
import signal
import subprocess
import threading
import time
from pathlib import Path

PATIENCE = 60  # for a start; ten times what one takes on a busy machine
PR_SET_CHILD_SUBREAPER = 36

# Held while a process is started until its number is known, so that nobody else reaps it.
starting = threading.Lock()
known = set()


def become_reaper():
    """Who loses its parent becomes a child of this process, so that its end can be looked at."""
    ctypes.CDLL(None, use_errno=True).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)


def spawn(*arguments, **options):
    with starting:
        process = subprocess.Popen(*arguments, **options)
        known.add(process.pid)
    return process


def describe(status):
    if status < 0:
        return f"was ended by {signal.Signals(-status).name}"
    return f"ended with status {status}"


def ended_orphans():
    """(process, what it was, its status) of each child that nobody here knows and that ended."""
    found = []
    with starting:
        for child in children_of(os.getpid()):
            if child in known:
                continue
            name = name_of(child)
            try:
                ended = os.waitid(os.P_PID, child, os.WEXITED | os.WNOHANG)
            except ChildProcessError:
                continue
            if ended is not None:
                status = ended.si_status if ended.si_code == os.CLD_EXITED else -ended.si_status
                found.append((child, name, status))
    return found


def children_of(pid):
    children = []
    try:
        for task in Path(f"/proc/{pid}/task").iterdir():
            children += (task / "children").read_text().split()
    except OSError:
        pass
    return [int(child) for child in children]


def name_of(pid):
    try:
        return Path(f"/proc/{pid}/comm").read_text().strip()
    except OSError:
        return "?"


class Use:
    """What a process takes."""

    def __init__(self, pid):
        self.descriptors = len(os.listdir(f"/proc/{pid}/fd"))
        status = dict(line.split(":", 1) for line in
                      Path(f"/proc/{pid}/status").read_text().splitlines())
        self.threads = int(status["Threads"])
        self.memory = int(status["RssAnon"].split()[0]) >> 10  # MiB
        self.children = children_of(pid)

    def __str__(self):
        return (f"{self.descriptors} descriptors, {self.threads} threads, {self.memory} MiB, "
                f"{len(self.children)} children")


class Running:
    """A process of one of our programs, started here or found."""

    def __init__(self, name, pid, process=None):
        self.name = name
        self.pid = pid
        self.process = process
        self.descriptor = os.pidfd_open(pid)
        self.status = None
        self.is_expected_to_end = False
        self.lock = threading.Lock()

    def poll(self):
        """Its exit status, negative for a death by signal; None while it runs."""
        with self.lock:
            if self.status is not None:
                return self.status
            if self.process is not None:
                self.status = self.process.poll()
            else:
                try:
                    ended = os.waitid(os.P_PIDFD, self.descriptor, os.WEXITED | os.WNOHANG)
                except ChildProcessError:  # somebody else's child, or reaped with the orphans
                    gone = select.select([self.descriptor], [], [], 0)[0]
                    self.status = 0 if gone else None
                    return self.status
                if ended is not None:
                    self.status = (ended.si_status if ended.si_code == os.CLD_EXITED
                                   else -ended.si_status)
            return self.status

    def wait(self, seconds):
        """Its exit status, or None when that time has passed."""
        select.select([self.descriptor], [], [], seconds)
        return self.poll()

    def signal(self, number):
        if number in (signal.SIGKILL, signal.SIGTERM, signal.SIGINT):
            self.is_expected_to_end = True
        try:
            signal.pidfd_send_signal(self.descriptor, number)
        except ProcessLookupError:
            pass

    def limit_descriptors(self, spare):
        """It can open no more than `spare` descriptors; returns what restores the limit."""
        before = resource.prlimit(self.pid, resource.RLIMIT_NOFILE)
        # The limit is one on numbers: those that are free below it are spare ones.
        numbers = {int(number) for number in os.listdir(f"/proc/{self.pid}/fd")}
        limit = 0
        while spare > 0 or limit in numbers:
            spare -= limit not in numbers
            limit += 1
        resource.prlimit(self.pid, resource.RLIMIT_NOFILE, (limit, before[1]))
        return before

    def restore_descriptors(self, before):
        try:
            resource.prlimit(self.pid, resource.RLIMIT_NOFILE, before)
        except ProcessLookupError:
            pass

    def use(self):
        return Use(self.pid)


# Events that say why something went wrong.
KEPT_EVENTS = ("line", "problem", "state")


def event_in(line):
    """What a line of output says; one that is no event is the event "line"."""
    try:
        event = json.loads(line)
        if isinstance(event, dict) and "event" in event:
            return event
    except ValueError:
        pass
    return {"event": "line", "text": line.decode(errors="replace").strip()}


class Program(Running):
    """One that is started here. Each event that it prints is given to `on_event`, on a thread of
    its own. What it says otherwise, and on standard error, is kept in a file of `folder`."""

    count = 0

    def __init__(self, world, folder, name, command, on_event=None, takes_orders=False):
        Program.count += 1
        self.messages = folder / f"{Program.count:03d}-{name}.txt"
        self.events = queue.Queue()
        self.on_event = on_event or self.events.put
        with open(self.messages, "wb") as messages:
            process = spawn(command, env=world.environment, cwd=world.home, stderr=messages,
                            stdin=subprocess.PIPE if takes_orders else subprocess.DEVNULL,
                            stdout=subprocess.PIPE)
        super().__init__(name, process.pid, process)
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()
        self.orders = queue.SimpleQueue()
        if takes_orders:
            # It may be stopped: whoever has an order for it does not wait until it reads.
            threading.Thread(target=self._order, daemon=True).start()

    def _read(self):
        with open(self.messages, "ab") as messages, self.process.stdout as output:
            for line in output:
                event = event_in(line)
                if event["event"] in KEPT_EVENTS:
                    messages.write(line)
                    messages.flush()
                self.on_event(event)
        self.events.put(None)

    def _order(self):
        try:
            while (lines := self.orders.get()) is not None:
                self.process.stdin.write(lines)
                self.process.stdin.flush()
        except OSError:
            pass  # it has ended

    def order(self, *lines):
        self.orders.put("".join(line + "\n" for line in lines).encode())

    def wait_for(self, event, seconds=PATIENCE):
        """The next event of that name; None when the program ends without it or time passes."""
        deadline = time.monotonic() + seconds
        while True:
            try:
                got = self.events.get(timeout=max(0, deadline - time.monotonic()))
            except queue.Empty:
                return None
            if got is None or got["event"] == event:
                return got

    def said(self):
        return self.messages.read_text(errors="replace").strip()[-2000:] or "nothing"
