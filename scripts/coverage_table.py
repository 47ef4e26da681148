#!/usr/bin/env python3
"""scripts/coverage_table.py SUMMARY.json: prints gcovr's summary as a table by folder of src."""

import json
import os
import sys
from collections import Counter

KINDS = ("line", "branch", "function")


def percent(counts, kind):
    total = counts[kind + "_total"]
    covered = counts[kind + "_covered"]
    # Cut, not rounded: 100.0 means all.
    share = f"{covered * 1000 // total / 10:.1f} %" if total else "-"
    return f"{share} ({covered} of {total})"


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        files = json.load(file)["files"]
    folders = {}
    for entry in files:
        folder = os.path.dirname(entry["filename"]).removesuffix("/posix")
        for name in (folder, "all of src"):
            counts = folders.setdefault(name, Counter())
            for kind in KINDS:
                for part in ("_total", "_covered"):
                    counts[kind + part] += entry[kind + part]

    whole = folders.pop("all of src")
    print("| folder | lines | branches | functions |")
    print("|---|---|---|---|")
    for name, counts in sorted(folders.items()) + [("all of src", whole)]:
        print(f"| {name} | " + " | ".join(percent(counts, kind) for kind in KINDS) + " |")


if __name__ == "__main__":
    main()
