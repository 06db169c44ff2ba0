"""A storm: the real programs, front ends of every kind, and one disturbance after the other, all
from one seed; and when it is over, everything must be right again.

    storm.py SECONDS [SEED] [--json] [--keep FOLDER]
    storm.py --kept [--json] [--keep FOLDER]

See docs/testing.md. CORVID_BIN_DIR names the folder of the programs."""

import argparse
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import threading
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "EndToEnd"))
import disk  # noqa: E402
import disturbances  # noqa: E402
import front_ends  # noqa: E402
import leftovers  # noqa: E402
import names  # noqa: E402
import port_peers  # noqa: E402
import processes  # noqa: E402
from schedule import schedule  # noqa: E402
from story import Story  # noqa: E402
from world import PROGRAMS, World  # noqa: E402

# Each is about ten times what is seen on two busy cores.
START_LIMIT = 60
SETTLE_LIMIT = 60
STEP_LIMIT = 120
# What is promised: a program ends within five seconds, whatever hangs.
END_LIMIT = 5
# Beyond what it had before the storm: what the allocator keeps of a time with much to do.
MEMORY_GROWTH = 128  # MiB
# Threads that a host keeps for its pushes once there were many at a time (PushSenders.h).
THREADS_KEPT = {"extension": 0, "host": 16}
MEMORY_AT_MOST = 384  # MiB, at any time
KEPT_SEEDS = Path(__file__).with_name("seeds.txt")
STEPS_SHOWN = 15


class Ended(Exception):
    """There is a fault; the storm is over."""


class Storm:
    describe = staticmethod(processes.describe)

    def __init__(self, seconds, seed, tell):
        self.seconds, self.seed, self.tell = seconds, seed, tell
        self.world = World()
        self.disk = disk.Disk()
        processes.become_reaper()
        self.kept = self.world.scratch / "kept"
        self.kept.mkdir()
        self.world.environment |= {
            "XDG_STATE_HOME": self.disk.mount_point, "CVD_ENABLE_FINDER_EXT_LOGGING": "1",
            "CVD_MAX_LOG_COUNT": "3", "CVD_MAX_LOG_SIZE": "1"}
        names.make(self.world.volume)
        self.link_path = str(self.world.runtime / "finder-link")
        self.ports = str(self.world.runtime / "ports")
        self.story = Story(self._unasked())
        self.began = time.monotonic()
        self.record = []
        self.record_lock = threading.Lock()
        self.faults = []
        self.is_over = threading.Event()
        self.host_lock = threading.RLock()
        self.host = self.life = None
        self.extension_lock = threading.RLock()
        self.extension = None
        self.watches = []
        self.front_ends = []
        self.highest = {"extension": 0, "host": 0}
        self.programs = []
        self.results = {}

    def _unasked(self):
        """The items whose badge nobody asks for, by the rules of the extension itself; and those
        whose name is no UTF-8."""
        paths = [folder + b"/" + name for folder, named in names.folders().items()
                 for name in named]
        texts = []
        unasked = set()
        for path in paths:
            try:
                texts.append(path.decode())
            except UnicodeDecodeError:
                unasked.add(path)
        lines = "".join(json.dumps(f"/Volumes/Corvid/{text}") + "\n" for text in texts)
        said = subprocess.run([PROGRAMS / "corvid", "explain", "--json", "-"], input=lines.encode(),
                              env=self.world.environment, capture_output=True, check=True).stdout
        for text, line in zip(texts, said.splitlines(), strict=True):
            if not json.loads(line)["badge"]["asked"]:
                unasked.add(text.encode())
        return unasked

    # What happens is written down.

    def now(self):
        return time.monotonic() - self.began

    def fail(self, text):
        with self.record_lock:
            self.faults.append(f"{self.now():.2f} s: {text}")
        self.is_over.set()

    def note(self, text):
        with self.record_lock:
            self.record.append({"start": round(self.now(), 3), "what": text})

    def pause(self, seconds):
        """Lets that time pass, or what is left of the storm if it ends early."""
        self.is_over.wait(seconds)

    # The programs.

    def program(self, name, command, **options):
        program = processes.Program(self.world, self.kept, name,
                                    [PROGRAMS / command[0], *command[1:]], **options)
        self.programs.append(program)
        return program

    def start_host(self):
        with self.host_lock:
            life = self.story.host_began()

            def take(event):
                if event["event"] == "click":
                    self.story.arrived(life, bytes.fromhex(event["paths"][0]))
                else:
                    host.events.put(event)

            host = self.program("host", ["storm_host", str(self.world.volume)], on_event=take,
                                takes_orders=True)
            host.order(*(f"badge {path.hex()} {badge}" for path, badge in self.story.told.items()),
                       "serve")
            self.host, self.life = host, life
        if host.wait_for("serving", START_LIMIT) is None:
            self.fail(f"the host application does not serve; it said: {host.said()}")

    def host_has_ended(self):
        """After the end of the host, to be called before another one starts."""
        with self.host_lock:
            self.host.wait(START_LIMIT)
            self.host.reader.join(START_LIMIT)
            self.story.host_ended(self.life)
            self.host = None

    def change(self, path, badge, how):
        """The host gives an item another badge; `how` is "push", "show" or "badge"."""
        with self.host_lock:
            self.story.tell(path, badge)
            if self.host is not None:
                self.host.order(f"{how} {path.hex()} {badge}")

    def start_extension(self):
        """Starts it, unless a front end was quicker."""
        deadline = time.monotonic() + START_LIMIT
        with self.extension_lock:
            while time.monotonic() < deadline:
                if self.find_extension():
                    return
                program = self.program("extension", ["corvid-finder-ext"])
                if program.wait_for("line", START_LIMIT) is not None:
                    self.extension = program
                    return
                status = program.wait(START_LIMIT)
                if status != 0:
                    self.fail(f"the extension did not start, but {processes.describe(status)}; "
                              f"it said: {program.said()}" if status is not None else
                              "the extension did not start, and does not say why")
                    return
        self.fail("no extension runs, but each that is started says that one does")

    def find_extension(self):
        """Whether one runs. One that a front end has started is taken on."""
        with self.extension_lock:
            if self.extension is not None and self.extension.poll() is None:
                return True
            try:
                pid = int((self.world.runtime / "finder-ext.volume").read_bytes().split(b"\n")[2])
                if processes.name_of(pid) != "corvid-finder-e":
                    return False
                found = processes.Running("extension (started by a front end)", pid)
            except (OSError, IndexError, ValueError):
                return False
            with processes.starting:
                processes.known.add(pid)
            if found.poll() is not None:
                return False
            self.extension = found
            return True

    def lives_on(self, running, what):
        """A process that has ended although nobody has ended it is a fault."""
        status = running.poll()
        if status is not None and not running.is_expected_to_end:
            said = running.said() if isinstance(running, processes.Program) else "unknown"
            self.fail(f"{what} (process {running.pid}) {processes.describe(status)}; "
                      f"it said: {said}")

    def look(self):
        """Looks whether all live, and what they take. On a thread of its own until the end."""
        while not self.is_watched_no_more.is_set():
            with self.host_lock:
                host = self.host
            for running, what in ((host, "host"), (self.extension, "extension")):
                if running is None:
                    continue
                self.lives_on(running, f"the {what}")
                try:
                    memory = running.use().memory
                except (OSError, KeyError):
                    continue
                self.highest[what] = max(self.highest[what], memory)
                if memory > MEMORY_AT_MOST:
                    self.fail(f"the {what} takes {memory} MiB of memory")
            for watch in self.watches:
                watch.keep_running()
            for pid, name, status in processes.ended_orphans():
                if status < 0 and status != -signal.SIGKILL:
                    self.fail(f"process {pid}, {name}, {processes.describe(status)}")
            self.is_watched_no_more.wait(0.25)

    # The storm's course.

    def run(self):
        """The faults that were found."""
        self.is_watched_no_more = threading.Event()
        looking = threading.Thread(target=self.look, daemon=True)
        try:
            self.tell("Starting, and looking at what is normal")
            self.left_when_calm = self.left_after_a_calm_run()
            self.start_all()
            looking.start()
            self.settle("before the storm")
            self.normal = {"extension": self.extension.use(), "host": self.host.use()}
            self.files_when_calm = self.runtime_files()
            self.raise_storm()
            self.calm_down()
            self.settle("after the storm")
            self.check_leaks()
            self.check_new_front_ends()
            self.check_still_right()
        except Ended:
            pass
        finally:
            self.is_over.set()
            self.disk_goes_on()
            self.is_watched_no_more.set()
            if looking.is_alive():
                looking.join(START_LIMIT)
            for front_end in self.front_ends:
                front_end.finish()
            self.end_all()
        self.results["clicks"] = self.story.numbers_of_clicks()
        self.results["highest memory"] = self.highest
        return self.faults

    def stop_at_faults(self):
        if self.faults:
            raise Ended

    def start_all(self):
        self.start_host()
        self.start_extension()
        self.stop_at_faults()
        shown = names.folders()
        shows = [[names.PLAIN, names.ODD], [names.PLAIN, names.LARGE], [names.DEEP, names.ODD]]
        self.front_ends = [
            front_ends.FrontEnd(self, number, {folder: shown[folder] for folder in folders},
                                f"{self.seed}/{number}")
            for number, folders in enumerate(shows, 1)]
        self.watches = [front_ends.Watch(self, folder, shown[folder])
                        for folder in (names.PLAIN, names.ODD)]

    def left_after_a_calm_run(self):
        self.start_host()
        self.start_extension()
        self.stop_at_faults()
        extension = self.extension
        for running in (self.extension, self.host):
            running.signal(signal.SIGTERM)
            if running.wait(START_LIMIT) != 0:
                self.fail(f"{running.name} {processes.describe(running.poll() or 0)} on SIGTERM")
        self.host_has_ended()
        self.extension = None
        self.stop_at_faults()
        assert extension.poll() == 0
        return self.runtime_files()

    def raise_storm(self):
        for front_end in self.front_ends:
            front_end.is_calm.clear()
        kinds = disturbances.kinds(self)
        steps = schedule(self.seed, self.seconds, kinds)
        self.began = time.monotonic()
        self.tell(f"{len(steps)} disturbances in {self.seconds} s")
        shown_at = 0
        threads = []
        for step in steps:
            self.pause(step.start - self.now())
            if self.is_over.is_set():
                break
            thread = threading.Thread(target=self.disturb, args=(step,), daemon=True)
            thread.start()
            threads.append(thread)
            if self.now() >= shown_at + 5:
                shown_at = self.now()
                clicks = self.story.numbers_of_clicks()
                self.tell(f"{shown_at:5.0f} s: {len(threads)} disturbances, "
                          f"{clicks['came']} clicks came, {len(self.story.lives)} hosts so far")
        self.pause(self.seconds - self.now())
        deadline = time.monotonic() + STEP_LIMIT
        for thread in threads:
            thread.join(max(0, deadline - time.monotonic()))
        for entry in self.record:
            if "kind" in entry and "end" not in entry:
                self.fail(f"this did not come to an end: {entry['what']}")
        self.results["disturbances"] = len(threads)

    def disturb(self, step):
        entry = {"kind": step.kind, "what": str(step)}
        kind = disturbances.KINDS[step.kind]
        with kind.lock_of(step.resource):
            if self.is_over.is_set():
                return
            entry["start"] = round(self.now(), 3)
            with self.record_lock:
                self.record.append(entry)
            try:
                outcome = kind.run(self, step)
                if outcome:
                    entry["outcome"] = str(outcome)
            except disturbances.Fault as fault:
                self.fail(f"{step.kind}: {fault}")
            except Exception as error:
                self.fail(f"{step.kind}: the storm itself failed: {type(error).__name__}: {error}")
                raise
            finally:
                entry["end"] = round(self.now(), 3)

    def calm_down(self):
        """Whatever was taken away is given back; then there is nothing more to disturb anybody."""
        self.stop_at_faults()
        for front_end in self.front_ends:
            front_end.is_calm.set()
        self.disk_goes_on()
        for running in (self.host, self.extension, *(watch.program for watch in self.watches)):
            if running is not None:
                running.signal(signal.SIGCONT)
        if self.host is None:
            self.start_host()
        self.start_extension()
        self.stop_at_faults()
        # What others have pushed waits in the extension's port; then the host has the last word.
        for port in port_peers.sockets_of(self.ports, port_peers.EXTENSION):
            deadline = time.monotonic() + SETTLE_LIMIT
            while not port_peers.answers(port, 5) and os.path.exists(port):
                if time.monotonic() > deadline:
                    break
        for path in sorted(self.story.doubtful):
            self.change(path, self.story.badge(path), "push")

    def disk_goes_on(self):
        if self.disk.reason is None:
            self.disk.thaw()
            self.disk.empty()

    def settle(self, when):
        """Waits until everybody shows what the host says."""
        started = time.monotonic()
        while True:
            wrong = self.what_is_wrong()
            if not wrong:
                break
            if time.monotonic() > started + SETTLE_LIMIT:
                for fault in wrong:
                    self.fail(f"{when}, after {SETTLE_LIMIT} s: {fault}")
                self.fail(f"corvid status says: {self.status_text()}")
            self.stop_at_faults()
            threading.Event().wait(0.1)
        taken = time.monotonic() - started
        self.results[f"settled {when}"] = round(taken, 2)
        self.tell(f"All is right {when}, after {taken:.1f} s")

    def what_is_wrong(self):
        faults = [fault for shown in (*self.front_ends, *self.watches) for fault in shown.faults()]
        return faults + self.story.faults_of_clicks()

    def status_text(self):
        try:
            said = subprocess.run([PROGRAMS / "corvid", "status", "--json", "--no-start"],
                                  env=self.world.environment, capture_output=True, check=False,
                                  text=True, timeout=START_LIMIT).stdout
            return " ".join(said.split())
        except subprocess.TimeoutExpired:
            return "nothing"

    def check_leaks(self):
        """Nobody takes more than before, once what was used has been given back."""
        deadline = time.monotonic() + SETTLE_LIMIT
        while True:
            faults = self.leaks()
            if not faults:
                break
            if time.monotonic() > deadline:
                for fault in faults:
                    self.fail(fault)
                self.stop_at_faults()
            threading.Event().wait(0.2)
        self.results["use"] = {what: str(running.use()) for what, running in
                               (("extension", self.extension), ("host", self.host))}

    def leaks(self):
        faults = []
        for what, running in (("extension", self.extension), ("host", self.host)):
            before, now = self.normal[what], running.use()
            if (now.descriptors > before.descriptors
                    or now.threads > before.threads + THREADS_KEPT[what]
                    or now.memory > before.memory + MEMORY_GROWTH or now.children):
                faults.append(f"the {what} had {before} before, and has {now} now")
        if (files := self.runtime_files()) != self.files_when_calm:
            faults.append(f"the runtime folder had {self.files_when_calm}, and has {files}")
        ours = {running.pid for running in
                (self.extension, self.host, *(watch.program for watch in self.watches))}
        others = {pid: processes.name_of(pid) for pid in self.processes() - ours}
        if others:
            faults.append(f"these processes are left: {others}")
        return faults

    def processes(self):
        found = leftovers.processes_of(os.environ[leftovers.MARK])
        for descriptor in found:
            os.close(descriptor)
        return set(found.values())

    def runtime_files(self):
        """The files of the runtime folder; an extension's port has another name each time."""
        return sorted(
            re.sub(r"(findesync-).*", r"\1*", str(path.relative_to(self.world.runtime)))
            for path in self.world.runtime.rglob("*"))

    def check_new_front_ends(self):
        """A front end that comes now sees what is right, and menus and clicks work."""
        for folder in (names.PLAIN, names.ODD):
            said = subprocess.run(
                [PROGRAMS / "corvid", "ls", os.path.join(os.fsencode(self.world.volume), folder),
                 "--json"], env=self.world.environment, capture_output=True, check=False,
                timeout=START_LIMIT)
            if said.returncode != 0:
                self.fail(f"corvid ls ended with {said.returncode}: {said.stderr.decode()}")
                continue
            for item in json.loads(said.stdout)["items"]:
                path = folder + b"/" + front_ends.name_of(item)
                if front_ends.badge_of(item) != self.story.badge(path):
                    self.fail(f"corvid ls shows {path!r} with {item['badge']!r}, and the host says "
                              f"{self.story.badge(path)!r}")
        self.stop_at_faults()

    def check_still_right(self):
        """What was right stays right, and the newest clicks come too."""
        for fault in self.what_is_wrong():
            self.fail(f"what had been right is not any more: {fault}")
        self.stop_at_faults()

    def end_all(self):
        """Every program ends at once when it is told to."""
        watches = [watch.program for watch in self.watches]
        told = [(what, running) for what, running in
                (("the extension", self.extension), ("the host", self.host),
                 *((watch.name, watch) for watch in watches)) if running is not None]
        for _, running in told:
            running.signal(signal.SIGCONT)
            running.signal(signal.SIGTERM)
        started = time.monotonic()
        for what, running in told:
            status = running.wait(max(0, started + END_LIMIT - time.monotonic()))
            if status is None:
                self.fail(f"{what} (process {running.pid}) runs {END_LIMIT} s after SIGTERM: "
                          f"{waits_of(running.pid)}")
                running.signal(signal.SIGKILL)
            elif status not in ((0, -signal.SIGTERM) if running in watches else (0,)):
                self.fail(f"{what} {processes.describe(status)} on SIGTERM")
        self.results["ended"] = round(time.monotonic() - started, 2)
        if not self.faults:
            if files := set(self.runtime_files()) - set(self.left_when_calm):
                self.fail(f"these files are left in the runtime folder: {sorted(files)}")
            if left := self.processes():
                self.fail(f"processes are left: {sorted(map(processes.name_of, left))}")

    def keep(self, folder):
        """Copies what the programs said, the record and the logs."""
        shutil.rmtree(folder, ignore_errors=True)
        shutil.copytree(self.kept, folder)
        with open(folder / "record.jsonl", "w", encoding="utf-8") as file:
            for entry in self.record:
                file.write(json.dumps(entry) + "\n")
        shutil.copytree(self.disk.mount_point, folder / "logs", dirs_exist_ok=True,
                        ignore=shutil.ignore_patterns("lost+found"))

    def close(self):
        leftovers.end_all(self.world.scratch.parent)
        self.disk.close()


def waits_of(pid):
    """Where each thread of a process is."""
    threads = []
    for task in sorted(Path(f"/proc/{pid}/task").glob("*")):
        try:
            state = (task / "stat").read_text().rsplit(")", 1)[1].split()[0]
            threads.append(f"{(task / 'comm').read_text().strip()} {state} "
                           f"{(task / 'wchan').read_text()}")
        except OSError:
            pass
    return ", ".join(threads)


def run_one(seconds, seed, arguments):
    """Whether it went well."""
    def tell(text):
        if not arguments.json:
            print(f"    {text}", flush=True)

    print(f"storm of {seconds} s with seed {seed}", file=sys.stderr, flush=True)
    storm = Storm(seconds, seed, tell)
    kept = None
    try:
        for skipped in disturbances.skipped(storm):
            print(f"    SKIPPED: {skipped}", file=sys.stderr, flush=True)
        faults = storm.run()
        if faults and arguments.keep is not None:
            kept = arguments.keep / str(seed)
            storm.keep(kept)
    finally:
        storm.close()
    if arguments.json:
        print(json.dumps({"seed": seed, "seconds": seconds, "faults": faults, **storm.results}),
              flush=True)
    else:
        for name, result in storm.results.items():
            tell(f"{name}: {result}")
    if not faults:
        return True
    with storm.record_lock:
        for entry in storm.record[-STEPS_SHOWN:]:
            print(f"    {entry['start']:7.2f} to {entry.get('end', '(goes on)')} s  "
                  f"{entry['what']}: {entry.get('outcome', '')}", file=sys.stderr)
    for fault in faults:
        print(f"FAULT at {fault}", file=sys.stderr)
    where = f"; what the programs said is in {kept}" if kept else ""
    print(f"The storm of {seconds} s with seed {seed} found a fault{where}.", file=sys.stderr)
    return False


def kept_seeds():
    """(seconds, seed) of each storm that has found something once."""
    lines = [line.split("#")[0].split() for line in KEPT_SEEDS.read_text().splitlines()]
    return [(int(words[0]), int(words[1])) for words in lines if words]


def run_apart(seconds, seed):
    """Runs a storm in a process of its own: what is left of it ends with that."""
    options = [word for word in sys.argv[1:] if word != "--kept"]
    return subprocess.run([sys.executable, __file__, str(seconds), str(seed), *options],
                          check=False).returncode


def main():
    parser = argparse.ArgumentParser(prog="script/storm")
    parser.add_argument("seconds", type=int, nargs="?")
    parser.add_argument("seed", type=int, nargs="?")
    parser.add_argument("--kept", action="store_true")
    parser.add_argument("--json", action="store_true")
    parser.add_argument("--keep", type=Path)
    arguments = parser.parse_args()
    if arguments.kept:
        sys.exit(max([run_apart(*one) for one in kept_seeds()], default=0))
    if arguments.seconds is None or arguments.seconds < 1:
        parser.error("how many seconds?")
    seed = arguments.seed
    if seed is None:
        seed = int.from_bytes(os.urandom(4), "big")
    sys.exit(0 if run_one(arguments.seconds, seed, arguments) else 1)


if __name__ == "__main__":
    main()
