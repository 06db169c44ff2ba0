"""What is done to the programs: one function a kind. Each brings its disturbance about, lets it
last for the step's time, and takes it away again whatever happens; what it returns is written down."""

import os
import random
import signal
import subprocess
import sys
import threading
from contextlib import ExitStack, nullcontext
from pathlib import Path

import link_client as link
import names
import port_peers
import processes
from schedule import Kind
from story import BADGES

FLOOD = Path(__file__).resolve().parents[1] / "EndToEnd" / "flood.py"
CORPUS = Path(__file__).resolve().parents[2] / "Fuzzers" / "corpus" / "keyed_archive_fuzzer"
# Ten times what is seen on two busy cores.
ANSWER_LIMIT = 60
COMMAND_LIMIT = 60
# A request in work may last two seconds, unregistering one more; the rest is the busy machine.
END_LIMIT = 15


class Fault(Exception):
    """A program did not do what it must even while it is disturbed."""


class Disturbance:
    def __init__(self, kind, run):
        self.kind = kind
        self.run_it = run
    locks = {}

    def lock_of(self, resource):
        return nullcontext() if resource is None else self.locks.setdefault(resource,
                                                                            threading.Lock())

    def run(self, storm, step):
        return self.run_it(storm, step, random.Random(step.seed))


KINDS = {}


def disturbance(weight, resource, shortest, longest, ends_a_process=False):
    def add(function):
        name = function.__name__.replace("_", " ")
        kind = Kind(name, weight, resource, shortest, longest, ends_a_process)
        KINDS[name] = Disturbance(kind, function)
        return function
    return add


def kinds(storm):
    """Those that can be on this machine."""
    return [one.kind for one in KINDS.values()
            if storm.disk.reason is None or one.kind.resource != "disk"]


def skipped(storm):
    if storm.disk.reason is not None:
        yield f"no disk that is full or hangs: {storm.disk.reason}"


def some_items(generator, count):
    """Items that somebody shows and the host can be asked about."""
    shown = names.folders()
    folder = generator.choice(sorted(shown))
    chosen = generator.choices(shown[folder], k=count)
    return [folder + b"/" + name for name in chosen]


# The host says something else.

@disturbance(6, None, 0, 0.5)
def change_some_badges(storm, step, generator):
    how = generator.choice(["push", "push", "show"])
    paths = [path for path in some_items(generator, generator.randint(1, 40))
             if path not in storm.story.unasked]
    for path in paths:
        storm.change(path, generator.choice(BADGES), how)
    return f"{len(paths)} by {how}"


@disturbance(2, None, 0, 0.5)
def change_every_badge_of_a_folder(storm, step, generator):
    shown = names.folders()
    folder = generator.choice(sorted(shown))
    for name in shown[folder]:
        path = folder + b"/" + name
        if path not in storm.story.unasked:
            storm.change(path, generator.choice(BADGES), "push")
    return folder.decode()[:20]


# Processes stop, end and come back.

def stop(storm, running, seconds):
    running.signal(signal.SIGSTOP)
    try:
        storm.pause(seconds)
    finally:
        running.signal(signal.SIGCONT)
    return f"process {running.pid}"


@disturbance(3, "extension", 0.1, 4)
def stop_the_extension(storm, step, generator):
    return stop(storm, storm.extension, step.seconds)


@disturbance(3, "host", 0.1, 4)
def stop_the_host(storm, step, generator):
    return stop(storm, storm.host, step.seconds)


@disturbance(2, "watch", 0.5, 5)
def stop_a_watch(storm, step, generator):
    return stop(storm, generator.choice(storm.watches).program, step.seconds)


def end(storm, running, number):
    """Ends a process; says how long that took."""
    before = storm.now()
    running.signal(number)
    status = running.wait(END_LIMIT)
    while status is None and storm.disk.is_frozen:
        status = running.wait(1)  # what the kernel holds cannot end
    status = running.wait(END_LIMIT) if status is None else status
    if status is None:
        # It may be gone for everybody but the kernel, which then is seen by who is started next.
        raise Fault(f"{running.name} (process {running.pid}) did not end within {END_LIMIT} s: "
                    f"{waits_of(running.pid)}")
    if number == signal.SIGTERM and status not in (0, -signal.SIGTERM):
        said = running.said() if isinstance(running, processes.Program) else ""
        raise Fault(f"{running.name} {processes.describe(status)} on SIGTERM; it said: {said}")
    return f"{running.name}, process {running.pid}, ended after {storm.now() - before:.2f} s"


def waits_of(pid):
    waits = []
    for task in sorted(Path(f"/proc/{pid}/task").glob("*")):
        try:
            waits.append((task / "wchan").read_text())
        except OSError:
            pass
    return ", ".join(waits)


def end_extension(storm, step, number, is_left_to_front_ends):
    running = storm.extension
    said = end(storm, running, number)
    if is_left_to_front_ends:
        # Nobody starts it for them for a while.
        for _ in range(int(step.seconds * 20)):
            if storm.find_extension():
                break
            storm.pause(0.05)
    else:
        storm.pause(step.seconds)
    storm.start_extension()
    return said


@disturbance(2, "extension", 0, 2, ends_a_process=True)
def kill_the_extension(storm, step, generator):
    return end_extension(storm, step, signal.SIGKILL, generator.random() < 0.5)


@disturbance(2, "extension", 0, 2, ends_a_process=True)
def end_the_extension(storm, step, generator):
    return end_extension(storm, step, signal.SIGTERM, generator.random() < 0.5)


def end_host(storm, step, number):
    said = end(storm, storm.host, number)
    storm.host_has_ended()
    storm.pause(step.seconds)
    storm.start_host()
    return said


@disturbance(3, "host", 0, 3, ends_a_process=True)
def kill_the_host(storm, step, generator):
    return end_host(storm, step, signal.SIGKILL)


@disturbance(2, "host", 0, 3, ends_a_process=True)
def end_the_host(storm, step, generator):
    return end_host(storm, step, signal.SIGTERM)


@disturbance(2, "host", 1, 5, ends_a_process=True)
def another_host_for_a_while(storm, step, generator):
    """One of corvid-host takes the place of the storm's own."""
    said = end(storm, storm.host, generator.choice([signal.SIGTERM, signal.SIGKILL]))
    storm.host_has_ended()
    command = ["corvid-host", "git", str(storm.world.volume), "--json"]
    if generator.random() < 0.5:
        rules = storm.world.scratch / "rules"
        rules.write_text("badge *7* error\nbadge ** synced\nmenu ** \"Other\" other\n"
                         "fault badge *13* delay 100ms\nfault badge *17* no-reply\n")
        command = ["corvid-host", "rules", str(rules), str(storm.world.volume), "--json"]
    life = storm.story.host_began(keeps_a_log=False)
    other = storm.program("other-host", command)
    try:
        if other.wait_for("serving", ANSWER_LIMIT) is None:
            raise Fault(f"{' '.join(command[:2])} does not serve; it said: {other.said()}")
        storm.pause(step.seconds)
        storm.lives_on(other, "the other host")
        end(storm, other, signal.SIGTERM)
    finally:
        other.signal(signal.SIGKILL)
        other.wait(END_LIMIT)
        storm.story.host_ended(life)
        storm.start_host()
    return f"{said}; then {' '.join(command[:2])}"


@disturbance(1, "host", 0, 1)
def a_second_host(storm, step, generator):
    """It is refused, with a reason."""
    second = storm.program("second-host", ["storm_host", str(storm.world.volume)],
                           takes_orders=True)
    try:
        second.order("serve")
        if second.wait_for("serving", COMMAND_LIMIT) is not None:
            raise Fault("a second host serves beside the first")
        status = second.wait(COMMAND_LIMIT)
        if status != 1 or "already" not in second.said():
            raise Fault(f"a second host {processes.describe(status) if status else 'hangs'}; "
                        f"it said: {second.said()}")
        return second.said()
    finally:
        second.signal(signal.SIGKILL)
        second.wait(END_LIMIT)


@disturbance(1, "watch", 0, 1)
def kill_a_watch(storm, step, generator):
    return end(storm, generator.choice(storm.watches).program,
               generator.choice([signal.SIGKILL, signal.SIGTERM]))


@disturbance(2, "host", 0.2, 3)
def a_slow_answer_of_the_host(storm, step, generator):
    with storm.host_lock:
        if storm.host is not None:
            storm.host.order(f"pause {int(step.seconds * 1000)}")


# Something is missing.

def take_descriptors(storm, running, step, generator):
    spare = generator.choice([0, 0, 1, 2, 5])
    try:
        before = running.limit_descriptors(spare)
    except (OSError, ProcessLookupError):
        return "it had ended"
    try:
        storm.pause(step.seconds)
    finally:
        running.restore_descriptors(before)
    return f"process {running.pid}, {spare} to spare"


@disturbance(3, "extension", 0.5, 6)
def no_descriptors_for_the_extension(storm, step, generator):
    return take_descriptors(storm, storm.extension, step, generator)


@disturbance(3, "host", 0.5, 6)
def no_descriptors_for_the_host(storm, step, generator):
    return take_descriptors(storm, storm.host, step, generator)


@disturbance(1, "watch", 0.5, 6)
def no_descriptors_for_a_watch(storm, step, generator):
    return take_descriptors(storm, generator.choice(storm.watches).program, step, generator)


@disturbance(2, "disk", 1, 6)
def a_full_disk(storm, step, generator):
    storm.disk.fill()
    try:
        storm.pause(step.seconds)
    finally:
        storm.disk.empty()


@disturbance(3, "disk", 1, 8)
def a_disk_that_hangs(storm, step, generator):
    storm.disk.freeze()
    try:
        storm.pause(step.seconds)
    finally:
        storm.disk.thaw()


@disturbance(1, "disk", 0, 1)
def old_logs_are_removed(storm, step, generator):
    return command(storm, ["corvid", "logs", "prune", "--keep", "4", "--yes"])


@disturbance(1, "host", 0.5, 3)
def the_host_s_socket_is_removed(storm, step, generator):
    """It notices and opens another."""
    for port in port_peers.sockets_of(storm.ports, port_peers.HOST):
        try:
            os.unlink(port)
        except FileNotFoundError:
            pass
    storm.pause(step.seconds)


@disturbance(1, "extension", 0.5, 3)
def more_files_in_the_ports_than_a_watcher_is_told_of(storm, step, generator):
    """The extension is stopped meanwhile, so that its queue overflows."""
    storm.extension.signal(signal.SIGSTOP)
    first = os.path.join(storm.ports, "=storm-1")
    try:
        for number in range(9000):
            if storm.is_over.is_set():
                break
            with open(first, "wb"):
                pass
            os.rename(first, os.path.join(storm.ports, "=storm-2"))
    except FileNotFoundError:
        pass  # whoever takes a name removes such files
    finally:
        for name in ("=storm-1", "=storm-2"):
            try:
                os.unlink(os.path.join(storm.ports, name))
            except FileNotFoundError:
                pass
        storm.extension.signal(signal.SIGCONT)
    return f"{number + 1} files"


# Front ends of every kind.

def must_be_answered(storm, connection, lost):
    """That the extension has hung up, or says nothing, is a fault if it has lived all the while."""
    if storm.extension.pid == connection.extension and not storm.extension.is_expected_to_end \
            and storm.extension.poll() is None and not storm.is_over.is_set():
        raise Fault(lost)
    return f"{lost}, but the extension was ended"


def connected(storm, **options):
    """A connection, or None where there is nobody to connect to."""
    try:
        return link.Connection(storm.link_path, **options)
    except OSError:
        return None


def take_answers(connection, wanted, seconds, storm):
    """Reads until each of those names was answered."""
    wanted = set(wanted)
    deadline = storm.now() + seconds
    while wanted:
        left = deadline - storm.now()
        if left <= 0:
            return len(wanted)
        got = connection.next_frame(left)
        if got is not None and got[0] == link.BADGES:
            wanted -= {name for is_answer, name, _ in link.badges(got[1])[1] if is_answer}
    return 0


@disturbance(3, None, 1, 6)
def a_front_end_that_does_not_read_for_a_while(storm, step, generator):
    """Ten thousand questions and a large menu; then it reads, and everything comes."""
    connection = connected(storm)
    if connection is None:
        return "nobody there"
    with connection:
        try:
            volume = connection.greet(ANSWER_LIMIT)
            folder = volume + b"/" + names.HUGE
            asked = [b"%05d " % number + b"n" * generator.randint(0, 120)
                     for number in range(10_000)]
            many = volume + b"/" + names.CLICKS + b"/many-entries"
            connection.say_much(link.begin(folder) + link.asks(folder, asked)
                                + link.menu_request(1, 1, volume + b"/" + names.CLICKS, many))
            storm.pause(step.seconds)
            missing = take_answers(connection, asked, ANSWER_LIMIT, storm)
        except (OSError, link.HungUp) as error:
            return must_be_answered(storm, connection, f"hung up on: {error!r}")
        if missing:
            return must_be_answered(storm, connection, f"{missing} of 10000 questions unanswered "
                                                       f"after {ANSWER_LIMIT} s")
    return "all answered"


@disturbance(2, None, 1, 5)
def a_front_end_that_reads_a_large_menu_late(storm, step, generator):
    connection = connected(storm, receive_buffer=4096)
    if connection is None:
        return "nobody there"
    with connection:
        try:
            volume = connection.greet(ANSWER_LIMIT)
            folder = volume + b"/" + names.CLICKS
            connection.say(link.menu_request(7, 1, folder, folder + b"/many-entries"))
            storm.pause(step.seconds)
            reply = connection.wait_for(link.MENU_REPLY, ANSWER_LIMIT)
        except (OSError, TimeoutError, link.HungUp) as error:
            return must_be_answered(storm, connection, f"no menu: {error!r}")
    _, outcome, _, _, count = link.menu_reply(reply)
    return f"outcome {outcome}, {count} entries"


@disturbance(2, None, 0.5, 4)
def a_front_end_that_sends_byte_by_byte(storm, step, generator):
    connection = connected(storm)
    if connection is None:
        return "nobody there"
    with connection:
        try:
            volume = connection.greet(ANSWER_LIMIT)
            folder = volume + b"/" + names.PLAIN
            asked = names.folders()[names.PLAIN][:5]
            data = link.begin(folder) + link.asks(folder, asked)
            for byte in data:
                connection.say(bytes([byte]))
                storm.pause(step.seconds / len(data))
            missing = take_answers(connection, asked, ANSWER_LIMIT, storm)
        except (OSError, link.HungUp) as error:
            return must_be_answered(storm, connection, f"hung up on: {error!r}")
        if missing:
            return must_be_answered(storm, connection, f"{missing} of 5 questions unanswered")
    return "all answered"


@disturbance(2, None, 1, 6)
def three_hundred_that_never_say_hello(storm, step, generator):
    with ExitStack() as stack:
        count = 0
        for _ in range(300):
            # Who finds no room waits in the kernel; none of these waits for long.
            connection = connected(storm, timeout=0.02)
            if connection is not None:
                stack.enter_context(connection)
                count += 1
            if storm.is_over.is_set():
                break
        storm.pause(step.seconds)
    return f"{count} connections"


@disturbance(2, None, 1, 5)
def a_front_end_that_asks_for_the_status_and_reads_nothing(storm, step, generator):
    connection = connected(storm, timeout=0.2)
    if connection is None:
        return "nobody there"
    sent = 0
    with connection:
        try:
            connection.greet(ANSWER_LIMIT)
            connection.socket.settimeout(0.2)
            for _ in range(64):
                connection.say(link.frame(link.STATUS_REQUEST, bytes(4)) * 500)
                sent += 500
        except (OSError, link.HungUp):
            pass
        storm.pause(step.seconds)
    return f"{sent} requests"


@disturbance(2, None, 0.5, 3)
def a_front_end_that_begins_and_ends_folders(storm, step, generator):
    connection = connected(storm)
    if connection is None:
        return "nobody there"
    count = 0
    with connection:
        try:
            volume = connection.greet(ANSWER_LIMIT)
            end_at = storm.now() + step.seconds
            while storm.now() < end_at and not storm.is_over.is_set():
                folders = [volume + b"/folder-%d" % generator.randrange(400) for _ in range(100)]
                connection.say_much(b"".join(link.begin(folder) for folder in folders)
                                    + b"".join(link.end(folder) for folder in folders))
                count += len(folders)
                connection.next_frame(0.01)
        except (OSError, TimeoutError, link.HungUp) as error:
            return must_be_answered(storm, connection, f"hung up on: {error!r}")
    return f"{count} folders"


@disturbance(1, None, 1, 4)
def a_front_end_that_asks_for_more_than_is_remembered(storm, step, generator):
    """And goes before all is answered. In a folder of its own: folders take turns, and so it holds
    up nobody else."""
    connection = connected(storm)
    if connection is None:
        return "nobody there"
    sent = 0
    with connection:
        try:
            volume = connection.greet(ANSWER_LIMIT)
            folder = volume + b"/" + names.HUGE + b"/%d" % step.seed
            connection.say(link.begin(folder))
            connection.socket.settimeout(2)
            for batch in range(55):
                connection.say(link.asks(folder, [b"%d of %d" % (number, batch)
                                                  for number in range(link.MAX_BATCH)]))
                sent += link.MAX_BATCH
            storm.pause(step.seconds)
        except (OSError, TimeoutError, link.HungUp):
            pass  # it may take no more from who does not read
    return f"{sent} names"


@disturbance(2, None, 0, 0.5)
def front_ends_that_talk_nonsense(storm, step, generator):
    nonsense = [b"\0\0\0\0", b"\xff\xff\xff\xff", generator.randbytes(3000), b"GET / HTTP/1.1\r\n",
                link.hello()[:7], link.frame(link.ASK, link.text(b"/") + b"\xff" * 4),
                link.hello() + link.frame(link.BEGIN, link.text(b"relative/../path")),
                link.hello() + link.hello(), link.frame(200, b"later") * 1000,
                link.hello() + link.click(1, 99, 99) * 200]
    generator.shuffle(nonsense)
    for data in nonsense:
        connection = connected(storm, timeout=1)
        if connection is None:
            continue
        with connection:
            try:
                connection.say(data)
                connection.next_frame(0.02)
            except (OSError, link.HungUp):
                pass


# At the message ports.

@disturbance(2, None, 0.5, 3)
def a_flood_of_pushes(storm, step, generator):
    """By somebody who is not the host; what he says lasts until the host says it anew."""
    paths = [path for path in some_items(generator, 30) if path not in storm.story.unasked
             and path.startswith(names.PLAIN)]
    paths = paths or [names.PLAIN + b"/" + names.folders()[names.PLAIN][0]]
    for path in paths:
        storm.story.doubt(path)
    flood = processes.spawn(
        [sys.executable, FLOOD, storm.ports, str(step.seconds),
         *(path.decode().replace(" ", "%20") for path in paths)],
        env=storm.world.environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
        stderr=subprocess.DEVNULL)
    with flood:
        return f"{flood.communicate()[0].decode().strip()} taken"


@disturbance(2, None, 0.5, 6)
def peers_that_send_one_byte(storm, step, generator):
    where = generator.choice([port_peers.HOST, port_peers.EXTENSION])
    with ExitStack() as stack:
        count = 0
        for port in port_peers.sockets_of(storm.ports, where):
            for _ in range(port_peers.BACKLOG):
                connection = port_peers.connect(port, 0.05)
                if connection is None:
                    continue
                stack.enter_context(connection)
                try:
                    connection.send(b"C")
                    count += 1
                except OSError:
                    pass
        storm.pause(step.seconds)
    return f"{count} at {where[:20]}"


@disturbance(2, None, 0, 0.5)
def nonsense_at_the_ports(storm, step, generator):
    """What the fuzzers have collected. Only the host gets it as a badge: the extension is to stop
    at a badge that is none."""
    corpus = sorted(CORPUS.iterdir())
    sent = 0
    for file in generator.sample(corpus, min(20, len(corpus))):
        message = generator.choice([0, 1, 2, 4, 5, 6, 7, -1])
        where = generator.choice([port_peers.HOST, port_peers.EXTENSION])
        for port in port_peers.sockets_of(storm.ports, where):
            sent += port_peers.send(port, port_peers.request(message, file.read_bytes()), 0.2)
            sent += port_peers.send(port, generator.randbytes(100), 0.2)
    return f"{sent} messages"


@disturbance(2, None, 0, 0.5)
def extensions_that_do_not_exist(storm, step, generator):
    """They register with the host, and it is to bear with them."""
    sent = 0
    for port in port_peers.sockets_of(storm.ports, port_peers.HOST):
        for _ in range(150):
            name = f"{port_peers.EXTENSION}nobody-{generator.getrandbits(64):016x}"
            data = port_peers.request(port_peers.UPDATE_PORTS, port_peers.registration(name))
            sent += port_peers.send(port, data, 0.2)
    return f"{sent} registered"


# The commands that people type.

def command(storm, words):
    """Runs it to its end; it may fail, but in words and in time."""
    result = storm.program("command", [str(word) for word in words])
    status = result.wait(COMMAND_LIMIT)
    while status is None and storm.disk.is_frozen and not storm.is_over.is_set():
        status = result.wait(1)
    if status is None:
        result.signal(signal.SIGKILL)
        raise Fault(f"{' '.join(map(str, words))} did not end within {COMMAND_LIMIT} s")
    if status not in (0, 1, 3):
        raise Fault(f"{' '.join(map(str, words))} {processes.describe(status)}; "
                    f"it said: {result.said()}")
    return f"{' '.join(map(str, words[1:3]))} {processes.describe(status)}"


@disturbance(4, None, 0, 0.5)
def a_command(storm, step, generator):
    folder = os.path.join(os.fsencode(storm.world.volume), names.PLAIN)
    name = generator.choice(names.folders()[names.PLAIN])
    item = os.fsdecode(os.path.join(folder, name))
    words = generator.choice([
        ["ls", os.fsdecode(folder), "--json"], ["ls", item], ["status"], ["status", "--json"],
        ["ports", "--json"], ["menu", item], ["push", item, generator.choice(BADGES)],
        ["ls", str(storm.world.volume), "--no-start"]])
    if words[0] == "push":
        storm.story.doubt(names.PLAIN + b"/" + name)
    return command(storm, ["corvid", *words])
