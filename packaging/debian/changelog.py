#!/usr/bin/env python3
"""changelog.py CHANGELOG.md VERSION REVISION: prints debian/changelog.

Each entry of CHANGELOG.md is one of the package's. The newest must be of VERSION, which is the
project's; REVISION is its Debian revision.
"""

import datetime
import re
import sys
import textwrap

MAINTAINER = "Tarvik <packages@tarvik.example.com>"  # as in control
ENTRY = re.compile(r"^## \[(?P<version>[0-9.]+)\] - (?P<date>\d{4}-\d{2}-\d{2})$")


def entries(text):
    """Yields (version, date, items) in the order of the file."""
    version = date = None
    items = []
    for line in text.splitlines():
        match = ENTRY.match(line)
        if line.startswith("## ") or re.match(r"^\[[^]]+\]: ", line):
            if version:
                yield version, date, items
            version = match and match["version"]
            date = match and match["date"]
            items = []
        elif line.startswith("- "):
            items.append(line[2:].strip())
        elif line.startswith("  ") and items:
            items[-1] += " " + line.strip()
    if version:
        yield version, date, items


def paragraph(version, revision, date, items):
    lines = [f"tarvik-dpdu ({version}-{revision}) unstable; urgency=medium", ""]
    for item in items:
        lines += textwrap.wrap(
            item.replace("`", ""), width=79, initial_indent="  * ", subsequent_indent="    ",
            break_long_words=False, break_on_hyphens=False)
    day = datetime.datetime.strptime(date, "%Y-%m-%d")
    lines += ["", f" -- {MAINTAINER}  {day:%a, %d %b %Y} 00:00:00 +0000", ""]
    return "\n".join(lines)


def main():
    path, project_version, revision = sys.argv[1:]
    with open(path, encoding="utf-8") as file:
        found = list(entries(file.read()))
    newest = found[0][0] if found else "none"
    if newest != project_version:
        sys.exit(f"changelog.py: {path}: the newest version is {newest}, but the project's is "
                 f"{project_version}; describe it there")
    for index, (version, date, items) in enumerate(found):
        if not items:
            sys.exit(f"changelog.py: {path}: nothing is listed for {version}")
        print(paragraph(version, revision if index == 0 else "1", date, items))


if __name__ == "__main__":
    main()
