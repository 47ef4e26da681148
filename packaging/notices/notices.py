#!/usr/bin/env python3
"""notices.py linux|windows SOURCES FILE: writes the licences of what is inside our files.

The texts are those of Debian's packages, whose headers and libraries are compiled in, and of the source
packages in the folder SOURCES.
"""
import re, subprocess, sys
from pathlib import Path

SYSTEM, SOURCES, TARGET = sys.argv[1], Path(sys.argv[2]), Path(sys.argv[3])
DOCUMENTS = Path("/usr/share/doc")
COMMON = Path("/usr/share/common-licenses")

# Name, what contains it, Debian package or source package, systems. A third-party library that is linked
# or compiled in gets a row here.
PACKAGE, SOURCE = "package", "source"
COMPONENTS = [
    ("json-c", "library, dpdu", SOURCE, "json-c", "linux windows"),
    ("Mbed TLS", "library, dpdu", SOURCE, "mbedtls", "linux windows"),
    ("Expat", "dpdu", SOURCE, "expat", "windows"),
    ("OpenSSL", "library, simulators", PACKAGE, "libssl-dev", "linux"),
    ("Boost (Beast, Asio and what they need)", "library", PACKAGE, "libboost1.74-dev", "linux"),
    ("sdbus-c++ (headers; the library itself is loaded when Bluetooth is on)", "library", PACKAGE,
     "libsdbus-c++-dev", "linux"),
    ("CLI11", "dpdu, simulators", PACKAGE, "libcli11-dev", "linux windows"),
    ("JSON for Modern C++", "dpdu, simulators", PACKAGE, "nlohmann-json3-dev", "linux windows"),
    ("MinGW-w64 with winpthreads", "library, dpdu", PACKAGE, "mingw-w64-x86-64-dev", "windows"),
    ("libstdc++ and libgcc of GCC", "library, dpdu", PACKAGE, "gcc-mingw-w64-x86-64-posix-runtime",
     "windows"),
]
# Of Boost, the one licence of the libraries that are used; Debian's file has those of all others too.
ONLY_LICENCE = {"libboost1.74-dev": "Boost Software License - Version 1.0"}


def version(kind, package):
    if kind == PACKAGE:
        return subprocess.run(["dpkg-query", "-W", "-f", "${Version}", package], check=True,
                              capture_output=True, text=True).stdout
    changelog = (SOURCES / package / "debian" / "changelog").read_text("utf-8")
    return changelog.split("(", 1)[1].split(")", 1)[0]


def licence(kind, package):
    folder = SOURCES / package / "debian" if kind == SOURCE else DOCUMENTS / package
    text = (folder / "copyright").read_text("utf-8")
    head = ONLY_LICENCE.get(package)
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
for name, user, kind, package, systems in COMPONENTS:
    if SYSTEM in systems.split():
        parts.append(section(name, f"version {version(kind, package)}; in: {user}",
                             licence(kind, package)))
parts += named_texts("\n".join(parts))
TARGET.parent.mkdir(parents=True, exist_ok=True)
TARGET.write_text("\n".join(parts), "utf-8", newline="\r\n" if SYSTEM == "windows" else "\n")
