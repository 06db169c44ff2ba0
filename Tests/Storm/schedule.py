"""When which disturbance comes: a pure function of the seed and the length of the storm. How long
each step takes in fact is up to the machine."""

import random
from dataclasses import dataclass, replace


@dataclass(frozen=True)
class Kind:
    """A kind of disturbance. Two that need the same `resource` never overlap; None is needed by
    as many as like. `weight` is how often it comes, `seconds` how long it lasts at most."""
    name: str
    weight: float
    resource: str | None
    shortest: float
    longest: float
    ends_a_process: bool = False


@dataclass(frozen=True)
class Step:
    start: float  # seconds after the storm's begin
    kind: str
    resource: str | None
    seconds: float
    seed: int  # of what the disturbance itself decides

    def __str__(self):
        return f"{self.start:7.2f} s  {self.kind} for {self.seconds:.1f} s"


# After this part of the storm no host and no extension is ended any more, so that what they leak
# adds up in processes that live.
PART_WITH_DEATHS = 2 / 3
STEPS_A_SECOND = 1.2


def schedule(seed, seconds, kinds):
    """The steps, in the order of their starts. Each kind comes once before chance decides."""
    generator = random.Random(seed)
    count = max(1, round(seconds * STEPS_A_SECOND))
    chosen = sorted(kinds, key=lambda kind: kind.name)
    generator.shuffle(chosen)
    chosen = chosen[:count]
    weights = [kind.weight for kind in sorted(kinds, key=lambda kind: kind.name)]
    while len(chosen) < count:
        chosen += generator.choices(sorted(kinds, key=lambda kind: kind.name), weights)
    steps = []
    for kind in chosen:
        longest = min(kind.longest, max(kind.shortest, seconds / 4))
        part = PART_WITH_DEATHS if kind.ends_a_process else 1
        lasts = generator.uniform(kind.shortest, longest)
        start = generator.uniform(0, max(0, seconds * part - lasts))
        steps.append(Step(round(start, 3), kind.name, kind.resource, round(lasts, 3),
                          generator.getrandbits(32)))
    return one_at_a_time(sorted(steps, key=lambda step: (step.start, step.seed)), kinds, seconds)


def one_at_a_time(steps, kinds, seconds):
    """Puts off what would overlap with an earlier step that needs the same, or leaves it out where
    there is no time for it any more."""
    parts = {kind.name: PART_WITH_DEATHS if kind.ends_a_process else 1 for kind in kinds}
    free_at = {}
    kept = []
    for step in steps:
        if step.resource is not None:
            start = max(step.start, free_at.get(step.resource, 0))
            step = replace(step, start=start)
            if start + step.seconds > max(step.seconds, seconds * parts[step.kind]):
                continue
            free_at[step.resource] = start + step.seconds
        kept.append(step)
    return sorted(kept, key=lambda step: (step.start, step.seed))
