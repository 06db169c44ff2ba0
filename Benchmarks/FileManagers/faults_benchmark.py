#!/usr/bin/python3
"""How long Caja's main loop pauses when those fail that it gets its badges and menus from, and how
soon badges are right again: the figures of its tests."""

import os
import sys
import unittest

os.environ["CORVID_BIN_DIR"] = "@CMAKE_RUNTIME_OUTPUT_DIRECTORY@"
os.environ["CORVID_FLOOD_SECONDS"] = "2" if "--quick" in sys.argv else "10"
sys.path.insert(0, "@PROJECT_SOURCE_DIR@/Tests/EndToEnd")
sys.dont_write_bytecode = True

import test_caja_faults  # noqa: E402
from desktop import Desktop  # noqa: E402


def main():
    case = test_caja_faults.WhenThingsFail
    case.manager, case.desktop = test_caja_faults.CAJA, Desktop()
    case.slack = float("inf")
    result = unittest.TextTestRunner().run(unittest.defaultTestLoader.loadTestsFromTestCase(case))
    case.desktop.close()
    for name, (value, unit, goal) in case.figures.items():
        goal = "null" if goal is None else goal
        print(f'{{"name": "{name}", "value": {value:.4g}, "unit": "{unit}", "goal": {goal}, '
              '"better": "lower"}')
    sys.exit(not result.wasSuccessful())


main()
