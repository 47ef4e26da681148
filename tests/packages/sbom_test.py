#!/usr/bin/env python3
"""sbom_test.py SOURCE-FOLDER linux|windows FOLDER FILE...: the bill of materials names what is in the products.

FOLDER has the bill and the notices; the FILEs are the products.
"""
import json, re, subprocess, sys, tempfile, unittest
from datetime import datetime
from pathlib import Path

SOURCE, SYSTEM, FOLDER = Path(sys.argv[1]), sys.argv[2], Path(sys.argv[3])
PRODUCTS = sys.argv[4:]
BILL = FOLDER / "tarvik-dpdu.spdx.json"
# Libraries of Windows itself.
WINDOWS = {"advapi32.dll", "cfgmgr32.dll", "kernel32.dll", "msvcrt.dll", "ole32.dll", "setupapi.dll",
           "shell32.dll", "user32.dll", "winhttp.dll", "ws2_32.dll"}
INSIDE = {"STATIC_LINK", "CONTAINS"}


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


def debian_package(soname):
    path = Path(re.search(rf"^\s+{re.escape(soname)} \(.*x86-64.*=> (\S+)",
                          output("/sbin/ldconfig", "-p"), re.MULTILINE)[1])
    for candidate in (path, Path("/lib/x86_64-linux-gnu") / path.name,
                      Path("/usr/lib/x86_64-linux-gnu") / path.name):
        found = subprocess.run(["dpkg", "-S", candidate], capture_output=True, text=True).stdout
        if found:
            return found.split(":")[0]
    raise LookupError(f"no package has {soname}")


class BillOfMaterials(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.bill = json.loads(BILL.read_text("utf-8"))
        cls.packages = {package["SPDXID"]: package for package in cls.bill["packages"]}
        cls.ours = next(package for package in cls.bill["packages"] if package["name"] == "tarvik-dpdu")

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

    def test_addresses_of_packages_carry_name_and_version(self):
        for package in self.packages.values():
            if package is self.ours:
                continue
            (reference,) = package["externalRefs"]
            self.assertEqual((reference["referenceCategory"], reference["referenceType"]),
                             ("PACKAGE-MANAGER", "purl"))
            version = package.get("versionInfo", "").replace("+", r"%2B")
            self.assertRegex(reference["referenceLocator"],
                             r"^pkg:deb/debian/[a-z0-9.%B-]+" + (f"@{version}" if version else "") +
                             r"\?arch=(amd64|source)&distro=bookworm$")

    def test_licences_are_expressions(self):
        known = {"MIT", "Apache-2.0", "GPL-2.0-or-later", "GPL-3.0-or-later", "LGPL-2.1-or-later", "BSL-1.0",
                 "BSD-3-Clause", "ZPL-2.1", "GCC-exception-3.1", "OR", "AND", "WITH"}
        for package in self.packages.values():
            if package is not self.ours:
                self.assertLessEqual(set(package["licenseDeclared"].split()), known, package["name"])

    def test_what_the_system_loads_with_the_products_is_named(self):
        found = {name for product in PRODUCTS for name in needed(product)}
        self.assertGreater(len(found), 3)
        if SYSTEM == "windows":
            self.assertEqual({name.lower() for name in found} - WINDOWS, set())
            return
        ways = self.ways()
        loaded = {re.match(r"pkg:deb/debian/([^@?]+)",
                           package["externalRefs"][0]["referenceLocator"])[1]
                  for package in self.packages.values()
                  if ways.get(package["SPDXID"]) == "DYNAMIC_LINK"}
        self.assertEqual({debian_package(soname) for soname in found},
                         {name.replace("%2B", "+") for name in loaded})

    def test_same_build_gives_the_same_bytes(self):
        moment = datetime.fromisoformat(self.bill["creationInfo"]["created"].replace("Z", "+00:00"))
        with tempfile.TemporaryDirectory() as folder:
            again = Path(folder) / "again.json"
            subprocess.run([sys.executable, "-B", SOURCE / "packaging" / "notices" / "sbom.py", SYSTEM,
                            SOURCE / "build" / "deps" / "source", project_version(),
                            str(int(moment.timestamp())), again], check=True)
            self.assertEqual(again.read_bytes(), BILL.read_bytes())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
