"""Programs of the build, each a process, in a scratch runtime folder of their own."""

import json
import os
import queue
import shutil
import signal
import subprocess
import tempfile
import threading
import time
from pathlib import Path

from leftovers import MARK, Scratch

PROGRAMS = Path(os.environ["CORVID_BIN_DIR"])
# Far longer than anything takes on a busy machine; what has not happened by then has failed.
PATIENCE = 120


class Program:
    """A program that keeps running. Its lines of JSON are events, taken in their order; another
    line is the event "line" with its text."""

    def __init__(self, world, *command):
        self.name = " ".join(str(part) for part in command)
        self.messages = tempfile.TemporaryFile(mode="w+")
        self.process = subprocess.Popen(
            [PROGRAMS / command[0], *command[1:]], env=world.environment, cwd=world.volume,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=self.messages, text=True)
        self.events = queue.Queue()
        self.passed_over = []
        threading.Thread(target=self._collect, daemon=True).start()

    def _collect(self):
        for line in self.process.stdout:
            if line.startswith("{"):
                self.events.put(json.loads(line))
            else:
                self.events.put({"event": "line", "text": line.rstrip("\n")})
        self.process.stdout.close()
        self.events.put(None)

    def wait_for(self, event, **fields):
        """The first event of that name with those fields that was not waited for before."""
        def matches(one):
            return one["event"] == event and all(one.get(key) == value
                                                 for key, value in fields.items())

        for one in self.passed_over:
            if matches(one):
                self.passed_over.remove(one)
                return one
        deadline = time.monotonic() + PATIENCE
        while True:
            try:
                one = self.events.get(timeout=max(0, deadline - time.monotonic()))
            except queue.Empty:
                raise AssertionError(f"{self.name}: no {event} {fields}, but {self.passed_over}; "
                                     f"{self.said()}") from None
            if one is None:
                raise AssertionError(f"{self.name} ended without {event} {fields}; {self.said()}")
            if matches(one):
                return one
            self.passed_over.append(one)

    def events_until_end(self):
        """All that was not waited for, once the program has ended."""
        return self.passed_over + list(iter(self.events.get, None))

    def said(self):
        self.messages.seek(0)
        return self.messages.read().strip()

    def end(self, number=signal.SIGTERM):
        """Sends a signal and returns the exit status, negative for a death by signal."""
        if self.process.poll() is None:
            self.process.send_signal(number)
        return self.process.wait(PATIENCE)


class World:
    """A home, a runtime folder and a volume, with a git work tree on it, and what runs there."""

    def __init__(self):
        self.scratch = Scratch.new("world")
        self.home = self.scratch / "home"
        self.volume = self.home / "Corvid"
        runtime = self.scratch / "run"
        self.volume.mkdir(parents=True)
        runtime.mkdir(mode=0o700)
        self.environment = {
            "PATH": os.environ["PATH"], "HOME": str(self.home), "XDG_RUNTIME_DIR": str(runtime),
            "LANG": "C.UTF-8", "GIT_CONFIG_NOSYSTEM": "1", MARK: os.environ[MARK],
            **{name: value for name, value in os.environ.items() if "SAN_OPTIONS" in name}}
        self.runtime = runtime / "corvid"
        self.programs = []
        self.git("init", "--quiet")
        self.git("config", "user.name", "Ann")
        self.git("config", "user.email", "ann@example.org")

    def git(self, *arguments):
        subprocess.run(["git", *arguments], cwd=self.volume, env=self.environment, check=True,
                       stdout=subprocess.DEVNULL)

    def commit(self, *names):
        """Files of these names, tracked and unchanged."""
        for name in names:
            path = os.path.join(os.fsencode(self.volume),
                                name if isinstance(name, bytes) else os.fsencode(name))
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "w", encoding="utf-8") as file:
                file.write("one\n")
        self.git("add", "--all")
        self.git("commit", "--quiet", "-m", "Files")

    def change(self, name):
        with open(self.volume / name, "a", encoding="utf-8") as file:
            file.write("more\n")

    def start(self, *command):
        program = Program(self, *command)
        self.programs.append(program)
        return program

    def host(self):
        """A host that serves the volume."""
        host = self.start("corvid-host", "git", self.volume, "--json")
        host.wait_for("serving")
        return host

    def watch(self):
        """A front end that shows the volume, once it has every badge."""
        watch = self.start("corvid", "watch", self.volume, "--json")
        listed = watch.wait_for("listed")
        watch.badges = {item["name"]: item["badge"] for item in listed["items"]}
        return watch

    def run(self, *command, status=0):
        """Runs a program to its end; its output, or that on standard error when it fails."""
        result = subprocess.run([PROGRAMS / command[0], *command[1:]], env=self.environment,
                                cwd=self.volume, stdin=subprocess.DEVNULL, capture_output=True,
                                text=True, timeout=PATIENCE)
        if result.returncode != status:
            raise AssertionError(f"{command} ended with {result.returncode}, not {status}: "
                                 f"{result.stdout[:2000]}{result.stderr}")
        return result.stdout if status == 0 else result.stdout + result.stderr

    def badges(self):
        """The badge of each item as a new front end sees it."""
        listing = json.loads(self.run("corvid", "ls", self.volume, "--json"))
        return {item["name"]: item["badge"] for item in listing["items"]}

    def status(self):
        result = subprocess.run([PROGRAMS / "corvid", "status", "--json"], env=self.environment,
                                capture_output=True, text=True, timeout=PATIENCE)
        return json.loads(result.stdout)

    def ports(self):
        """The sockets that are there, ports and all."""
        return [path.name for path in self.runtime.rglob("*") if path.is_socket()]

    def close(self):
        for program in reversed(self.programs):
            program.end(signal.SIGKILL)
            program.messages.close()
        # An extension that a front end has started is nobody's child here.
        volume = self.runtime / "finder-ext.volume"
        if volume.exists():
            try:
                os.kill(int(volume.read_bytes().split(b"\n")[2]), signal.SIGKILL)
            except ProcessLookupError:
                pass
        shutil.rmtree(self.scratch)
