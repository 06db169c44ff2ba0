"""What a storm does follows from its seed alone, and no two steps that need the same overlap."""

import os
import subprocess
import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "EndToEnd"))
os.environ.setdefault("CORVID_BIN_DIR", "/nowhere")  # nothing is started
import disturbances  # noqa: E402
import names  # noqa: E402
import storm  # noqa: E402
from schedule import PART_WITH_DEATHS, schedule  # noqa: E402
from story import Story  # noqa: E402

KINDS = [one.kind for one in disturbances.KINDS.values()]
PRINT = "import test_schedule; print(test_schedule.plan(7, 60))"


def plan(seed, seconds):
    return [str((step.start, step.kind, step.seconds, step.seed))
            for step in schedule(seed, seconds, KINDS)]


class Schedule(unittest.TestCase):
    def test_same_seed_same_storm(self):
        self.assertEqual(plan(1, 60), plan(1, 60))
        self.assertNotEqual(plan(1, 60), plan(2, 60))
        # In another process too, whose texts and sets have other hashes and another order.
        said = {subprocess.run([sys.executable, "-c", PRINT], cwd=Path(__file__).parent, text=True,
                               env={**os.environ, "PYTHONHASHSEED": hash_seed}, check=True,
                               stdout=subprocess.PIPE).stdout for hash_seed in ("1", "2", "3")}
        self.assertEqual(said, {f"{plan(7, 60)}\n"})

    def test_no_two_steps_need_the_same(self):
        ends_a_process = {kind.name for kind in KINDS if kind.ends_a_process}
        for seed in range(50):
            for seconds in (5, 60, 600):
                free_at = {}
                steps = schedule(seed, seconds, KINDS)
                self.assertEqual([step.start for step in steps],
                                 sorted(step.start for step in steps))
                for step in steps:
                    self.assertGreaterEqual(step.start, 0)
                    part = PART_WITH_DEATHS if step.kind in ends_a_process else 1
                    self.assertLessEqual(step.start + step.seconds,
                                         max(step.seconds, seconds * part) + 0.01, step)
                    if step.resource is not None:
                        self.assertGreaterEqual(step.start, free_at.get(step.resource, 0))
                        free_at[step.resource] = step.start + step.seconds

    def test_every_kind_comes(self):
        for seed in range(50):
            self.assertEqual({step.kind for step in schedule(seed, 600, KINDS)},
                             {kind.name for kind in KINDS})

    def test_kept_seeds_are_numbers(self):
        self.assertTrue(all(seconds > 0 for seconds, _ in storm.kept_seeds()))


class StoryOfClicks(unittest.TestCase):
    def setUp(self):
        self.story = Story(unasked=set())
        self.life = self.story.host_began()

    def click(self, path, outcome=0):
        self.story.clicked(path, extension=1)
        self.story.confirmed(path, outcome)

    def test_confirmed_and_never_came(self):
        self.click(b"a")
        self.assertRegex(self.story.faults_of_clicks()[0], "never came")
        self.story.arrived(self.life, b"a")
        self.assertEqual(self.story.faults_of_clicks(), [])

    def test_came_twice_even_at_two_hosts(self):
        self.click(b"a")
        self.story.arrived(self.life, b"a")
        self.story.host_ended(self.life)
        self.story.arrived(self.story.host_began(), b"a")
        self.assertRegex(self.story.faults_of_clicks()[0], "2 times")

    def test_lost_with_its_host(self):
        self.click(b"a")
        self.story.host_ended(self.life)
        self.assertEqual(self.story.faults_of_clicks(), [])
        # Not one before another that the same host has seen.
        self.click(b"b")
        self.story.arrived(self.life, b"b")
        self.assertRegex(self.story.faults_of_clicks()[0], "b'a'.*never came")

    def test_not_confirmed_may_come_or_not(self):
        self.click(b"a", outcome=3)
        self.click(b"b", outcome=3)
        self.story.arrived(self.life, b"b")
        self.assertEqual(self.story.faults_of_clicks(), [])

    def test_of_nobody(self):
        self.story.arrived(self.life, b"a")
        self.assertRegex(self.story.faults_of_clicks()[0], "nobody clicked")


class Names(unittest.TestCase):
    def test_each_is_one_component(self):
        for name in names.odd_names():
            self.assertLessEqual(len(name), 255)
            self.assertFalse(b"/" in name or b"\0" in name or name in (b"", b".", b".."), name)
        self.assertEqual(len(set(names.odd_names())), len(names.odd_names()))


if __name__ == "__main__":
    unittest.main()
