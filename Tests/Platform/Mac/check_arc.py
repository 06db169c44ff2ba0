"""Compiles every Objective-C++ source of the product with automatic reference counting, as Apple's
builds do; the programs of the tests are built without.

    check_arc.py SOURCE_FOLDER COMPILER FLAG...
"""

import subprocess
import sys
from pathlib import Path

source = Path(sys.argv[1])
command = sys.argv[2:] + ["-x", "objective-c++", "-fsyntax-only", "-Werror", "-fobjc-arc",
                          "-fobjc-runtime=gnustep-2.0"]
files = sorted(file for folder in ("Source", "Packaging") for file in (source / folder).rglob("*.mm"))
failed = [file for file in files
          if subprocess.run([*command, str(file)], check=False).returncode != 0]
print(f"{len(files) - len(failed)} of {len(files)} sources compile")
sys.exit(1 if failed or not files else 0)
