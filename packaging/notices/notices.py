#!/usr/bin/env python3
"""notices.py linux|windows SOURCES FILE: writes the licences of what is inside our files.

The texts are those of Debian's packages, whose headers and libraries are compiled in, and of the source
packages in the folder SOURCES.
"""
import re, sys
from pathlib import Path

from components import ONLY_LICENCE, SOURCE, inside, version

SYSTEM, SOURCES, TARGET = sys.argv[1], Path(sys.argv[2]), Path(sys.argv[3])
DOCUMENTS = Path("/usr/share/doc")
COMMON = Path("/usr/share/common-licenses")

def licence(component):
    folder = SOURCES / component.package / "debian" if component.origin == SOURCE \
        else DOCUMENTS / component.package
    text = (folder / "copyright").read_text("utf-8")
    head = ONLY_LICENCE.get(component.package)
    if head is None:
        return text
    # The paragraph of a DEP-5 file that has the text: its lines begin with a blank, and "." is empty.
    at = text.index(head)
    begin, end = text.rindex("\n\n", 0, at) + 2, text.find("\n\n", at)
    return text[begin:end if end >= 0 else None]


def section(heading, line, text):
    rule = "=" * 80
    return f"{rule}\n{heading}\n{line}\n{rule}\n\n{text.strip()}\n"


# Debian's files name texts that every Debian has in a folder: they have to come along.
def named_texts(text):
    names = sorted(set(re.findall(rf"{COMMON}/([A-Za-z]+(?:-[0-9.]*[0-9])?)", text)))
    return [section(name, "licence, as named above", (COMMON / name).read_text("utf-8"))
            for name in names]


parts = [f"""Tarvik D-PDU: third-party notices for {SYSTEM.capitalize()}

The files of this product contain parts of the projects below, under licences of their own.
"""]
for component in inside(SYSTEM):
    heading = component.name + (f" ({component.remark})" if component.remark else "")
    parts.append(section(heading, f"version {version(component, SOURCES)}; in: {component.users}",
                         licence(component)))
parts += named_texts("\n".join(parts))
TARGET.parent.mkdir(parents=True, exist_ok=True)
TARGET.write_text("\n".join(parts), "utf-8", newline="\r\n" if SYSTEM == "windows" else "\n")
