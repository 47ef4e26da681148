#!/usr/bin/env python3
"""readme_test.py SOURCE-FOLDER LIBRARY: every Python example of python/README.md runs, in its order and
with the simulated dongle and the demonstration car."""
import os, re, unittest

import udsoncan_double
from package import LIBRARY, PYTHON_FOLDER, run, tarvik_dpdu
from simulator import configure, find_module

udsoncan_double.install()


class Readme(unittest.TestCase):
    def test_examples_run(self):
        configure()
        os.environ["DPDU_LIBRARY"] = LIBRARY
        text = PYTHON_FOLDER.joinpath("README.md").read_text("utf-8")
        examples = re.findall(r"^```python\n(.*?)^```$", text, re.DOTALL | re.MULTILINE)
        self.assertGreater(len(examples), 5)
        with tarvik_dpdu.Library() as library:
            find_module(library).close()  # plugged in again if it was missed
        names = {}
        for number, example in enumerate(examples, 1):
            with self.subTest(f"example {number}"):
                exec(compile(example, f"example {number}", "exec"), names)
        names["library"].close()


if __name__ == "__main__":
    run()
