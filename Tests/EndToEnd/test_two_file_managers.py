"""Caja and Nemo at once, on the same folder."""

from file_manager_tests import FileManagerCase, main
from file_managers import CAJA, NEMO
from desktop import skip
from gtk4_window import open_window


class TwoFileManagers(FileManagerCase):
    def test_one_leaves_and_the_other_keeps_its_badges(self):
        self.world.commit("a.txt", "b.txt")
        host = self.world.host()
        caja = self.open()
        self.wait_for_badges(caja, {"a.txt": "synced", "b.txt": "synced"})
        nemo = open_window(self.desktop, NEMO, self.world)
        self.addCleanup(nemo.close)
        try:
            self.desktop.side_by_side(2)
        except AssertionError as problem:
            raise AssertionError(f"{problem}; {caja.said()}; {nemo.said()}") from None
        for window in caja, nemo:
            self.wait_for_badges(window, {"a.txt": "synced", "b.txt": "synced"})
        self.assertEqual(set(self.world.status()["frontEnds"]), {"Caja", "Nemo", "corvid"})
        self.world.change("a.txt")
        for window in caja, nemo:
            self.wait_for_badges(window, {"a.txt": "inProgress", "b.txt": "synced"})
        # It leaves without a word.
        nemo.process.kill()
        nemo.process.wait()
        self.desktop.side_by_side(1)
        self.world.change("b.txt")
        self.wait_for_badges(caja, {"a.txt": "inProgress", "b.txt": "inProgress"})
        self.assertEqual(set(self.world.status()["frontEnds"]), {"Caja", "corvid"})
        host.wait_for("shown", folder=str(self.world.volume))
        self.assertEqual([one["event"] for one in host.passed_over
                          if one["event"] in ("shown", "hidden")], [])
        self.desktop.key("w", "Control_L")
        host.wait_for("hidden", folder=str(self.world.volume))


if __name__ == "__main__":
    if reason := NEMO.missing():
        skip(reason)
    main(CAJA, TwoFileManagers)
