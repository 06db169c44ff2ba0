"""Badges, menus, pushes and observation in Caja itself."""

from file_manager_tests import InTheFileManager, OfAnotherTime, OfEveryKind, TwoWindows, main
from file_managers import CAJA

if __name__ == "__main__":
    main(CAJA, InTheFileManager, OfEveryKind, OfAnotherTime, TwoWindows)
