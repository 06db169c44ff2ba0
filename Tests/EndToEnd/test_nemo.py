"""Badges, menus, pushes and observation in Nemo itself."""

from file_manager_tests import (InTheFileManager, OfAnotherTime, OfEveryKind, TwoWindows,
                                WhileTheHostHangs, main)
from file_managers import NEMO

if __name__ == "__main__":
    main(NEMO, InTheFileManager, OfEveryKind, OfAnotherTime, TwoWindows,
         WhileTheHostHangs)
