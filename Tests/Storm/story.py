"""What must be true: the badge that the host gives each item, and what became of each click."""

import threading
import time
from dataclasses import dataclass, field

BADGES = ["cloud", "inProgress", "checkedOut", "finishedTransfer", "error", "accessDenied",
          "synced", "syncedpartial"]


def usual_badge(path):
    """The badge that storm_host gives an item of which it has not been told another."""
    value = 0xcbf29ce484222325
    for byte in path:
        value = (value ^ byte) * 0x100000001b3 & (1 << 64) - 1
    return BADGES[value % len(BADGES)]


@dataclass
class Life:
    """One host application, from its start to its end."""
    number: int
    started: float
    ended: float | None = None
    arrivals: list = field(default_factory=list)  # paths, in the order in which they came
    keeps_a_log: bool = True  # False for a host whose clicks nobody counts


@dataclass
class Click:
    path: bytes
    sent: float
    extension: int  # the process that was told
    confirmed: float | None = None
    outcome: int | None = None


class Story:
    """All members may be used from any thread. Paths are below the volume, in bytes."""

    def __init__(self, unasked):
        """`unasked` are the paths whose badge the extension never asks the host for."""
        self.lock = threading.Lock()
        self.unasked = unasked
        self.told = {}      # the badges that the host was told to give
        self.doubtful = set()  # items about which somebody else than the host has pushed
        self.clicks = {}
        self.lives = []

    def badge(self, path):
        """The badge that every front end must show: "" for none."""
        if path in self.unasked:
            return ""
        with self.lock:
            return self.told.get(path) or usual_badge(path)

    def tell(self, path, badge):
        with self.lock:
            self.told[path] = badge

    def doubt(self, path):
        with self.lock:
            self.doubtful.add(path)

    def host_began(self, keeps_a_log=True):
        with self.lock:
            life = Life(len(self.lives) + 1, time.monotonic(), keeps_a_log=keeps_a_log)
            self.lives.append(life)
            return life

    def host_ended(self, life):
        with self.lock:
            if life.ended is None:
                life.ended = time.monotonic()

    def clicked(self, path, extension):
        with self.lock:
            assert path not in self.clicks
            self.clicks[path] = Click(path, time.monotonic(), extension)

    def confirmed(self, path, outcome):
        with self.lock:
            self.clicks[path].confirmed = time.monotonic()
            self.clicks[path].outcome = outcome

    def arrived(self, life, path):
        with self.lock:
            life.arrivals.append(path)

    def faults_of_clicks(self):
        """A sentence for each click that came twice, was confirmed and never came, or came although
        nobody clicked."""
        with self.lock:
            count = {}
            for life in self.lives:
                for path in life.arrivals:
                    count[path] = count.get(path, 0) + 1
            faults = [f"the click on {path!r} came {times} times"
                      for path, times in count.items() if times > 1]
            faults += [f"a click on {path!r} came, but nobody clicked there"
                       for path in count if path not in self.clicks]
            faults += [f"the click on {click.path!r} was confirmed at {click.confirmed:.3f}, "
                       f"but never came" for click in self.clicks.values()
                       if click.outcome == 0 and click.path not in count
                       and not self._was_lost_with_its_host(click)]
            return faults

    def _was_lost_with_its_host(self, click):
        """Whether a host took the click and ended before it looked at it. Clicks of one extension
        come in their order: a host that has seen a later one cannot have missed this one."""
        for life in self.lives:
            if life.started > click.confirmed or (life.ended or click.confirmed) < click.sent:
                continue
            if not life.keeps_a_log:
                return True
            if life.ended is None:
                continue
            later = [self.clicks[path] for path in life.arrivals if path in self.clicks]
            if not any(other.sent > click.confirmed and other.extension == click.extension
                       for other in later):
                return True
        return False

    def numbers_of_clicks(self):
        with self.lock:
            came = {path for life in self.lives for path in life.arrivals}
            confirmed = [click for click in self.clicks.values() if click.outcome == 0]
            return {"sent": len(self.clicks), "confirmed": len(confirmed), "came": len(came),
                    "lost with their host": len([click for click in confirmed
                                                 if click.path not in came])}
