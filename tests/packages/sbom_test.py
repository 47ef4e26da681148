#!/usr/bin/env python3
"""sbom_test.py SOURCE-FOLDER linux|windows FOLDER FILE...: the bill of materials names what is in the products.

FOLDER has the bill and the notices; the FILEs are the products.
"""
import json, re, subprocess, sys, tempfile, unittest
from datetime import datetime
from pathlib import Path
from urllib.parse import unquote

SOURCE, SYSTEM, FOLDER = Path(sys.argv[1]), sys.argv[2], Path(sys.argv[3])
PRODUCTS = sys.argv[4:]
BILL = FOLDER / "tarvik-dpdu.spdx.json"
# Libraries of Windows itself.
WINDOWS = {"advapi32.dll", "cfgmgr32.dll", "kernel32.dll", "msvcrt.dll", "ole32.dll", "setupapi.dll",
           "shell32.dll", "user32.dll", "winhttp.dll", "ws2_32.dll"}
INSIDE = {"STATIC_LINK", "CONTAINS"}
# Names that files of Debian's packages have in other systems.
OTHER_SYSTEMS = {"libedit.so.0"}
DEBIAN_SOURCES = SOURCE / "build" / "deps" / "source"

# What a product has among its symbols if a component's code is in it.
MARKS = {
    "json-c": r" json_object_new_object$",
    "Mbed TLS": r" mbedtls_",
    "Expat": r" XML_ParserCreate$",
    "zlib": r" compress2$",
    "OpenSSL": r" EVP_CIPHER_CTX_new$",
    "Boost": r"boost::",
    "sdbus-c++": r"sdbus::",
    "CLI11": r"CLI::",
    "JSON for Modern C++": r"nlohmann::",
    "MinGW-w64 with winpthreads": r" pthread_create$",
    "libstdc++ and libgcc of GCC": r" _Unwind_RaiseException$",
}
# What it has among its bytes if the code is a script inside it.
SCRIPT_MARKS = {"d3-array": b"Math.sqrt(50)"}  # of its rounded axis values
# Names of licences in Debian's files, other than those of SPDX.
NAMES_OF_SPDX = {"Expat": "MIT", "expat": "MIT", "BSD-3-clause": "BSD-3-Clause",
                 "LGPL-2.1+": "LGPL-2.1-or-later", "LGPL-2+": "LGPL-2.0-or-later",
                 "GPL-2+": "GPL-2.0-or-later"}
# What Debian's other files have, which name no licences. That of umockdev names LGPL-2+, but has a text
# that says 2.1.
TEXTS = {
    "LGPL-2.1-or-later": r"version 2\.1 of the License, or \(at\s+your\s+option\)\s+any\s+later",
    "GPL-3.0-or-later WITH GCC-exception-3.1": r"GCC RUNTIME LIBRARY EXCEPTION\s+Version 3\.1",
}
KNOWN_BY_TEXT = {"libumockdev0", "umockdev"}


def output(*words):
    return subprocess.run(words, check=True, capture_output=True, text=True).stdout


def project_version():
    text = (SOURCE / "CMakeLists.txt").read_text("utf-8")
    return re.search(r"project\(\s*\S+\s+VERSION\s+([0-9.]+)", text)[1]


def needed(product):
    """What the system loads with the product."""
    if SYSTEM == "windows":
        return re.findall(r"DLL Name: (\S+)", output("x86_64-w64-mingw32-objdump", "-p", product))
    return re.findall(r"\(NEEDED\).*\[(.+)\]", output("readelf", "-dW", product))


def loaded_by_name(product):
    """What the product opens itself, or has opened by the system: names among its texts."""
    names = set(re.findall(r"^lib[A-Za-z0-9_+.-]+\.so(?:\.[0-9]+)+$", output("strings", product),
                           re.MULTILINE))
    soname = re.findall(r"\(SONAME\).*\[(.+)\]", output("readelf", "-dW", product))
    return names - set(needed(product)) - set(soname) - OTHER_SYSTEMS


def user(product):
    name = Path(product).name
    return "dpdu" if name.startswith("dpdu") else "simulators" if "brennix" in name else "library"


def users_by_component(components_of):
    """Of the component that is in a product or loaded by it, the users."""
    users = {}
    for product in PRODUCTS:
        for component in components_of(product):
            users.setdefault(component, set()).add(user(product))
    return users


def debian_package(soname):
    path = Path(re.search(rf"^\s+{re.escape(soname)} \(.*x86-64.*=> (\S+)",
                          output("/sbin/ldconfig", "-p"), re.MULTILINE)[1])
    for candidate in (path, Path("/lib/x86_64-linux-gnu") / path.name,
                      Path("/usr/lib/x86_64-linux-gnu") / path.name):
        found = subprocess.run(["dpkg", "-S", candidate], capture_output=True, text=True).stdout
        if found:
            return found.split(":")[0]
    raise LookupError(f"no package has {soname}")


def address(package):
    """Name, version and architecture in the package's one address."""
    (reference,) = package["externalRefs"]
    assert (reference["referenceCategory"], reference["referenceType"]) == ("PACKAGE-MANAGER", "purl")
    name, version, architecture = re.fullmatch(
        r"pkg:deb/debian/([a-z0-9.%A-Z-]+)(?:@([^?@+]+))?\?arch=([a-z0-9]+)&distro=bookworm",
        reference["referenceLocator"]).groups()
    return unquote(name), version or "", architecture


def users_of(package):
    return set(package["comment"].split("; ")[0].removeprefix("used by: ").split(", "))


def licences_in(copyright_text):
    """All that a file in Debian's format names, and the words of the line for most files."""
    def in_spdx(names):
        return [NAMES_OF_SPDX.get(name.strip(","), name.strip(",")) for name in names.split()]

    if not copyright_text.startswith("Format:"):
        return set(), []
    everything = {word for line in re.findall(r"^License: (.*)", copyright_text, re.MULTILINE)
                  for word in in_spdx(line)}
    (line,) = re.findall(r"^Files:\s+\*\s*\n(?:(?!License:).+\n)*License: (.*)", copyright_text, re.MULTILINE)
    return everything, in_spdx(line)


class BillOfMaterials(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.bill = json.loads(BILL.read_text("utf-8"))
        cls.packages = {package["SPDXID"]: package for package in cls.bill["packages"]}
        cls.ours = next(package for package in cls.bill["packages"] if package["name"] == "tarvik-dpdu")

    def components(self, *ways):
        """Those that are related to ours in these ways."""
        return [self.packages[identifier] for identifier, way in self.ways().items() if way in ways]

    def ways(self):
        """Of each component, how it is related to ours."""
        ways = {}
        for row in self.bill["relationships"]:
            ends = {row["spdxElementId"], row["relatedSpdxElement"]}
            if "SPDXRef-DOCUMENT" in ends:
                continue
            self.assertIn(self.ours["SPDXID"], ends)
            (other,) = ends - {self.ours["SPDXID"]}
            self.assertNotIn(other, ways)
            ways[other] = row["relationshipType"]
        return ways

    def test_document_has_what_the_format_requires(self):
        bill = self.bill
        self.assertEqual((bill["spdxVersion"], bill["dataLicense"], bill["SPDXID"]),
                         ("SPDX-2.3", "CC0-1.0", "SPDXRef-DOCUMENT"))
        datetime.strptime(bill["creationInfo"]["created"], "%Y-%m-%dT%H:%M:%SZ")
        self.assertTrue(bill["creationInfo"]["creators"])
        self.assertRegex(bill["documentNamespace"], r"^[a-z]+:[^#\s]+$")
        self.assertEqual(len(self.packages), len(bill["packages"]))
        for package in bill["packages"]:
            self.assertRegex(package["SPDXID"], r"^SPDXRef-[A-Za-z0-9.-]+$")
            for field in ("name", "downloadLocation", "licenseConcluded", "licenseDeclared",
                          "copyrightText"):
                self.assertTrue(package[field], package["name"])
            self.assertIs(package["filesAnalyzed"], False)

    def test_document_describes_this_version(self):
        self.assertIn({"spdxElementId": "SPDXRef-DOCUMENT", "relationshipType": "DESCRIBES",
                       "relatedSpdxElement": self.ours["SPDXID"]}, self.bill["relationships"])
        self.assertEqual(self.ours["versionInfo"], project_version())

    def test_every_component_has_one_relationship(self):
        self.assertEqual(set(self.ways()), set(self.packages) - {self.ours["SPDXID"]})

    def test_what_has_a_notice_is_inside_with_the_same_version(self):
        notices = (FOLDER / "THIRD-PARTY-NOTICES.txt").read_text("utf-8")
        noticed = dict(re.findall(r"^={80}\n([^\n(]*?)(?: \([^\n]*\))?\nversion (\S+); in: ", notices,
                                  re.MULTILINE))
        ways = self.ways()
        inside = {package["name"]: package["versionInfo"] for package in self.packages.values()
                  if ways.get(package["SPDXID"]) in INSIDE}
        self.assertGreater(len(inside), 4)
        self.assertEqual(inside, noticed)

    def test_addresses_are_those_of_debians_packages(self):
        for package in self.packages.values():
            if package is self.ours:
                continue
            name, version, architecture = address(package)
            with self.subTest(name):
                self.assertEqual(unquote(version), package.get("versionInfo", ""))
                if architecture == "source":
                    wanted = output("dpkg-parsechangelog", "-SVersion", "-l",
                                    DEBIAN_SOURCES / name / "debian" / "changelog").strip()
                else:
                    wanted, kind = output("dpkg-query", "-W", "-f", "${Version} ${Architecture}",
                                          name).split()
                    self.assertEqual(architecture, kind)
                if package in self.components(*INSIDE):
                    self.assertEqual(package["versionInfo"], wanted)

    def test_licences_are_those_of_debians_files(self):
        for package in self.packages.values():
            if package is self.ours:
                continue
            name, _, architecture = address(package)
            expression = package["licenseDeclared"]
            text = (DEBIAN_SOURCES / name / "debian" / "copyright" if architecture == "source" else
                    Path("/usr/share/doc") / name / "copyright").read_text("utf-8")
            with self.subTest(f"{name}: {expression}"):
                everything, of_most_files = licences_in(text)
                if not everything or name in KNOWN_BY_TEXT:
                    self.assertRegex(text, TEXTS[expression])
                    continue
                named = set(re.split(" AND | OR ", expression))
                self.assertLessEqual(named, everything)
                self.assertTrue(named & set(of_most_files))
                self.assertEqual(" OR " in expression, "or" in of_most_files)

    def test_code_of_each_component_is_in_the_products_that_it_names(self):
        nm = "x86_64-w64-mingw32-nm" if SYSTEM == "windows" else "nm"

        def components_in(product):
            symbols = output(nm, "-C", "--defined-only", product)
            content = Path(product).read_bytes()
            return [name for name, mark in MARKS.items() if re.search(mark, symbols, re.MULTILINE)] + \
                [name for name, mark in SCRIPT_MARKS.items() if mark in content]

        self.assertEqual({package["name"]: users_of(package) for package in self.components(*INSIDE)},
                         users_by_component(components_in))

    def test_what_the_system_loads_with_the_products_is_named(self):
        found = {name for product in PRODUCTS for name in needed(product)}
        self.assertGreater(len(found), 3)
        if SYSTEM == "windows":
            self.assertEqual({name.lower() for name in found} - WINDOWS, set())
            return
        self.assertEqual({address(package)[0]: users_of(package)
                          for package in self.components("DYNAMIC_LINK")},
                         users_by_component(lambda product: map(debian_package, needed(product))))

    @unittest.skipIf(SYSTEM == "windows", "it loads libraries of the system only")
    def test_what_the_products_load_when_it_is_needed_is_named(self):
        self.assertEqual({address(package)[0]: users_of(package)
                          for package in self.components("OPTIONAL_DEPENDENCY_OF")},
                         users_by_component(lambda product: map(debian_package, loaded_by_name(product))))

    def test_same_build_gives_the_same_bytes(self):
        moment = datetime.fromisoformat(self.bill["creationInfo"]["created"].replace("Z", "+00:00"))
        with tempfile.TemporaryDirectory() as folder:
            again = Path(folder) / "again.json"
            subprocess.run([sys.executable, "-B", SOURCE / "packaging" / "notices" / "sbom.py", SYSTEM,
                            DEBIAN_SOURCES, project_version(),
                            str(int(moment.timestamp())), again], check=True)
            self.assertEqual(again.read_bytes(), BILL.read_bytes())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
