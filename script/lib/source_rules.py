#!/usr/bin/env python3
"""Rules on the text of source files that no compiler checks. Prints each breach, and exits 1 when
there is one."""

import re
import sys
from pathlib import Path

sys.dont_write_bytecode = True
import layers  # noqa: E402

# Folders that name no operating system: they are told of it through Platform/Interfaces.
PORTABLE = ("Source/Core/", "Source/Platform/Interfaces/", "Source/Extensions/Finder/")
MAC_SHELL = "Source/Extensions/Finder/Mac/"
SYSTEM_HEADER = re.compile(
    r"^\s*#\s*(?:include|import)\s*<(?:sys/|linux/|mach/|net/|netinet/|arpa/|dispatch/|"
    r"CoreFoundation/|Foundation/|AppKit/|(?:unistd|fcntl|poll|signal|pthread|pwd|grp|dirent|"
    r"dlfcn|errno|sched|spawn|termios|syslog|time)\.h)")
CORE_INPUT_OUTPUT = re.compile(
    r"^\s*#\s*include\s*<(?:filesystem|fstream|iostream|thread|csignal|ctime)>|_clock::now\s*\(")
SYSTEM_CONDITION = re.compile(
    r"^\s*#\s*(?:if|ifdef|ifndef|elif)\b.*"
    r"\b(?:__APPLE__|__linux__|__linux|__unix__|__FreeBSD__|_WIN32|__has_include|TARGET_OS_\w+)\b")
LEFT_OVER = re.compile(r"\b(?:TO" + r"DO|FIX" + r"ME|XXX)\b")
SLEEP = re.compile(r"\b(?:sleep_for|sleep_until|usleep|nanosleep)\s*\(|(?<![\w.:>])sleep\s*\(")

# Where the passing of time is what is tested, not what is waited for.
SLEEPERS = {
    "Tests/App/Logging/LogDurabilityTest.cpp": "nothing wakes up while time passes",
    "Tests/Platform/Unix/PortPeer.cpp": "a peer that is slow on purpose",
}


def breaches(path):
    name = str(path)
    portable = name.startswith(PORTABLE) and not name.startswith(MAC_SHELL)
    text = (layers.ROOT / path).read_text(errors="replace")
    if path.suffix == ".h" and "#pragma once" not in text:
        yield 1, "a header starts with #pragma once"
    for number, line in enumerate(text.splitlines(), 1):
        if portable and SYSTEM_HEADER.search(line):
            yield number, "a header of the operating system in a portable layer"
        if name.startswith("Source/Core/") and CORE_INPUT_OUTPUT.search(line):
            yield number, "Core has no clock, no thread and no input or output"
        if (SYSTEM_CONDITION.search(line) and not name.startswith("Source/Platform/")
                and not name.startswith(MAC_SHELL)):
            yield number, "a condition on the system; let the build choose a file instead"
        if LEFT_OVER.search(line):
            yield number, "unfinished work belongs into the tracker"
        if name.startswith("Tests/") and name not in SLEEPERS and SLEEP.search(line):
            yield number, "a test waits for events, it does not sleep"


def main():
    found = False
    folders = ("Source", "Tools", "Tests", "Fuzzers", "Benchmarks", "examples")
    for path in layers.source_files(*folders):
        for number, reason in breaches(path):
            found = True
            print(f"{path}:{number}: {reason}", file=sys.stderr)
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
