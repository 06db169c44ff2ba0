#!/usr/bin/env python3
"""How long `corvid explain --json -` takes for 100,000 lines, its start included."""

import json
import subprocess
import sys
import time

LINES = 100_000
ROUNDS = 1 if "--quick" in sys.argv else 5

with open("@PROJECT_SOURCE_DIR@/Tests/Data/strings.jsonl", encoding="utf-8") as data:
    texts = [json.loads(line)["in"] for line in data]
lines = "".join(json.dumps(f"file:///Volumes/Corvid/Folder{i % 100}/{texts[i % len(texts)]}") + "\n"
                for i in range(LINES)).encode()
best = None
for _ in range(ROUNDS):
    begun = time.perf_counter()
    run = subprocess.run(["@CMAKE_RUNTIME_OUTPUT_DIRECTORY@/corvid", "explain", "--json", "-"],
                         input=lines, stdout=subprocess.PIPE, check=True)
    elapsed = time.perf_counter() - begun
    best = elapsed if best is None else min(best, elapsed)
    if run.stdout.count(b"\n") != LINES:
        sys.exit("explain_benchmark: a line was not answered")
print(json.dumps({"name": "explain_json_100k_lines_s", "value": best, "unit": "s", "goal": 3,
                  "better": "lower"}), flush=True)
