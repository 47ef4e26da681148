"""What the tests of the Python package share.

A test program is started with SOURCE-FOLDER LIBRARY as arguments. LIBRARY is the library of "another
vendor" of tests/dpdu/fake_library.cpp, or this project's own.
"""
import os, subprocess, sys, tempfile, unittest
from pathlib import Path

SOURCE, LIBRARY = Path(sys.argv[1]).resolve(), sys.argv[2]
PYTHON_FOLDER = SOURCE / "python"
sys.path.insert(0, str(PYTHON_FOLDER))

import tarvik_dpdu


class OtherVendor(unittest.TestCase):
    """Tests with the library of another vendor, whose report must be clean in the end."""

    def setUp(self):
        self.opened = self.connected = None
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.report_file = Path(folder.name, "report")
        os.environ.update(FAKE_DPDU_REPORT=str(self.report_file), FAKE_DPDU_SCENARIO="")

    def use_scenario(self, scenario):
        os.environ["FAKE_DPDU_SCENARIO"] = scenario

    def library(self):
        """The same one for the whole test."""
        if self.opened is None:
            self.opened = tarvik_dpdu.Library(LIBRARY)
            self.addCleanup(self.assert_released)
            self.addCleanup(self.opened.close)
        return self.opened

    def module(self):
        if self.connected is None:
            self.connected = self.library().module()
        return self.connected

    def link(self, *ids, **options):
        return self.module().link(*ids, **options)

    def report(self):
        return self.report_file.read_text().splitlines() if self.report_file.exists() else []

    def assert_released(self):
        """Everything that the library has handed out came back to it, and it saw no violation."""
        lines = self.report()
        self.assertEqual(lines[-1], "destruct items=0 links=0 modules=0")
        self.assertEqual([line for line in lines if "violation" in line], [])


def run_child(code, *arguments, **environment):
    """Runs the code in a process of its own, in which tarvik_dpdu is imported and LIBRARY set."""
    head = (f"import sys; sys.path.insert(0, {str(PYTHON_FOLDER)!r}); import tarvik_dpdu; "
            f"LIBRARY = {LIBRARY!r}\n")
    return subprocess.run([sys.executable, "-W", "error", "-c", head + code, *arguments],
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                          env={**os.environ, **environment}, timeout=60)


def run():
    unittest.main(module="__main__", argv=sys.argv[:1], verbosity=2)
