#!/usr/bin/env python3
"""notices_test.py SOURCE-FOLDER linux|windows FILE: the notices have the licence of all that is inside."""
import re, sys
from pathlib import Path

SOURCE, SYSTEM, NOTICES = Path(sys.argv[1]), sys.argv[2], Path(sys.argv[3]).read_text("utf-8")

# What cmake/TarvikDependencies.cmake imports, by its heading in the notices and a line of its licence;
# None: only tests have it.
IMPORTED = {
    "json_c": ("json-c", "Permission is hereby granted"),
    "mbedcrypto": ("Mbed TLS", "Apache"),
    "cli11": ("CLI11", "Redistribution and use"),
    "nlohmann_json": ("JSON for Modern C++", "Permission is hereby granted"),
    "crypto": ("OpenSSL", "Apache"),
    "ssl": ("OpenSSL", "Apache"),
    "expat": ("Expat", "Permission is hereby granted"),
    "gtest": None, "gmock": None, "gtest_main": None,
}
# Found by the compiler or linker itself.
OTHERS = {
    "linux": [("Boost", "Boost Software License"), ("sdbus-c++", "LGPL")],
    "windows": [("MinGW-w64", "Permission is hereby granted"), ("libstdc++", "GCC Runtime Library Exception"),
                ("winpthreads", "Permission is hereby granted")],
}
# Shared on Linux, and only Linux has OpenSSL.
ABSENT = {"linux": {"Expat"}, "windows": {"OpenSSL"}}

cmake = (SOURCE / "cmake" / "TarvikDependencies.cmake").read_text("utf-8")
imported = re.findall(r"^\s*tarvik_import_\w+\((\w+)", cmake, re.MULTILINE)
faults = [f"{name} is imported, but this test does not know its notice"
          for name in imported if name not in IMPORTED]
expected = [IMPORTED[name] for name in imported if IMPORTED.get(name)] + OTHERS[SYSTEM]

rule = "=" * 80
sections = re.findall(rf"^{rule}\n([^\n]*)\n((?:version|licence)[^\n]*)\n{rule}\n(.*?)(?=^{rule}\n|\Z)", NOTICES,
                      re.MULTILINE | re.DOTALL)
for name, licence in expected:
    if name in ABSENT[SYSTEM]:
        continue
    found = [section for section in sections if name in section[0]]
    if len(found) != 1:
        faults.append(f"{name} has {len(found)} notices")
    elif licence not in found[0][2]:
        faults.append(f"the notice of {name} does not have its licence")
    elif not re.match(r"version \d\S*; in: \w", found[0][1]):
        faults.append(f"{name} has no version: {found[0][1]}")
# Texts that Debian's files only name, as in "/usr/share/common-licenses/Apache-2.0".
whole = {section[0]: section[2] for section in sections if section[1].startswith("licence")}
for name in re.findall(r"/usr/share/common-licenses/([A-Za-z]+(?:-[0-9.]*[0-9])?)", NOTICES):
    if len(whole.get(name, "")) < 1000:
        faults.append(f"the text of {name} is named, but not there")
if "TERMS AND CONDITIONS FOR USE" not in whole.get("Apache-2.0", ""):
    faults.append("the Apache licence of Mbed TLS is not there as a whole")
for name in ABSENT[SYSTEM]:
    if any(name in section[0] for section in sections):
        faults.append(f"{name} is not inside, but has a notice")
print(*faults, f"{len(sections)} notices, {len(faults)} faults", sep="\n")
sys.exit(bool(faults) or len(imported) < 6)
