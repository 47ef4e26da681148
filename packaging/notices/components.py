"""Third-party components of the products: what is inside our files, and what they load."""
import subprocess
from dataclasses import dataclass, replace

PACKAGE, SOURCE = "binary package", "source package"  # of Debian


@dataclass(frozen=True)
class Component:
    name: str
    users: str     # the products that it is in, or that load it
    way: str       # linked (its code is in ours), headers (as templates and inline functions),
                   # shared (loaded with the product), optional (loaded when it is needed)
    origin: str
    package: str
    licence: str   # as an expression of SPDX
    systems: str
    remark: str = ""


# A third-party library that is linked, compiled in or loaded gets a row here.
COMPONENTS = [
    Component("json-c", "library, dpdu", "linked", SOURCE, "json-c", "MIT", "linux windows",
              "with a patch that reports when memory is out"),
    Component("Mbed TLS", "library, dpdu", "linked", SOURCE, "mbedtls", "Apache-2.0", "linux windows"),
    Component("Expat", "dpdu", "linked", SOURCE, "expat", "MIT", "windows"),
    Component("zlib", "dpdu", "linked", PACKAGE, "libz-mingw-w64-dev", "Zlib", "windows"),
    Component("d3-array", "dpdu", "linked", PACKAGE, "node-d3-array", "ISC", "linux windows",
              "in the page of trace reports"),
    Component("OpenSSL", "library, dpdu, simulators", "linked", PACKAGE, "libssl-dev", "Apache-2.0", "linux"),
    Component("Boost", "library, dpdu", "headers", PACKAGE, "libboost1.74-dev", "BSL-1.0", "linux",
              "Beast, Asio and what they need"),
    Component("sdbus-c++", "library, dpdu", "headers", PACKAGE, "libsdbus-c++-dev", "LGPL-2.1-or-later", "linux",
              "headers; the library itself is loaded when Bluetooth is on"),
    Component("CLI11", "dpdu, simulators", "headers", PACKAGE, "libcli11-dev", "BSD-3-Clause",
              "linux windows"),
    Component("JSON for Modern C++", "dpdu, simulators", "headers", PACKAGE, "nlohmann-json3-dev", "MIT",
              "linux windows"),
    Component("MinGW-w64 with winpthreads", "library, dpdu", "linked", PACKAGE, "mingw-w64-x86-64-dev",
              "ZPL-2.1 AND MIT AND BSD-3-Clause", "windows"),
    Component("libstdc++ and libgcc of GCC", "library, dpdu", "linked", PACKAGE,
              "gcc-mingw-w64-x86-64-posix-runtime", "GPL-3.0-or-later WITH GCC-exception-3.1", "windows"),

    Component("GNU C Library", "library, dpdu, simulators", "shared", PACKAGE, "libc6", "LGPL-2.1-or-later",
              "linux"),
    Component("libstdc++", "library, dpdu, simulators", "shared", PACKAGE, "libstdc++6",
              "GPL-3.0-or-later WITH GCC-exception-3.1", "linux"),
    Component("libgcc", "library, dpdu, simulators", "shared", PACKAGE, "libgcc-s1",
              "GPL-3.0-or-later WITH GCC-exception-3.1", "linux"),
    Component("libudev", "library, dpdu", "shared", PACKAGE, "libudev1", "LGPL-2.1-or-later", "linux"),
    Component("Expat", "dpdu", "shared", PACKAGE, "libexpat1", "MIT", "linux"),
    Component("zlib", "dpdu", "shared", PACKAGE, "zlib1g", "Zlib", "linux"),
    Component("umockdev", "simulators", "shared", PACKAGE, "libumockdev0", "LGPL-2.1-or-later", "linux"),
    Component("GLib", "simulators", "shared", PACKAGE, "libglib2.0-0", "LGPL-2.1-or-later", "linux"),
    Component("sdbus-c++", "library, dpdu", "optional", PACKAGE, "libsdbus-c++1", "LGPL-2.1-or-later", "linux",
              "loaded when Bluetooth is on"),
    Component("libedit", "dpdu", "optional", PACKAGE, "libedit2", "BSD-3-Clause", "linux",
              "loaded where steps are typed at a prompt"),
    Component("umockdev", "simulators", "optional", PACKAGE, "umockdev", "LGPL-2.1-or-later", "linux",
              "loaded with the command that gets a simulated USB port"),
]
# Of Boost, the one licence of the libraries that are used; Debian's file has those of all others too.
ONLY_LICENCE = {"libboost1.74-dev": "Boost Software License - Version 1.0"}


def users_on(component, system):
    """There are no simulators for Windows."""
    users = component.users.split(", ")
    return ", ".join(user for user in users if system != "windows" or user != "simulators")


def of(system):
    return [replace(component, users=users_on(component, system)) for component in COMPONENTS
            if system in component.systems.split()]


def inside(system):
    return [component for component in of(system) if component.way in ("linked", "headers")]


def of_package(component, field):
    return subprocess.run(["dpkg-query", "-W", "-f", f"${{{field}}}", component.package], check=True,
                          capture_output=True, text=True).stdout


def architecture(component):
    return "source" if component.origin == SOURCE else of_package(component, "Architecture")


def version(component, sources):
    """The version of Debian's package that was there when the products were built."""
    if component.origin == PACKAGE:
        return of_package(component, "Version")
    changelog = (sources / component.package / "debian" / "changelog").read_text("utf-8")
    return changelog.split("(", 1)[1].split(")", 1)[0]
