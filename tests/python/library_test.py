#!/usr/bin/env python3
"""library_test.py SOURCE-FOLDER FAKE-LIBRARY: a library's life, its modules, events and losses, with
the library of another vendor."""
import datetime, queue, signal, subprocess, sys, threading, time
from unittest import mock

from package import LIBRARY, PYTHON_FOLDER, OtherVendor, run, run_child, tarvik_dpdu
from tarvik_dpdu import (
    EntityAddress, EntityStatus, Filter, InfoEvent, LostModule, NoModule, PduError, ProgVoltage,
    UnknownName, constants, dispatch)
from tarvik_dpdu.functions import PROTOTYPES

READ_VIN = bytes.fromhex("22F190")
SILENT, HANGING = (0x7E3, 0x7EB), (0x7E5, 0x7ED)


class Life(OtherVendor):
    def test_option_string_reaches_the_library(self):
        with tarvik_dpdu.Library(LIBRARY, options="Trace='on'") as library:
            self.assertEqual(library.path, LIBRARY)
        self.assertEqual(self.report()[0], "construct Trace='on'")

    def test_no_options_are_a_null_pointer(self):
        self.library()
        self.assertEqual(self.report()[0], "construct without options")

    def test_library_that_refuses_to_start_is_an_error(self):
        self.use_scenario("refuses-construct")
        with self.assertRaises(PduError) as raised:
            tarvik_dpdu.Library(LIBRARY)
        self.assertEqual((raised.exception.function, raised.exception.name),
                         ("PDUConstruct", "PDU_ERR_FCT_FAILED"))
        self.assertEqual(self.report(), [])

    def test_library_is_constructed_again_after_its_end(self):
        for _ in range(2):
            with tarvik_dpdu.Library(LIBRARY) as library, library.module() as module:
                self.assertTrue(module.link().request(READ_VIN))
        self.assertEqual(self.report().count("destruct items=0 links=0 modules=0"), 2)

    def test_library_that_nobody_closed_ends_with_python(self):
        child = run_child("library = tarvik_dpdu.Library(LIBRARY)\n"
                          "link = library.module().link()\n"
                          "link.start_request(bytes.fromhex('22F190'))\n"
                          "del library, link\n")
        self.assertEqual((child.returncode, child.stderr), (0, ""))
        self.assert_released()

    def test_forked_process_leaves_the_library_to_its_parent(self):
        child = run_child("import os, warnings\n"
                          "warnings.simplefilter('ignore')  # of fork and threads\n"
                          "link = tarvik_dpdu.Library(LIBRARY).module().link()\n"
                          "child = os.fork()\n"
                          "if not child:\n"
                          "    sys.exit(0)\n"
                          "os.waitpid(child, 0)\n"
                          "answer = link.request(bytes.fromhex('22F190'))\n"
                          "print(answer.data[3:].decode(), file=sys.stderr)\n")
        self.assertEqual(child.stderr, "TESTV1N0000000001\n")
        self.assertEqual(len([line for line in self.report() if line.startswith("destruct")]), 1)

    def test_every_function_of_the_interface_is_there(self):
        header = (PYTHON_FOLDER.parent / "include" / "dpdu_api.h").read_text()
        self.assertEqual(len(PROTOTYPES), 29)
        for name in PROTOTYPES:
            self.assertIn(f" {name}(", header.replace("\n", " "))


class Modules(OtherVendor):
    def test_module_reports_its_name_number_and_connection(self):
        (info,) = self.library().modules()
        self.assertEqual((info.name, info.serial_number, info.connection), ("Probe", "S-1", "USB"))
        self.assertEqual((info.handle, info.type_id, info.state),
                         (5, 9, constants.PDU_MODST_AVAIL))
        self.assertEqual(self.module().state(), constants.PDU_MODST_READY)

    def test_late_module_is_waited_for(self):
        self.use_scenario("late-module")
        self.assertEqual(self.library().modules(), [])
        self.assertEqual(self.module().info.serial_number, "S-1")

    def test_no_module_is_an_error_after_the_limit(self):
        self.use_scenario("no-module")
        started = time.monotonic()
        with self.assertRaisesRegex(NoModule, "no module found; is the dongle connected"):
            self.library().module(timeout=0.3)
        self.assertGreaterEqual(time.monotonic() - started, 0.3)

    def test_module_is_chosen_by_any_of_its_texts_ignoring_case(self):
        self.use_scenario("two-modules")
        library = self.library()
        self.assertEqual(library.module("wlan").info.serial_number, "S-2")
        self.assertEqual(library.module("SERIALNUMBER='s-1'").info.serial_number, "S-1")

    def test_choice_between_several_or_of_none_is_an_error_that_says_so(self):
        self.use_scenario("two-modules")
        library = self.library()
        with self.assertRaisesRegex(NoModule, "2 modules found, name one of them: S-1 USB; S-2 WLAN"):
            library.module()
        with self.assertRaisesRegex(NoModule, "no module found that matches 'S-3'"):
            library.module("S-3", timeout=0)

    def test_version_has_texts_numbers_and_dates(self):
        version = self.module().version()
        self.assertEqual((version.library_name, version.library_version, version.library_date),
                         ("Other D-PDU", "7.8.9", datetime.date(2024, 5, 22)))
        self.assertEqual((version.hardware_name, version.hardware_version, version.hardware_date),
                         ("Probe", "1.2.3", None))
        self.assertEqual(version.vendor_name, "V" * 64)
        self.assertEqual(version.hardware_serial_number, 4711)

    def test_module_that_is_connected_is_not_connected_twice(self):
        module = self.module()
        with self.assertRaisesRegex(PduError, "connected already"):
            module.library.module()
        self.assertTrue(module.link().request(READ_VIN))

    def test_library_works_with_its_module_closed_and_connected_again(self):
        library = self.library()
        for _ in range(2):
            with library.module() as module:
                self.assertTrue(module.link().request(READ_VIN))


class IoControls(OtherVendor):
    def test_outputs_have_python_types(self):
        module = self.module()
        self.assertEqual(module.ioctl("READ_VBATT"), 12034)
        self.assertEqual(module.battery_mv(), 12034)
        self.assertEqual(module.ioctl("PDU_IOCTL_GENERIC", b"\x01"), b"\xCA\xFE")
        self.assertEqual(module.ioctl("GET_ENTITY_STATUS", EntityAddress(0x10, 500)),
                         EntityStatus(1, 4, 2, 4096))
        self.assertIsNone(module.ioctl("RESET"))

    def test_inputs_reach_the_library(self):
        link = self.link()
        link.ioctl("READ_IGNITION_SENSE_STATE", 8)
        for name, value in (("SET_PROG_VOLTAGE", ProgVoltage(13500, 15)), ("GENERIC", b"\x3E\x80"),
                            ("START_MSG_FILTER", [Filter(1, 7, b"\xFF\xF0", b"\x07\xE0"),
                                                  Filter(0x12, 8, bytes(12), bytes(12))]),
                            ("GET_ENTITY_STATUS", EntityAddress(17, 250))):
            link.module.ioctl(name, value)
        inputs = [line.split(" ", 2)[2] for line in self.report() if line.startswith("ioctl")]
        self.assertEqual(inputs, ["number 8", "voltage 13500 pin 15", "bytes 3E80",
                                  "filters 1:7:FFF0:07E0 18:8:" + "00" * 12 + ":" + "00" * 12,
                                  "address 17 wait 250"])

    def test_unknown_command_and_wrong_input_are_refused(self):
        module = self.module()
        with self.assertRaisesRegex(UnknownName, "PDU_IOCTL_SEND_BREAK"):
            module.ioctl("SEND_BREAK")
        with self.assertRaises(TypeError):
            module.ioctl("GENERIC", "3E80")
        for value in (-1, 1 << 32, [Filter(1, 1, b"\x01", b"")], [Filter(1, 1, bytes(13), bytes(13))]):
            with self.assertRaises(ValueError):
                module.ioctl("START_MSG_FILTER", value)


class Waiting(OtherVendor):
    def test_answer_wakes_its_thread_without_a_poll(self):
        with mock.patch.object(dispatch, "_POLL_S", 3600):
            self.assertTrue(self.link().request(READ_VIN, timeout=3600))

    def test_library_that_never_calls_back_is_usable(self):
        self.library().functions.PDURegisterEventCallback = lambda *_: constants.PDU_ERR_FCT_FAILED
        self.assertTrue(self.link().request(READ_VIN))

    def test_callback_is_passed_on_through_a_queue(self):
        calls, full = queue.Queue(), queue.Queue(maxsize=1)
        full.put(None)
        link = self.link()
        link.library.notify(full)
        link.library.notify(calls)
        link.request(READ_VIN)
        call = calls.get(timeout=10)
        self.assertEqual((call.kind, call.module, call.link),
                         (constants.PDU_EVT_DATA_AVAILABLE, link.module.handle, link.handle))
        link.library.stop_notifying(calls)
        self.assertEqual(full.get_nowait(), None)  # one that is full misses a call and hinders nobody

    def test_queue_that_was_taken_out_gets_nothing_more(self):
        calls, later = queue.Queue(), queue.Queue()
        link = self.link()
        link.library.notify(calls)
        link.library.stop_notifying(calls)
        link.library.notify(later)
        link.request(READ_VIN)
        later.get(timeout=10)
        self.assertTrue(calls.empty())

    def test_all_events_are_taken_even_if_few_at_once(self):
        with mock.patch.object(dispatch, "_MOST_AT_ONCE", 1), \
                mock.patch.object(dispatch, "_POLL_S", 3600):
            self.assertTrue(self.link().request(READ_VIN, timeout=3600))

    def test_events_end_when_none_comes_in_time(self):
        link = self.link()
        self.assertEqual(len(list(link.events(0.05))), 1)
        self.assertEqual(list(link.events(0.05)), [])

    def test_events_of_the_library_are_those_of_its_own_queue(self):
        self.use_scenario("unplugged")
        (event,) = self.library().events(0)
        self.assertIsInstance(event, InfoEvent)
        self.assertEqual(event.code, constants.PDU_INFO_MODULE_LIST_CHG)

    def test_thread_that_waits_is_freed_when_the_link_is_closed(self):
        link = self.link(*HANGING)
        outcomes = queue.Queue()

        def ask():
            try:
                link.request(READ_VIN, timeout=3600)
            except PduError as error:
                outcomes.put(type(error))

        thread = threading.Thread(target=ask)
        thread.start()
        while "hanging" not in self.report():
            time.sleep(0.01)
        link.close()
        self.assertEqual(outcomes.get(timeout=30), tarvik_dpdu.Closed)
        thread.join()

    def test_item_is_given_back_when_reading_it_fails(self):
        link = self.link()
        with mock.patch.object(dispatch, "read_event", side_effect=ZeroDivisionError):
            with self.assertRaises(ZeroDivisionError):
                link.request(READ_VIN)

    def test_ctrl_c_cancels_the_request_and_releases_everything(self):
        code = ("try:\n"
                "    with tarvik_dpdu.Library(LIBRARY) as library, library.module() as module, \\\n"
                "            module.link(0x7E5, 0x7ED) as link:\n"
                "        link.request(bytes.fromhex('22F190'))\n"
                "except KeyboardInterrupt:\n"
                "    sys.exit(130)\n")
        head = f"import sys; sys.path.insert(0, {str(PYTHON_FOLDER)!r}); import tarvik_dpdu\n"
        child = subprocess.Popen([sys.executable, "-c", f"{head}LIBRARY = {LIBRARY!r}\n{code}"],
                                 stdout=subprocess.DEVNULL)
        try:
            while "hanging" not in self.report():
                self.assertIsNone(child.poll())
                time.sleep(0.01)
            child.send_signal(signal.SIGINT)
            self.assertEqual(child.wait(timeout=60), 130)
        finally:
            child.kill()
            child.wait()
        self.assertIn("cancelled", self.report())
        self.assert_released()


class LostModules(OtherVendor):
    def test_module_that_the_library_reports_as_lost_is_no_silent_control_unit(self):
        self.use_scenario("lost-module")
        for ask in (lambda link: link.request(READ_VIN), lambda link: link.functional(READ_VIN)):
            with self.assertRaisesRegex(LostModule, "SerialNumber='S-1'"):
                ask(self.link())

    def test_module_that_is_gone_when_nobody_answers_is_lost(self):
        child = run_child("""
link = tarvik_dpdu.Library(LIBRARY).module().link(0x7E3, 0x7EB)
for _ in range(2):
    try:
        link.request(bytes.fromhex('22F190'))
    except tarvik_dpdu.PduError as error:
        print(type(error).__name__, file=sys.stderr)
for use in (link.module.check, lambda: link.request(b'\\x3E\\x80'),
            lambda: link.functional(b'\\x3E\\0', [link.address])):
    try:
        use()
    except tarvik_dpdu.LostModule:
        print('lost', file=sys.stderr)
""", FAKE_DPDU_SCENARIO="unplugged")
        # The first time the module is there. The library prints to standard output.
        self.assertEqual(child.stderr.splitlines(), ["NoAnswer", "LostModule"] + ["lost"] * 3)
        self.assert_released()

    def test_refusal_of_a_library_that_lost_its_module_is_a_lost_module(self):
        module = self.module()
        link = module.link()
        module.is_lost = lambda: True
        with mock.patch.object(module.functions, "PDUStartComPrimitive",
                               return_value=constants.PDU_ERR_INVALID_HANDLE):
            with self.assertRaises(LostModule) as raised:
                link.request(READ_VIN)
        self.assertEqual(raised.exception.__cause__.name, "PDU_ERR_INVALID_HANDLE")

    def test_receiver_of_frames_notices_that_the_module_is_gone(self):
        link = self.module().raw_link(receive=False)
        with mock.patch.object(link.library, "module_state",
                               return_value=constants.PDU_MODST_NOT_AVAIL):
            with self.assertRaises(LostModule):
                link.receive(0)


if __name__ == "__main__":
    run()
