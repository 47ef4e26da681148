#!/usr/bin/env python3
"""finding_test.py SOURCE-FOLDER FAKE-LIBRARY: which library is loaded, on Linux and, with doubles of
what only Windows has, on Windows; and the time stamps."""
import ctypes, os, shutil, sys, tempfile, types, unittest
from pathlib import Path
from unittest import mock

from package import LIBRARY, OtherVendor, run, run_child, tarvik_dpdu
from tarvik_dpdu import NoLibrary, loading, root_file, windows
from tarvik_dpdu.timeline import Timeline

ROOT_FILE = """<?xml version="1.0" encoding="UTF-8"?>
<MVCI_PDU_API_ROOT>
{entries}
</MVCI_PDU_API_ROOT>
"""
ENTRY = """  <MVCI_PDU_API>
    <SHORT_NAME>{name}</SHORT_NAME>
    <DESCRIPTION>{name} &amp; more</DESCRIPTION>
    <SUPPLIER_NAME>Other</SUPPLIER_NAME>
    <LIBRARY_FILE URI="{uri}"/>
  </MVCI_PDU_API>"""


class Finding(OtherVendor):
    def setUp(self):
        super().setUp()
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        without = {name: text for name, text in os.environ.items() if name != "DPDU_LIBRARY"}
        self.patch(mock.patch.dict(os.environ, without, clear=True))

    def patch(self, patcher):
        self.addCleanup(patcher.stop)
        return patcher.start()

    def root_file(self, **libraries):
        path = self.folder / "root.xml"
        entries = "\n".join(ENTRY.format(name=name, uri=uri) for name, uri in libraries.items())
        path.write_text(ROOT_FILE.format(entries=entries), "utf-8")
        return str(path)

    def use_machine_root_file(self, path):
        self.patch(mock.patch.object(root_file, "machine_root_file", return_value=path))

    def use_name(self, name):
        """This project's library has that name on this system."""
        original = loading._load
        self.patch(mock.patch.object(
            loading, "_load", lambda path: original(name if path.startswith("libtarvik") else path)))

    def test_vendor_is_found_in_the_root_file(self):
        path = self.root_file(First="file:///nowhere/lib.so", Second=f"file://{LIBRARY}")
        with tarvik_dpdu.Library(vendor="Second", root_file=path) as library:
            self.assertEqual(library.path, LIBRARY)
        with tarvik_dpdu.Library(vendor="Second", root_file=Path(path)) as library:
            self.assertEqual(library.path, LIBRARY)
        self.use_machine_root_file(path)
        with tarvik_dpdu.Library(vendor="Second") as library:
            self.assertEqual(library.path, LIBRARY)

    def test_entries_are_read_in_order_with_their_texts(self):
        path = self.root_file(B="file:///opt/b c.so", A="http://other/")
        entries = tarvik_dpdu.read_entries(path)
        self.assertEqual([(entry.short_name, entry.path) for entry in entries],
                         [("B", "/opt/b c.so"), ("A", "")])
        self.assertEqual((entries[0].description, entries[0].supplier), ("B & more", "Other"))

    def test_vendor_that_is_missing_twice_there_or_without_a_file_is_an_error_that_says_so(self):
        path = self.root_file(First="file:///a.so", Second="")
        with self.assertRaisesRegex(NoLibrary, "installed as 'Third'; there are: First, Second"):
            tarvik_dpdu.Library(vendor="Third", root_file=path)
        with self.assertRaisesRegex(NoLibrary, "'Second' of the root file names no library file"):
            tarvik_dpdu.Library(vendor="Second", root_file=path)
        twice = Path(path).read_text().replace("Second", "First")
        Path(path).write_text(twice)
        with self.assertRaisesRegex(NoLibrary, "'First' is there 2 times"):
            tarvik_dpdu.Library(vendor="First", root_file=path)
        with self.assertRaisesRegex(NoLibrary, "the root file lists none"):
            tarvik_dpdu.Library(vendor="First", root_file=str(self.folder / "none.xml"))

    def test_damaged_root_file_is_an_error_that_names_it(self):
        path = self.folder / "root.xml"
        for text in ("<MVCI_PDU_API_ROOT>", "<OTHER/>", ""):
            path.write_text(text)
            with self.assertRaisesRegex(NoLibrary, "root.xml"):
                tarvik_dpdu.read_entries(str(path))

    def test_path_wins_over_the_environment_which_wins_over_this_projects_library(self):
        self.patch(mock.patch.object(loading, "default_candidates", return_value=[LIBRARY]))
        other = self.folder / "other.so"
        shutil.copy(LIBRARY, other)
        loaded = loading.load_library(None, None, None)
        self.assertEqual(loaded.path, LIBRARY)
        os.environ["DPDU_LIBRARY"] = str(other)
        self.assertEqual(loading.load_library(None, None, None).path, str(other))
        self.assertEqual(loading.load_library(LIBRARY, None, None).path, LIBRARY)

    def test_library_beside_the_package_comes_first_then_the_loaders_name(self):
        self.use_machine_root_file("")
        beside = Path(loading.__file__).with_name("libtarvik_dpdu_x64.so")
        self.assertEqual(loading.default_candidates(),
                         ["libtarvik_dpdu_x64.so.0", "libtarvik_dpdu_x64.so"])
        with mock.patch.object(os.path, "exists", lambda path: path == str(beside)):
            self.assertEqual(loading.default_candidates()[0], str(beside))

    def test_root_file_names_this_projects_library_or_the_only_one(self):
        own = {"Tarvik_DPDU_API_x64_0_1_0": "file:///a.so", "Tarvik_DPDU_API_x64_0_2_0": "file:///b.so"}
        for entries, last in (({"Other": "file:///o.so"}, "/o.so"),
                              ({"Other": "file:///o.so", "More": "file:///m.so"}, None),
                              ({**own, "Other": "file:///o.so"}, "/b.so"), ({}, None)):
            with self.subTest(entries), mock.patch.object(root_file, "machine_root_file",
                                                          return_value=self.root_file(**entries)):
                self.assertEqual(loading.default_candidates()[2:], [last] if last else [])

    def test_library_of_the_root_file_is_loaded_when_the_loader_knows_none(self):
        self.use_name("libno_such_library.so")
        self.use_machine_root_file(self.root_file(Other=f"file://{LIBRARY}"))
        with tarvik_dpdu.Library() as library:
            self.assertEqual(library.path, LIBRARY)

    def test_no_library_at_all_is_an_error_that_says_where_it_was_looked_for(self):
        self.use_name("libno_such_library.so")
        self.use_machine_root_file("")
        with self.assertRaisesRegex(NoLibrary, "not found: libtarvik_dpdu_x64.so.0: .*DPDU_LIBRARY"):
            tarvik_dpdu.Library()

    def test_file_that_is_no_library_is_an_error_that_names_it(self):
        path = self.folder / "text.so"
        path.write_text("text")
        with self.assertRaisesRegex(NoLibrary, f"cannot load the library '{path}': file too short"):
            tarvik_dpdu.Library(path)

    def test_library_without_the_functions_is_an_error_that_names_one(self):
        with self.assertRaisesRegex(NoLibrary, "lacks PDUConstruct and 28 more functions"):
            tarvik_dpdu.Library("libc.so.6")

    def test_bare_name_is_a_file_of_the_current_folder(self):
        shutil.copy(LIBRARY, self.folder / "bare.so")
        before = os.getcwd()
        self.addCleanup(os.chdir, before)
        os.chdir(self.folder)
        with tarvik_dpdu.Library("bare.so") as library:
            self.assertTrue(library.modules())

    def test_contradicting_arguments_are_refused(self):
        with self.assertRaises(ValueError):
            tarvik_dpdu.Library(LIBRARY, vendor="Other")
        with self.assertRaises(ValueError):
            tarvik_dpdu.Library(root_file="root.xml")


class Registry:
    """A double of winreg: the value of "Root File", or nothing."""
    HKEY_LOCAL_MACHINE, KEY_READ, KEY_WOW64_64KEY, REG_SZ, REG_EXPAND_SZ = "HKLM", 1, 0x100, 1, 2

    def __init__(self, value=None, kind=REG_SZ):
        self.value, self.kind, self.opened, self.closed = value, kind, [], 0

    def OpenKey(self, root, name, reserved, access):
        self.opened.append((root, name, reserved, access))
        if self.value is None:
            raise FileNotFoundError(2, "no such key")
        return self

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.closed += 1

    def QueryValueEx(self, key, name):
        assert key is self
        if name != "Root File":
            raise FileNotFoundError(2, "no such value")
        return self.value, self.kind

    def ExpandEnvironmentStrings(self, text):
        return text.replace("%Vendor%", r"C:\Vendor")


class Windows(unittest.TestCase):
    def with_registry(self, *arguments):
        registry = Registry(*arguments)
        patcher = mock.patch.dict(sys.modules, winreg=registry)
        patcher.start()
        self.addCleanup(patcher.stop)
        return registry

    def as_windows(self):
        for module, name, double in ((sys, "platform", "win32"),
                                     (ctypes, "WinDLL", self.load)):
            patcher = mock.patch.object(module, name, double, create=True)
            patcher.start()
            self.addCleanup(patcher.stop)

    def load(self, path, **options):
        self.loaded.append((path, options))
        if path not in self.present:
            raise OSError(f"Could not find module '{path}'")
        return types.SimpleNamespace(path=path)

    def setUp(self):
        self.loaded, self.present = [], set()

    def test_root_file_is_the_one_of_the_64_bit_view_of_the_registry(self):
        registry = self.with_registry(r"C:\ProgramData\root.xml")
        self.as_windows()
        self.assertEqual(root_file.machine_root_file(), r"C:\ProgramData\root.xml")
        self.assertEqual(registry.opened, [("HKLM", r"SOFTWARE\D-PDU API", 0, 0x101)])
        self.assertEqual(registry.closed, 1)

    def test_variables_in_the_value_are_replaced(self):
        self.with_registry(r"%Vendor%\root.xml", Registry.REG_EXPAND_SZ)
        self.assertEqual(windows.registered_root_file(), r"C:\Vendor\root.xml")

    def test_registry_without_the_value_is_a_machine_without_a_root_file(self):
        self.with_registry()
        self.as_windows()
        self.assertEqual(root_file.machine_root_file(), "")
        self.assertEqual(root_file.read_entries(), [])

    def test_dll_is_loaded_by_its_full_path_with_those_beside_it(self):
        self.as_windows()
        full = os.path.abspath("vendor.dll")
        self.present.add(full)
        loaded = loading.load_library("vendor.dll", None, None)
        self.assertEqual((loaded.path, loaded.handle.path), ("vendor.dll", full))
        self.assertEqual(self.loaded, [(full, {"winmode": 0x8})])

    def test_callback_has_the_calling_convention_of_windows(self):
        child = run_child("import ctypes\n"
                          "made = []\n"
                          "def convention(*kinds):\n"
                          "    made.append(kinds)\n"
                          "    return ctypes.CFUNCTYPE(*kinds)\n"
                          "ctypes.WINFUNCTYPE = convention\n"
                          "for name in [name for name in sys.modules if 'tarvik_dpdu' in name]:\n"
                          "    del sys.modules[name]\n"
                          "import tarvik_dpdu\n"
                          "with tarvik_dpdu.Library(LIBRARY) as library:\n"
                          "    library.module().link().request(bytes.fromhex('22F190'))\n"
                          "print(len(made), len(made[0]), file=sys.stderr)\n")
        self.assertEqual(child.stderr, "1 6\n")

    def test_library_of_the_setup_comes_before_that_of_the_root_file(self):
        self.as_windows()
        installed = r"D:\Tarvik\Brennix\bin\tarvik_dpdu_x64.dll"
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder, "root.xml")
            path.write_text(ROOT_FILE.format(entries=ENTRY.format(
                name="Tarvik_DPDU_API_x64_0_1_0", uri="file:///E:/Tools/tarvik_dpdu_x64.dll")))
            self.with_registry(str(path))
            with mock.patch.dict(os.environ, SystemDrive="D:"):
                self.assertEqual(loading.default_candidates(), ["E:/Tools/tarvik_dpdu_x64.dll"])
                exists = os.path.exists
                with mock.patch.object(os.path, "exists",
                                       lambda name: name == installed or exists(name)):
                    self.assertEqual(loading.default_candidates(),
                                     [installed, "E:/Tools/tarvik_dpdu_x64.dll"])


class Timelines(unittest.TestCase):
    def setUp(self):
        self.now = 100.0
        self.line = Timeline(lambda: self.now)

    def test_first_time_stamp_stays_as_it_is(self):
        self.assertEqual(self.line.extend(0xFFFFFFF0), 0xFFFFFFF0)

    def test_wrap_is_passed(self):
        self.line.extend(0xFFFFFFF0)
        self.now += 0.00002
        self.assertEqual(self.line.extend(4), (1 << 32) + 4)

    def test_silence_over_several_wraps_is_counted(self):
        self.line.extend(1000)
        self.now += 5 * (1 << 32) / 1e6 + 10
        self.assertEqual(self.line.extend(1000 + 10_000_000), 5 * (1 << 32) + 1000 + 10_000_000)

    def test_older_time_stamp_that_comes_late_stays_older(self):
        self.line.extend(0xFFFFFFF0)
        self.now += 1
        self.assertEqual(self.line.extend(1_000_000 - 16), (1 << 32) + 1_000_000 - 16)
        self.assertEqual(self.line.extend(0xFFFFFFF8), 0xFFFFFFF8)
        self.now += 1
        self.assertEqual(self.line.extend(2_000_000 - 16), (1 << 32) + 2_000_000 - 16)

    def test_clocks_may_differ_by_up_to_35_minutes(self):
        for drift in (-2000, 2000):
            line = Timeline(lambda: self.now)
            line.extend(0)
            self.now += 10_000 + drift
            self.assertEqual(line.extend(10_000_000_000 % (1 << 32)), 10_000_000_000)


if __name__ == "__main__":
    run()
