#!/usr/bin/env python3
"""Prints each link of the documents that leads to no file, and exits 1 when there is one."""

import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
LINK = re.compile(r"\]\(([^)#\s]+)(?:#[^)]*)?\)")


def main():
    found = False
    documents = subprocess.run(["git", "ls-files", "*.md"], cwd=ROOT, stdout=subprocess.PIPE,
                               text=True, check=True).stdout.splitlines()
    for document in documents:
        for number, line in enumerate((ROOT / document).read_text().splitlines(), 1):
            for target in LINK.findall(line):
                if "://" in target or ((ROOT / document).parent / target).exists():
                    continue
                found = True
                print(f"{document}:{number}: no file {target}", file=sys.stderr)
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
