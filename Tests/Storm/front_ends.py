"""Front ends that stay through the storm: what they show at its end must be what the host says."""

import os
import random
import threading
import time

import link_client as link
import names

PATIENCE = 60
CLICK_SENT = 0


class FrontEnd(threading.Thread):
    """Shows folders, asks for all their badges, and, until it is told to be calm, changes its mind
    about folders, asks again, opens menus and clicks. Connects anew whenever it is hung up."""

    def __init__(self, storm, number, shown, seed):
        super().__init__(daemon=True)
        self.storm = storm
        self.number = number
        self.shown = shown  # folder below the volume -> names
        self.random = random.Random(seed)
        self.changed = threading.Condition()
        self.view = {}
        self.unanswered = set()
        self.is_connected = False
        self.is_calm = threading.Event()
        self.is_over = threading.Event()
        self.clicks = 0
        self.requests = 0
        self.waiting_click = None  # (the menu's request, the path), then (the click's, the path)
        self.waiting_since = 0.0
        self.connections = 0
        self.volume = b""
        self.is_calm.set()
        self.start()

    def run(self):
        while not self.is_over.is_set():
            try:
                with link.Connection(self.storm.link_path) as connection:
                    self.connections += 1
                    self._converse(connection)
            except (OSError, link.HungUp):
                pass
            except Exception as error:  # what the extension said makes no sense
                self.storm.fail(f"front end {self.number}: {type(error).__name__}: {error}")
            with self.changed:
                self.is_connected = False
            self.waiting_click = None
            self.is_over.wait(0.1)

    def _converse(self, connection):
        connection.say(link.hello(b"storm front end %d" % self.number))
        with self.changed:
            self.view = {}
            self.unanswered = {(folder, name) for folder, named in self.shown.items()
                               for name in named}
        next_act = time.monotonic()
        while not self.is_over.is_set():
            now = time.monotonic()
            if now >= next_act and self.is_connected:
                self._act(connection)
                next_act = now + self.random.uniform(0.05, 0.5)
            got = connection.next_frame(max(0.01, min(0.5, next_act - now)))
            if got is not None:
                self._take(connection, *got)

    def _take(self, connection, kind, fields):
        if kind == link.VOLUME:
            self.volume = link.Fields(fields).text()
            for folder in self.shown:
                self._show(connection, folder)
            with self.changed:
                self.is_connected = True
        elif kind == link.BADGES:
            folder, items = link.badges(fields)
            folder = self._below_volume(folder)
            with self.changed:
                for is_answer, name, badge in items:
                    self.view[folder, name] = badge
                    if is_answer:
                        self.unanswered.discard((folder, name))
                self.changed.notify_all()
        elif kind == link.MENU_REPLY:
            self._choose(connection, fields)
        elif kind == link.CLICK_REPLY:
            reader = link.Fields(fields)
            request, outcome = reader.number("I"), reader.number("B")
            if self.waiting_click and self.waiting_click[0] == request:
                self.storm.story.confirmed(self.waiting_click[1], outcome)
                with self.changed:
                    self.waiting_click = None
                    self.changed.notify_all()

    def _show(self, connection, folder):
        with self.changed:
            self.unanswered |= {(folder, name) for name in self.shown[folder]}
        path = self._local(folder)
        connection.say(link.begin(path) + link.asks(path, self.shown[folder]))

    def _act(self, connection):
        if self.is_calm.is_set():
            return
        folder = self.random.choice(sorted(self.shown))
        what = self.random.random()
        if what < 0.55:
            self._open_menu(connection)
        elif what < 0.8:
            some = self.random.sample(self.shown[folder], min(20, len(self.shown[folder])))
            with self.changed:
                self.unanswered |= {(folder, name) for name in some}
            connection.say(link.asks(self._local(folder), some))
        elif what < 0.95:
            connection.say(link.end(self._local(folder)))
            self._show(connection, folder)
        else:
            connection.say(link.frame(link.STATUS_REQUEST, bytes(4)))

    def _open_menu(self, connection):
        """The first half of a click; one at a time. Each is on an item of its own."""
        if self.waiting_click is not None:
            return
        self.clicks += 1
        self.requests += 1
        odd = self.random.choice([b"", b" \n", "\u202eשלום".encode(), b"%2F"])
        path = names.CLICKS + b"/%d of %d%s" % (self.clicks, self.number, odd)
        self.waiting_click = (self.requests, path)
        self.waiting_since = time.monotonic()
        connection.say(link.menu_request(self.requests, self.number,
                                         self._local(names.CLICKS), self._local(path)))

    def _choose(self, connection, fields):
        request, outcome, menu, enabled, _ = link.menu_reply(fields)
        if self.waiting_click is None or self.waiting_click[0] != request:
            return
        path = self.waiting_click[1]
        if outcome != 0 or not enabled:
            with self.changed:
                self.waiting_click = None
                self.changed.notify_all()
            return
        self.requests += 1
        self.waiting_click = (self.requests, path)
        self.storm.story.clicked(path, connection.extension)
        connection.say(link.click(self.requests, menu, self.random.choice(enabled)))

    def _local(self, path):
        return self.volume + b"/" + path

    def _below_volume(self, path):
        return path.removeprefix(self.volume + b"/")

    def faults(self):
        """What is not right now: sentences, and how many more there are."""
        story = self.storm.story
        who = f"front end {self.number}"
        with self.changed:
            if not self.is_connected:
                return [f"{who} has no connection"]
            faults = []
            if self.unanswered:
                folder, name = min(self.unanswered)
                faults.append(f"{who}: {len(self.unanswered)} questions are unanswered, one about "
                              f"{folder + b'/' + name!r}")
            wrong = [(folder + b"/" + name, badge, story.badge(folder + b"/" + name))
                     for (folder, name), badge in self.view.items()
                     if folder in self.shown and badge != story.badge(folder + b"/" + name)]
            if wrong:
                faults.append(f"{who}: {len(wrong)} badges are wrong; {wrong[0][0]!r} has "
                              f"{wrong[0][1]!r}, and the host says {wrong[0][2]!r}")
            if self.waiting_click is not None:
                faults.append(f"{who}: the menu or the click on {self.waiting_click[1]!r} is not "
                              f"answered since {time.monotonic() - self.waiting_since:.0f} s")
            return faults

    def finish(self):
        self.is_over.set()
        self.join(PATIENCE)


class Watch:
    """`corvid watch --json` on one folder."""

    def __init__(self, storm, folder, shown):
        self.storm = storm
        self.folder = folder
        self.shown = set(shown)
        self.lock = threading.Lock()
        self.program = None
        self.gave_up = 0
        self.begin()

    def begin(self):
        with self.lock:
            self.view = None
        self.program = self.storm.program(
            f"watch-{self.folder.decode()}",
            ["corvid", "watch", os.path.join(os.fsencode(self.storm.world.volume), self.folder),
             "--json"], on_event=self._take)

    def _take(self, event):
        with self.lock:
            if event["event"] == "listed":
                self.view = {name_of(item): badge_of(item) for item in event["items"]}
            elif event["event"] == "push" and self.view is not None:
                self.view[name_of(event)] = badge_of(event)

    def keep_running(self):
        """Starts it again when it has ended before it had anything to show, as it may when nobody
        answers it."""
        status = self.program.poll()
        if status is None:
            return
        if not self.program.is_expected_to_end:
            if status != 1 or self.view is not None:
                self.storm.fail(f"{self.program.name} (process {self.program.pid}) "
                                f"{self.storm.describe(status)}; it said: {self.program.said()}")
            self.gave_up += 1
        self.begin()

    def faults(self):
        who = f"corvid watch of {self.folder.decode()}"
        with self.lock:
            if self.program.poll() is not None:
                return [f"{who} does not run; it said: {self.program.said()}"]
            if self.view is None:
                return [f"{who} has listed nothing yet"]
            faults = []
            if missing := self.shown - set(self.view):
                faults.append(f"{who} does not list {min(missing)!r}")
            wrong = [(name, badge, self.storm.story.badge(self.folder + b"/" + name))
                     for name, badge in self.view.items()
                     if badge != self.storm.story.badge(self.folder + b"/" + name)]
            if wrong:
                faults.append(f"{who}: {len(wrong)} badges are wrong; {wrong[0][0]!r} has "
                              f"{wrong[0][1]!r}, and the host says {wrong[0][2]!r}")
            return faults


def name_of(item):
    if "nameBytes" in item:
        return bytes.fromhex(item["nameBytes"])
    return item["name"].encode()


def badge_of(item):
    return "" if item["badge"] == "none" else item["badge"]
