#!/usr/bin/env python3
"""package_test.py SOURCE-FOLDER LIBRARY VERSION: types, versions and language level of the package."""
import ast, re, subprocess, sys, tempfile, unittest

from package import PYTHON_FOLDER, SOURCE, run, tarvik_dpdu

VERSION = sys.argv[3]
OLDEST = (3, 9)
EXAMPLE = SOURCE / "examples" / "read_vin.py"


def sources():
    return sorted(PYTHON_FOLDER.glob("tarvik_dpdu/**/*.py")) + [EXAMPLE]


class Package(unittest.TestCase):
    def test_types_are_right_in_strict_mode_on_both_systems(self):
        for system in ("linux", "win32"):
            with self.subTest(system), tempfile.TemporaryDirectory() as cache:
                result = subprocess.run(
                    ["mypy", "--strict", "--python-version", "{}.{}".format(*OLDEST), "--platform", system,
                     "--cache-dir", cache, "tarvik_dpdu", EXAMPLE], cwd=PYTHON_FOLDER,
                    stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=240)
                self.assertEqual(result.returncode, 0, result.stdout)

    def test_users_get_the_types_too(self):
        self.assertTrue((PYTHON_FOLDER / "tarvik_dpdu" / "py.typed").exists())
        with tempfile.TemporaryDirectory() as folder:
            result = subprocess.run(
                ["mypy", "--strict", "--cache-dir", folder, "-c",
                 "import tarvik_dpdu\n"
                 "def read(link: tarvik_dpdu.Link) -> int:\n"
                 "    return link.request(b'1').data\n"],
                cwd=PYTHON_FOLDER, stdout=subprocess.PIPE, text=True, timeout=240)
        self.assertIn('got "bytes", expected "int"', result.stdout)

    def test_sources_are_of_the_oldest_python_that_is_supported(self):
        text = PYTHON_FOLDER.joinpath("pyproject.toml").read_text("utf-8")
        self.assertIn('requires-python = ">={}.{}"'.format(*OLDEST), text)
        for source in sources():
            with self.subTest(source.name):
                ast.parse(source.read_text("utf-8"), feature_version=OLDEST)

    def test_versions_are_that_of_the_project(self):
        text = PYTHON_FOLDER.joinpath("pyproject.toml").read_text("utf-8")
        self.assertEqual(re.findall(r'^version = "(.*)"$', text, re.MULTILINE), [VERSION])
        self.assertEqual(tarvik_dpdu.__version__, VERSION)

    def test_everything_that_is_named_public_is_there_and_documented(self):
        for name in tarvik_dpdu.__all__:
            with self.subTest(name):
                each = getattr(tarvik_dpdu, name)
                if isinstance(each, type):
                    self.assertTrue(each.__dict__.get("__doc__"))

    def test_example_has_at_most_ten_lines(self):
        self.assertLessEqual(len(EXAMPLE.read_text("utf-8").splitlines()), 10)

    def test_lines_are_at_most_as_long_as_those_of_the_other_sources(self):
        for source in sources():
            for number, line in enumerate(source.read_text("utf-8").splitlines(), 1):
                self.assertLessEqual(len(line), 110, f"{source.name}:{number}")


if __name__ == "__main__":
    run()
