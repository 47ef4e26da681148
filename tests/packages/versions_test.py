#!/usr/bin/env python3
"""versions_test.py SOURCE-FOLDER BUILD-FOLDER VERSION: what names a version names that of the project.

Library, programs, changelog and bill of materials have tests of their own, which compare theirs.
"""
import re, sys, unittest
import xml.etree.ElementTree as ElementTree
from pathlib import Path

SOURCE, BUILD, VERSION = Path(sys.argv[1]), Path(sys.argv[2]), sys.argv[3]
MAJOR = VERSION.split(".")[0]


class Versions(unittest.TestCase):
    def assert_all_are(self, wanted, pattern, *files):
        """Each file has the pattern, and its group is the wanted text everywhere."""
        for file in files:
            with self.subTest(file.name):
                found = set(re.findall(pattern, file.read_text("utf-8"), re.MULTILINE))
                self.assertEqual(found, {wanted})

    def test_description_files_are_of_this_version(self):
        for name in ("tarvik_mdf.xml", "tarvik_cdf.xml"):
            with self.subTest(name):
                root = ElementTree.parse(BUILD / "descriptions" / name).getroot()
                self.assertEqual(root.get("FILE_VERSION"), VERSION)

    def test_files_for_developers_are_of_this_version(self):
        install = BUILD / "install"
        self.assert_all_are(VERSION, r'^set\(PACKAGE_VERSION "(.*)"\)$',
                            install / "TarvikDpduConfigVersion.cmake")
        self.assert_all_are(VERSION, r"^Version: (.*)$", install / "tarvik-dpdu.pc")

    def test_installation_in_the_readme_is_that_of_this_version(self):
        self.assert_all_are(VERSION, r"\btarvik-dpdu-([0-9.]+)-win64", SOURCE / "README.md")

    def test_library_package_is_named_after_the_major_version(self):
        debian = SOURCE / "packaging" / "debian"
        scripts = sorted(debian.glob("libtarvik-dpdu-x64-[0-9]*"))
        self.assertEqual({re.match(r"libtarvik-dpdu-x64-(\d+)\.", script.name)[1] for script in scripts},
                         {MAJOR})
        self.assert_all_are(MAJOR, r"\blibtarvik-dpdu-x64-(\d+)", debian / "control",
                            debian / "rules", SOURCE / "README.md")

    def test_titles_of_manuals_name_no_other_version(self):
        manuals = sorted((SOURCE / "tools").glob("*/*.1"))
        self.assertGreater(len(manuals), 2)
        for manual in manuals:
            with self.subTest(manual.name):
                title = re.search(r"^\.TH .*$", manual.read_text("utf-8"), re.MULTILINE)[0]
                self.assertLessEqual(set(re.findall(r"\d+(?:\.\d+)+", title)), {VERSION})


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
