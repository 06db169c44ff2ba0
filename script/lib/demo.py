"""The conversation that script/demo shows. Every step waits for the event that it announces and
checks that it happened."""

import argparse
import json
import os
import pwd
import queue
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
# Far longer than any step takes; a step that has not happened by then has failed.
PATIENCE = 15
COLOUR = sys.stdout.isatty() and not os.environ.get("NO_COLOR")

# What is done to a file of the scratch clone, and the badge that follows from it.
EXPECTED = {
    "LICENSE": "accessDenied",
    "SECURITY.md": "error",
    "CONTRIBUTING.md": "inProgress",
    "CHANGELOG.md": "finishedTransfer",
    "CMakePresets.json": "checkedOut",
    "notes of today.txt": "cloud",
    "compile_commands.json": "none",
    "README.md": "synced",
    "docs": "syncedpartial",
}


class Failed(Exception):
    """A step that did not happen."""


def bold(text):
    return f"\x1b[1m{text}\x1b[0m" if COLOUR else text


def faint(text):
    return f"\x1b[2m{text}\x1b[0m" if COLOUR else text


class Session:
    """The user, home and runtime folder that the programs run with, and those still running."""

    def __init__(self, scratch, user, folder):
        self.scratch = scratch
        self.programs = ROOT / "build" / "bin"
        self.identity = {}
        home, runtime = scratch / "home", scratch / "run"
        home.mkdir()
        runtime.mkdir(mode=0o700)
        (home / ".gitconfig").write_text(
            "[user]\n\tname = Corvid Demo\n\temail = demo@example.org\n"
            # Older libgit2 knows no "*" and compares whole texts.
            f"[safe]\n\tdirectory = *\n\tdirectory = {folder}\n\tdirectory = {folder}/\n[init]\n\tdefaultBranch = main\n[gc]\n\tauto = 0\n")
        if user:
            self.identity = {"user": user.pw_uid, "group": user.pw_gid, "extra_groups": []}
            self.give(scratch, home, runtime)
            # The clone may lie where that user cannot read.
            subprocess.run(["cmake", "--install", ROOT / "build", "--component", "programs",
                            "--prefix", scratch / "installed"],
                           check=True, stdout=subprocess.DEVNULL)
            self.programs = scratch / "installed" / "bin"
        keep = ("PATH", "LANG", "LC_ALL", "TERM", "COLUMNS", "NO_COLOR")
        self.environment = {name: os.environ[name] for name in keep if name in os.environ}
        self.environment.update(
            HOME=str(home), XDG_RUNTIME_DIR=str(runtime), CVD_ENABLE_FINDER_EXT_LOGGING="1",
            PATH=f"{self.programs}:{os.environ.get('PATH', os.defpath)}")
        self.folder = scratch  # where commands are run
        self.running = []

    def give(self, *paths):
        """Makes the ordinary user own these, where there is one."""
        if self.identity:
            for path in paths:
                os.chown(path, self.identity["user"], self.identity["group"],
                         follow_symlinks=False)

    def git(self, folder, *arguments):
        result = subprocess.run(["git", *arguments], cwd=folder, env=self.environment,
                                capture_output=True, text=True, **self.identity)
        return result.returncode

    def run(self, *command, show=True):
        """Runs one program to its end and returns what it printed, shown or not."""
        command = [str(part) for part in command]
        if show:
            print(faint("$ ") + " ".join(f"'{p}'" if " " in p else p for p in command), flush=True)
        result = subprocess.run(command, env=self.environment, cwd=self.folder, text=True,
                                stdout=None if show else subprocess.PIPE, timeout=PATIENCE,
                                **self.identity)
        if result.returncode != 0:
            raise Failed(f"{' '.join(command)} ended with status {result.returncode}")
        return result.stdout

    def start(self, *command):
        process = Background([str(part) for part in command], self)
        self.running.append(process)
        return process

    def stop_all(self):
        for process in reversed(self.running):
            process.stop()


class Background:
    """A program that keeps running. Its lines of JSON are events to wait for; its messages are
    kept to be shown if it fails."""

    def __init__(self, command, session):
        self.name = Path(command[0]).name
        self.messages = tempfile.TemporaryFile(mode="w+")
        self.process = subprocess.Popen(command, env=session.environment, cwd=session.scratch,
                                        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                        stderr=self.messages, text=True, **session.identity)
        self.events = queue.Queue()
        threading.Thread(target=self.collect, daemon=True).start()

    def collect(self):
        for line in self.process.stdout:
            if line.startswith("{"):
                self.events.put((time.monotonic(), json.loads(line)))
        self.events.put((time.monotonic(), None))

    def wait_for(self, what, matches):
        """(arrival, event) of the next event that matches; `what` says in words what is missing."""
        deadline = time.monotonic() + PATIENCE
        while True:
            try:
                arrival, event = self.events.get(timeout=max(0, deadline - time.monotonic()))
            except queue.Empty:
                raise Failed(f"{what} within {PATIENCE} s") from None
            if event is None:
                self.messages.seek(0)
                raise Failed(f"{what}; {self.name} ended. {self.messages.read().strip()}")
            if event.get("event") == "problem":
                raise Failed(f"{what}; {self.name}: {event.get('text', event)}")
            if matches(event):
                return arrival, event

    def stop(self):
        """Asks the program to end and returns its status."""
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
        try:
            return self.process.wait(timeout=PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()
            return self.process.wait()


def heading(text, _count=[0]):
    _count[0] += 1
    print(f"\n{bold(f'{_count[0]}. {text}')}", flush=True)


def make_clone(session):
    """A clone of this repository with a file in every state of EXPECTED."""
    folder = session.scratch / "corvid"
    made = subprocess.run(["git", "clone", "--quiet", "--no-hardlinks", ROOT, folder],
                          env=session.environment, capture_output=True, text=True)
    if made.returncode != 0:
        raise Failed(f"a clone of {ROOT}: {made.stderr.strip()}")
    for parent, folders, files in os.walk(folder):
        session.give(parent, *(Path(parent) / name for name in folders + files))

    def change(name, text):
        with open(folder / name, "a", encoding="utf-8") as file:
            file.write(text)
        session.give(folder / name)

    def git(*arguments, status=0):
        if session.git(folder, *arguments) != status:
            raise Failed(f"git {' '.join(arguments)} in {folder}")

    git("checkout", "--quiet", "-b", "demo-theirs")
    change("SECURITY.md", "\nTheirs.\n")
    git("commit", "--quiet", "-am", "Theirs")
    git("checkout", "--quiet", "-b", "demo-ours", "HEAD~")
    change("SECURITY.md", "\nOurs.\n")
    git("commit", "--quiet", "-am", "Ours")
    git("merge", "--quiet", "demo-theirs", status=1)
    change("CONTRIBUTING.md", "\nChanged.\n")
    change("docs/architecture.md", "\nChanged.\n")
    change("CHANGELOG.md", "\nStaged.\n")
    git("add", "CHANGELOG.md")
    git("update-index", "--assume-unchanged", "CMakePresets.json")
    change("notes of today.txt", "Not tracked.\n")
    change("compile_commands.json", "[]\n")
    (folder / "LICENSE").chmod(0)
    return folder


def badges(session):
    """name -> badge of every item that `corvid ls` lists."""
    listing = json.loads(session.run("corvid", "ls", "--json", show=False))
    return {item["name"]: item["badge"] for item in listing["items"]}


def log_lines(session):
    """What the extension has written, when it has ended: its log is flushed by then."""
    files = sorted((session.scratch / "home" / ".local/state/corvid/Logs").rglob("*.log"))
    return [line for file in files
            for line in file.read_text(encoding="utf-8", errors="replace").splitlines()]


def show_log(lines, target):
    """The lines about one item and about the life around it, each text once, without date and
    process."""
    life = ("Registering", "Unregistering", "BeginObserving", "endObserving")
    width = shutil.get_terminal_size().columns if sys.stdout.isatty() else 200
    shown = {}
    for line in lines:
        parts = line.split(" ", 5)
        if len(parts) == 6 and (target in parts[5] or any(word in parts[5] for word in life)):
            shown.setdefault(parts[5].strip(), f"{parts[1]} {parts[4]:7} {parts[5].strip()}")
    for line in shown.values():
        print(line if len(line) <= width else line[:width - 1] + "…")
    print(faint(f"{len(shown)} of its {len(lines)} lines; /Volumes/Corvid is what host and extension "
                "call the folder"))


def converse(arguments, session):
    own = arguments.folder is None
    may_write = own or arguments.write
    if own:
        heading("A scratch clone of this repository, with a file in every state")
        folder = make_clone(session)
        print(folder)
    else:
        folder = arguments.folder
    session.folder = folder

    heading("A host application serves it; the extension starts and registers")
    command = ["corvid-host", "git", folder, "--json"]
    host = session.start(*command, *([] if may_write else ["--read-only"]))
    scanned = host.wait_for("no scan", lambda event: event["event"] == "scanned")[1]
    host.wait_for("the host does not serve", lambda event: event["event"] == "serving")
    print(f"corvid-host git: {scanned['files']} files scanned in {scanned['milliseconds']} ms")
    begun = time.monotonic()
    extension = session.start("corvid-finder-ext")
    arrival, _ = host.wait_for("the extension did not register with the host",
                               lambda event: event["event"] == "extension" and event["open"])
    print(f"corvid-finder-ext: registered {1000 * (arrival - begun):.0f} ms after its start")

    heading("Every item has its badge")
    session.run("corvid", "ls")
    seen = badges(session)
    if own:
        wrong = {name: seen.get(name) for name, badge in EXPECTED.items()
                 if seen.get(name) != badge}
        if wrong:
            raise Failed(f"other badges than expected: {wrong}")
    elif not seen:
        raise Failed(f"{folder} lists nothing")

    target = "README.md" if own else next(
        (name for name, badge in sorted(seen.items())
         if badge == "synced" and (folder / name).is_file()), None)
    if may_write and target is None:
        raise Failed(f"no tracked and unchanged file in {folder} to change")
    if target is None:
        target = next(iter(sorted(seen)))

    if may_write:
        heading(f"{target} changes on the disk, and its badge follows")
        watch = session.start("corvid", "watch", folder, "--json")
        watch.wait_for("corvid watch shows nothing", lambda event: event["event"] == "listed")
        begun = time.monotonic()
        with open(folder / target, "a", encoding="utf-8") as file:
            file.write("\n")
        arrival, event = watch.wait_for(
            "no badge was pushed", lambda event: event["event"] == "push"
            and Path(event["path"]).name == target)
        if event["badge"] != "inProgress":
            raise Failed(f"the pushed badge is {event['badge']}, not inProgress")
        print(f"pushed: {event['badge']}, {1000 * (arrival - begun):.1f} ms after the write")

    heading(f"The menu of {target}")
    session.run("corvid", "menu", target)

    if may_write:
        heading("A click on Stage")
        begun = time.monotonic()
        session.run("corvid", "do", target, "--item", "Stage")
        arrival, event = watch.wait_for(
            "no badge was pushed after the click", lambda event: event["event"] == "push"
            and Path(event["path"]).name == target)
        if event["badge"] != "finishedTransfer":
            raise Failed(f"the badge after the click is {event['badge']}, not finishedTransfer")
        print(f"pushed: {event['badge']}, {1000 * (arrival - begun):.1f} ms after the click began")
        watch.stop()

    heading(f"The extension ends; what it wrote down about {target}")
    end(session, extension, host)
    lines = log_lines(session)
    if not any(target in line for line in lines):
        raise Failed(f"no log line about {target}")
    show_log(lines, target)


def end(session, *processes):
    for process in processes:
        status = process.stop()
        if status != 0:
            raise Failed(f"{process.name} ended with status {status}")
    left = [path.name for path in (session.scratch / "run").rglob("*") if path.is_socket()]
    if left:
        raise Failed(f"ports are left behind: {left}")


def ordinary_user(folder):
    """Whom to be instead of root: the owner of the folder, else nobody. None when not root."""
    if os.geteuid() != 0:
        return None
    owner = folder.stat().st_uid if folder else 0
    return pwd.getpwuid(owner) if owner else pwd.getpwnam("nobody")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--folder", type=Path)
    parser.add_argument("--write", action="store_true")
    arguments = parser.parse_args()

    begun = time.monotonic()
    scratch = Path(tempfile.mkdtemp(prefix="corvid-demo-"))
    session = None
    try:
        session = Session(scratch, ordinary_user(arguments.folder), arguments.folder)
        converse(arguments, session)
        print(f"\nEvery step happened, in {time.monotonic() - begun:.1f} s.")
    except (Failed, OSError, subprocess.SubprocessError) as problem:
        sys.exit(f"demo: this step did not happen: {problem}")
    finally:
        if session:
            session.stop_all()
        shutil.rmtree(scratch, ignore_errors=True)


if __name__ == "__main__":
    main()
