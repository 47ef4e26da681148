#!/usr/bin/env python3
"""changelog_test.py PROJECT: the package's changelog is that of the project."""

import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

project = pathlib.Path(sys.argv.pop(1))

TWO_VERSIONS = """# Changelog

What users notice.

## [0.2.0] - 2027-02-01

### Added

- A line of text that goes on and on, with a `name` in it, until it is too long for one line of a
  changelog and continues on the next.

### Fixed

- Something.

## [0.1.0] - 2026-11-23

### Added

- The first.

[0.2.0]: https://example.com/compare
- Not an item.
"""


class Changelog(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def run_script(self, text, version, revision):
        path = self.folder / "CHANGELOG.md"
        path.write_text(text, encoding="utf-8")
        return subprocess.run(
            [project / "packaging/debian/changelog.py", path, version, revision],
            capture_output=True, encoding="utf-8", check=False)

    def parsed(self, text, version, revision, *options):
        result = self.run_script(text, version, revision)
        self.assertEqual("", result.stderr)
        parser = subprocess.run(["dpkg-parsechangelog", "-l-", *options], input=result.stdout,
                                capture_output=True, encoding="utf-8", check=True)
        self.assertEqual("", parser.stderr)
        return parser.stdout

    def test_newest_entry_has_the_revision_and_its_own_date(self):
        self.assertEqual("0.2.0-3\n", self.parsed(TWO_VERSIONS, "0.2.0", "3", "-SVersion"))
        self.assertEqual("Mon, 01 Feb 2027 00:00:00 +0000\n",
                         self.parsed(TWO_VERSIONS, "0.2.0", "3", "-SDate"))

    def test_newest_entry_of_the_project_is_its_version(self):
        version = re.search(r"project\(\s*\S+\s+VERSION\s+([0-9.]+)",
                            (project / "CMakeLists.txt").read_text("utf-8"))[1]
        text = (project / "CHANGELOG.md").read_text("utf-8")
        self.assertEqual(f"{version}-1\n", self.parsed(text, version, "1", "-SVersion"))

    def test_every_version_is_kept_with_its_items_alone(self):
        everything = self.parsed(TWO_VERSIONS, "0.2.0", "3", "--all")
        self.assertIn("tarvik-dpdu (0.2.0-3)", everything)
        self.assertIn("tarvik-dpdu (0.1.0-1)", everything)
        self.assertEqual(3, everything.count("   * "))
        self.assertIn("with a name in it", everything)
        self.assertNotIn("What users notice", everything)

    def test_no_line_is_longer_than_a_terminal(self):
        result = self.run_script(TWO_VERSIONS, "0.2.0", "1")
        self.assertLess(max(len(line) for line in result.stdout.splitlines()), 80)
        self.assertIn("one line of a changelog", " ".join(result.stdout.split()))

    def test_another_version_than_the_projects_is_refused_in_one_line(self):
        result = self.run_script(TWO_VERSIONS, "0.3.0", "1")
        self.assertNotEqual(0, result.returncode)
        self.assertEqual("", result.stdout)
        self.assertRegex(result.stderr, r"\A.*newest version is 0\.2\.0.*0\.3\.0.*\n\Z")

    def test_an_entry_without_items_is_refused(self):
        result = self.run_script("## [1.0.0] - 2027-01-01\n\nSoon.\n", "1.0.0", "1")
        self.assertNotEqual(0, result.returncode)
        self.assertIn("nothing is listed for 1.0.0", result.stderr)


if __name__ == "__main__":
    unittest.main()
