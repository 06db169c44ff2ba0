"""Badges, menus, pushes and observation in Nautilus itself."""

from file_manager_tests import (InTheFileManager, OfAnotherTime, OfEveryKind, TwoWindows,
                                WhileTheHostHangs, main)
from file_managers import NAUTILUS

if __name__ == "__main__":
    main(NAUTILUS, InTheFileManager, OfEveryKind, OfAnotherTime, TwoWindows, WhileTheHostHangs)
