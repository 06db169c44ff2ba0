"""A host application, the extension and front ends, each a process of its own."""

import json
import signal
import unicodedata
import unittest

from world import World


class Conversation(unittest.TestCase):
    def setUp(self):
        self.world = World()
        self.addCleanup(self.world.close)
        self.world.commit("a.txt", "b.txt", "folder/c.txt")

    def start_all(self):
        host = self.world.host()
        extension = self.world.start("corvid-finder-ext")
        host.wait_for("extension", open=True)
        return host, extension

    def test_every_part_in_one_conversation(self):
        host, extension = self.start_all()
        watch = self.world.watch()
        self.assertEqual(watch.badges, {"a.txt": "synced", "b.txt": "synced", "folder": "synced"})
        host.wait_for("shown", folder=str(self.world.volume))
        self.world.change("a.txt")
        watch.wait_for("push", name="a.txt", badge="inProgress")
        menu = json.loads(self.world.run("corvid", "menu", "a.txt", "--json"))
        self.assertIn("Stage", [entry["title"] for entry in menu["entries"]])
        self.world.run("corvid", "do", "a.txt", "--item", "Stage")
        action = host.wait_for("action")
        self.assertEqual(action["title"], "Stage")
        self.assertEqual(action["paths"], [str(self.world.volume / "a.txt")])
        watch.wait_for("push", name="a.txt", badge="finishedTransfer")
        watch.end()
        host.wait_for("hidden", folder=str(self.world.volume))
        self.assertEqual(extension.end(), 0)
        host.wait_for("extension", open=False)
        self.assertEqual(host.end(), 0)
        self.assertEqual(self.world.ports(), [])

    def test_host_killed_and_started_again(self):
        host, extension = self.start_all()
        watch = self.world.watch()
        host.end(signal.SIGKILL)
        for name in watch.badges:
            watch.wait_for("push", badge="cloud")
        self.assertEqual(set(self.world.badges().values()), {"cloud"})
        host = self.world.host()
        host.wait_for("shown", folder=str(self.world.volume))
        for name in watch.badges:
            watch.wait_for("push", badge="synced")
        self.world.change("b.txt")
        watch.wait_for("push", name="b.txt", badge="inProgress")
        self.assertEqual(self.world.status()["extension"]["pid"], extension.process.pid)

    def test_host_started_last(self):
        extension = self.world.start("corvid-finder-ext")
        extension.wait_for("line")
        watch = self.world.watch()
        self.assertEqual(set(watch.badges.values()), {"cloud"})
        host = self.world.host()
        host.wait_for("shown", folder=str(self.world.volume))
        for name in watch.badges:
            watch.wait_for("push", badge="synced")
        self.assertIsNone(extension.process.poll())

    def test_extension_killed(self):
        host, extension = self.start_all()
        watch = self.world.watch()
        extension.end(signal.SIGKILL)
        host.wait_for("extension", open=False)
        # The front end starts another one, and shows the folder there.
        host.wait_for("extension", open=True)
        host.wait_for("shown", folder=str(self.world.volume))
        self.world.change("a.txt")
        watch.wait_for("push", name="a.txt", badge="inProgress")
        self.assertNotEqual(self.world.status()["extension"]["pid"], extension.process.pid)

    def test_two_front_ends_show_one_folder_and_one_leaves(self):
        host, _ = self.start_all()
        first = self.world.watch()
        second = self.world.watch()
        first.end()
        self.world.change("a.txt")
        second.wait_for("push", name="a.txt", badge="inProgress")
        second.end()
        host.wait_for("hidden", folder=str(self.world.volume))
        host.end()
        seen = [event["event"] for event in host.events_until_end()]
        self.assertEqual(seen.count("shown"), 1)
        self.assertNotIn("hidden", seen)

    def test_host_hangs_and_goes_on(self):
        host, _ = self.start_all()
        watch = self.world.watch()
        host.process.send_signal(signal.SIGSTOP)
        text = self.world.run("corvid", "menu", "a.txt", status=3)
        self.assertIn("did not answer", text)
        watch.wait_for("state", host="notAnswering")
        status = self.world.status()
        self.assertEqual(status["host"]["state"], "notAnswering")
        self.assertIn("requestActions", status["lastFailure"]["text"])
        host.process.send_signal(signal.SIGCONT)
        self.world.change("a.txt")
        watch.wait_for("push", name="a.txt", badge="inProgress")
        self.world.run("corvid", "menu", "a.txt")
        self.assertEqual(self.world.status()["host"]["state"], "present")

    def test_one_instance_a_user(self):
        extension = self.world.start("corvid-finder-ext")
        extension.wait_for("line", text=f"Serving the volume {self.world.volume}.")
        self.world.run("corvid", "ls", "--no-start")
        self.world.run("corvid-finder-ext")
        other = self.world.scratch / "other"
        other.mkdir()
        text = self.world.run("corvid-finder-ext", "--volume", other, status=1)
        self.assertIn(str(other), text)
        self.assertIn(str(self.world.volume), text)
        self.assertEqual(extension.end(signal.SIGINT), 0)

    def test_host_and_extension_disagree(self):
        other = self.world.scratch / "other"
        other.mkdir()
        extension = self.world.start("corvid-finder-ext", "--volume", other)
        extension.wait_for("line")
        text = self.world.run("corvid-host", "git", self.world.volume, status=1)
        self.assertIn(str(other), text)
        self.assertIn(str(self.world.volume), text)
        extension.end()
        self.world.host()
        text = self.world.run("corvid-finder-ext", "--volume", other, status=1)
        self.assertIn(str(other), text)
        self.assertIn(str(self.world.volume), text)

    def test_extension_follows_the_folder_that_a_host_names(self):
        elsewhere = self.world.scratch / "elsewhere"
        self.world.volume.rename(elsewhere)
        self.world.volume = elsewhere
        extension = self.world.start("corvid-finder-ext")
        extension.wait_for("line")
        host = self.world.host()
        host.wait_for("extension", open=True)
        self.assertEqual(self.world.badges()["a.txt"], "synced")
        self.assertEqual(self.world.status()["volume"]["folder"], str(elsewhere))
        self.assertIsNone(extension.process.poll())
        # And whoever shows that folder has its badges again when the volume was another meanwhile.
        watch = self.world.watch()
        host.end()
        other = self.world.scratch / "other"
        other.mkdir()
        rules = self.world.scratch / "rules"
        rules.write_text("badge ** synced\n", encoding="utf-8")
        host = self.world.start("corvid-host", "rules", rules, other, "--json")
        watch.wait_for("push", name="a.txt", badge="none")
        watch.wait_for("state", volume=str(other), host="present")
        host.end()
        self.world.host()
        watch.wait_for("push", name="a.txt", badge="synced")

    def test_names(self):
        names = ["blank in it", "percent%41", "hash#", "line\nbreak", "back\\slash", "🐦",
                 unicodedata.normalize("NFC", "Größe"), unicodedata.normalize("NFD", "é")]
        self.world.commit(*names, b"not\xffutf8")
        host, _ = self.start_all()
        badges = self.world.badges()
        for name in names:
            self.assertEqual(badges[name], "synced", name)
        self.assertEqual(badges["not\ufffdutf8"], "none")
        for name in names:
            self.world.run("corvid", "do", name, "--item", "Copy > Path", status=0)
            self.assertEqual(host.wait_for("action")["paths"], [str(self.world.volume / name)])

    def test_words_for_people(self):
        text = self.world.run("corvid", "ls", "--no-start", status=1)
        self.assertIn("The extension is not running", text)
        # Without --no-start it is started; without a host all is still listed.
        self.assertEqual(set(self.world.badges().values()), {"cloud"})
        self.assertIn("No host application is running", self.world.run("corvid", "status", status=3))
        text = self.world.run("corvid", "menu", "a.txt", status=3)
        self.assertIn("No host application is running", text)
        self.assertIn("is not on the volume", self.world.run("corvid", "ls", "/", status=1))
        self.assertIn("No such file", self.world.run("corvid", "menu", "missing", status=1))
        self.world.run("corvid", "do", "a.txt", status=2)
        self.world.host()
        text = self.world.run("corvid", "do", "a.txt", "--item", "Fly", status=1)
        self.assertIn("There is no menu entry \"Fly\" here", text)


if __name__ == "__main__":
    unittest.main()
