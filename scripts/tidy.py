#!/usr/bin/env python3
"""scripts/tidy.py BUILD-FOLDER: runs clang-tidy on every file of the folder's compile_commands.json.

A file that passed is not read again until its text, a header or the checks change. JOBS is how many
run at a time. Fails if there is a finding.
"""

import concurrent.futures
import hashlib
import json
import os
import shlex
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
# Files that include others are made by CMake.
CHECKS = "-bugprone-suspicious-include"
# The speed of tools and tests does not matter.
CHECKS_OF_TOOLS = CHECKS + ",-performance-*"
# What an assertion of a test does is dozens of paths, which the static analyser follows for minutes.
# Long expected lines are split in lists of them on purpose. Every check looks at all of GoogleTest and
# the standard library again, so tests are spared those that take long and seldom find anything there.
CHECKS_OF_TESTS = CHECKS_OF_TOOLS + "".join(",-" + check for check in (
    "clang-analyzer-*", "bugprone-suspicious-missing-comma", "bugprone-stringview-nullptr",
    "bugprone-unused-return-value", "bugprone-suspicious-string-compare",
    "bugprone-undelegated-constructor", "bugprone-implicit-widening-of-multiplication-result",
    "bugprone-multiple-statement-macro", "bugprone-suspicious-semicolon",
    "bugprone-assert-side-effect", "misc-unused-using-decls", "readability-redundant-*"))


def text_of(entry):
    """What the compiler reads: comments too, since they can switch a check off."""
    words = shlex.split(entry["command"])
    words[0] = "clang++" if words[0].endswith("++") else "clang"
    words = [word for word in words if not word.startswith("--param")]
    words[words.index("-o") + 1] = "-"
    words[words.index("-c")] = "-E"
    return subprocess.run(words + ["-C", "-w"], cwd=entry["directory"], check=True,
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout


def check(folder, passed, version, entry):
    checks = CHECKS
    if "/tools/" in entry["file"]:
        checks = CHECKS_OF_TOOLS
    elif "/tests/" in entry["file"]:
        checks = CHECKS_OF_TESTS
    key = hashlib.sha256((ROOT / ".clang-tidy").read_bytes() + checks.encode() + version)
    try:
        key.update(text_of(entry))
    except subprocess.CalledProcessError:
        key = None  # clang-tidy reports what is wrong
    stamp = passed / key.hexdigest() if key else None
    if stamp and stamp.exists():
        return True, ""
    # The build reports the compiler's own warnings.
    result = subprocess.run(["clang-tidy", "-p", folder, "--quiet", "--extra-arg=-Wno-everything",
                             "--checks=" + checks, entry["file"]],
                            check=False, text=True, stdout=subprocess.PIPE,
                            stderr=subprocess.DEVNULL)
    if result.returncode == 0 and stamp:
        stamp.touch()
    return result.returncode == 0, result.stdout


def main():
    folder = Path(sys.argv[1])
    entries = json.loads((folder / "compile_commands.json").read_text(encoding="utf-8"))
    # Each file once; the longest first.
    entries = list({entry["file"]: entry for entry in entries}.values())
    entries.sort(key=lambda entry: "websocket_beast" not in entry["file"])
    passed = folder / "tidy-passed"
    passed.mkdir(exist_ok=True)
    version = subprocess.run(["clang-tidy", "--version"], check=True,
                             stdout=subprocess.PIPE).stdout
    good = True
    with concurrent.futures.ThreadPoolExecutor(int(os.environ.get("JOBS", "2"))) as pool:
        for passes, output in pool.map(lambda entry: check(folder, passed, version, entry), entries):
            good = good and passes
            if not passes:
                print(output, flush=True)
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
