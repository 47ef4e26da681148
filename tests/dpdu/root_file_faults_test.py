#!/usr/bin/env python3
"""root_file_faults_test.py DPDU_ROOT SHIM: the root file is whole, whatever happens to an installer."""
import os, resource, shutil, signal, subprocess, sys, tempfile, unittest
import xml.etree.ElementTree as ElementTree
from pathlib import Path

PROGRAM, SHIM = sys.argv[1:3]
ENDED = 99
THEIRS = (b'\xef\xbb\xbf<?xml version="1.0"?>\r\n<!-- shared -->\r\n<MVCI_PDU_API_ROOT>\r\n'
          b"\t<MVCI_PDU_API><SHORT_NAME>A</SHORT_NAME></MVCI_PDU_API>\r\n"
          b"\t<MVCI_PDU_API><SHORT_NAME>B</SHORT_NAME></MVCI_PDU_API>\r\n</MVCI_PDU_API_ROOT>")


class RootFile(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.base = Path(scratch.name)
        self.library, self.folder = self.base / "lib", self.base / "etc"
        for folder in (self.library, self.folder):
            folder.mkdir()
        for name in ("libtarvik_dpdu_x64.so", "tarvik_mdf.xml", "tarvik_cdf.xml"):
            (self.library / name).touch()
        self.file, self.backup = self.folder / "root.xml", self.folder / "root.xml.bak"

    def words(self, action, program=PROGRAM):
        folder = [str(self.library)] if action == "add" else []
        return [program, action, *folder, str(self.file)]

    def run_program(self, action, environment=None, program=PROGRAM, **options):
        return subprocess.run(self.words(action, program), capture_output=True, text=True,
                              env=os.environ | (environment or {}), **options)

    def beside(self):
        return sorted(path.name for path in self.folder.iterdir())

    def names(self, text=None):
        root = ElementTree.fromstring(self.file.read_bytes() if text is None else text)
        return [entry.findtext("SHORT_NAME") for entry in root.findall("MVCI_PDU_API")]

    def check_every_end(self, action, before, after):
        """Ends the program at each of its changes; `before` and `after`: the contents, or None."""
        def read(path):
            return path.read_bytes() if path.exists() else None

        def restore():
            for path in self.folder.iterdir():
                path.unlink()
            if before is not None:
                self.file.write_bytes(before)

        restore()
        count = self.base / "count"
        result = self.run_program(action, {"LD_PRELOAD": SHIM, "COUNT_CHANGES": str(count)})
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(read(self.file), after)
        changes = int(count.read_text())
        self.assertGreater(changes, 5)
        for at in range(1, changes + 1):
            restore()
            ended = self.run_program(action, {"LD_PRELOAD": SHIM, "END_AT_CHANGE": str(at)})
            self.assertEqual(ended.returncode, ENDED, f"change {at}: {ended.stderr}")
            self.assertIn(read(self.file), (before, after), f"change {at}")
            self.assertIn(read(self.backup), (None, before), f"change {at}")
            is_done = read(self.file) == after
            again = self.run_program(action)
            self.assertEqual(again.returncode, 0, f"change {at}: {again.stderr}")
            self.assertEqual(read(self.file), after, f"change {at}")
            left = {name for name in self.beside() if name not in ("root.xml", "root.xml.bak")}
            # An empty lock that nobody holds stays until somebody has something to change.
            self.assertLessEqual(left, {"root.xml.lock"} if is_done else set(), f"change {at}")

    def added(self, before):
        if before is not None:
            self.file.write_bytes(before)
        self.assertEqual(self.run_program("add").returncode, 0)
        return self.file.read_bytes()

    def test_installer_that_is_ended_at_any_change_leaves_the_old_file_or_the_new(self):
        self.check_every_end("add", THEIRS, self.added(THEIRS))

    def test_uninstaller_that_is_ended_at_any_change_leaves_the_old_file_or_the_new(self):
        self.check_every_end("remove", self.added(THEIRS), THEIRS)

    def test_first_file_is_there_as_a_whole_or_not_at_all(self):
        self.check_every_end("add", None, self.added(None))

    def test_last_file_is_there_as_a_whole_or_not_at_all(self):
        self.check_every_end("remove", self.added(None), None)

    def test_full_disk_changes_nothing(self):
        self.file.write_bytes(THEIRS)

        def no_room():
            resource.setrlimit(resource.RLIMIT_FSIZE, (len(THEIRS), len(THEIRS)))
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        result = self.run_program("add", preexec_fn=no_room, restore_signals=False)
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stderr.count("\n"), 1)
        self.assertIn("; make room and try again; nothing was changed\n", result.stderr)
        self.assertEqual(self.file.read_bytes(), THEIRS)
        self.assertEqual(self.beside(), ["root.xml"])

    def test_owner_and_rights_of_the_file_stay(self):
        self.file.write_bytes(THEIRS)
        self.file.chmod(0o640)
        if os.geteuid() == 0:
            os.chown(self.file, 12345, 23456)
        before = self.file.stat()
        self.assertEqual(self.run_program("add").returncode, 0)
        for path in (self.file, self.backup):
            after = path.stat()
            self.assertEqual((after.st_mode, after.st_uid, after.st_gid),
                             (before.st_mode, before.st_uid, before.st_gid), path)

    def test_link_is_followed_and_stays(self):
        target = self.base / "target.xml"
        target.write_bytes(THEIRS)
        self.file.symlink_to(target)
        self.assertEqual(self.run_program("add").returncode, 0)
        self.assertTrue(self.file.is_symlink())
        self.assertEqual(len(self.names()), 3)
        self.assertEqual(self.beside(), ["root.xml"])

    def test_link_that_leads_to_nothing_is_refused(self):
        self.file.symlink_to(self.base / "nothing.xml")
        result = self.run_program("add")
        self.assertEqual(result.returncode, 1)
        self.assertIn("is a link that leads to no file; correct it", result.stderr)
        self.assertEqual(self.beside(), ["root.xml"])
        self.assertFalse((self.base / "nothing.xml").exists())

    def test_pipe_in_place_of_the_file_is_refused(self):
        os.mkfifo(self.file)
        result = self.run_program("add", timeout=60)
        self.assertEqual(result.returncode, 1)
        self.assertIn("is not a file; name another", result.stderr)

    def test_file_that_cannot_be_replaced_stays_as_it_is(self):
        self.file.write_bytes(THEIRS)
        result = self.run_program("add", {"LD_PRELOAD": SHIM, "FAIL_RENAME_TO": str(self.file)})
        self.assertEqual(result.returncode, 1)
        self.assertIn("it is as it was, and " + str(self.backup) + " is a copy of it", result.stderr)
        self.assertEqual(self.file.read_bytes(), THEIRS)
        self.assertEqual(self.backup.read_bytes(), THEIRS)
        self.assertEqual(self.beside(), ["root.xml", "root.xml.bak"])

    def test_another_user_changes_neither_the_owner_nor_the_file(self):
        if os.geteuid() != 0:
            self.skipTest("only root can become another user")
        self.base.chmod(0o711)
        self.folder.chmod(0o777)
        self.file.write_bytes(THEIRS)
        self.file.chmod(0o666)
        # Where that user can run it, wherever the build folder is.
        program = shutil.copy(PROGRAM, self.base / "dpdu-root")
        user = {"user": 65534, "group": 65534, "extra_groups": []}
        removed = self.run_program("remove", program=program, **user)  # there is nothing to change
        self.assertEqual((removed.returncode, removed.stderr), (0, ""))
        result = self.run_program("add", program=program, **user)
        self.assertEqual(result.returncode, 1)
        self.assertIn("; run this as root; nothing was changed", result.stderr)
        self.assertEqual((self.file.read_bytes(), self.file.stat().st_uid), (THEIRS, 0))
        self.assertEqual(self.beside(), ["root.xml"])

    def test_installers_that_run_at_once_keep_everybodys_entries(self):
        self.file.write_bytes(THEIRS)
        for _ in range(15):
            for action in ("add", "remove"):
                running = [subprocess.Popen(self.words(action)) for _ in range(6)]
                self.assertEqual([program.wait() for program in running], [0] * 6)
                own = 1 if action == "add" else 0
                self.assertEqual(self.names()[:2], ["A", "B"])
                self.assertEqual(len(self.names()), 2 + own)
            self.assertEqual(self.file.read_bytes(), THEIRS)
        self.assertEqual(self.beside(), ["root.xml", "root.xml.bak"])

    def test_second_installer_waits_and_then_gives_up_in_one_line(self):
        import fcntl
        self.file.write_bytes(THEIRS)
        with open(self.folder / "root.xml.lock", "w") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            result = self.run_program("add")
        self.assertEqual(result.returncode, 1)
        self.assertIn("another installer has been changing", result.stderr)
        self.assertEqual(result.stderr.count("\n"), 1)
        self.assertEqual(self.file.read_bytes(), THEIRS)

    def test_wrong_words_are_a_usage_error(self):
        for words in ([], ["add"], ["list"], ["remove", "a", "b"]):
            result = subprocess.run([PROGRAM, *words], capture_output=True, text=True)
            self.assertEqual(result.returncode, 2, words)
            self.assertTrue(result.stderr.startswith("usage: dpdu-root add"))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
