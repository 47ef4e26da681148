#!/usr/bin/env python3
"""udsoncan_test.py SOURCE-FOLDER FAKE-LIBRARY: the connection for the udsoncan library, with a double
of that library's side and the D-PDU library of another vendor."""
import time

import udsoncan_double
from package import OtherVendor, run, run_child
from udsoncan_double import BaseConnection, TimeoutException

udsoncan_double.install()
from tarvik_dpdu import LostModule
from tarvik_dpdu.udsoncan import DpduConnection

READ_VIN = bytes.fromhex("22F190")
VIN = b"\x62\xF1\x90TESTV1N0000000001"
SILENT, HANGING = (0x7E3, 0x7EB), (0x7E5, 0x7ED)


class Connection(OtherVendor):
    def open(self, *ids, **options):
        connection = DpduConnection(self.module(), *ids, **options)
        self.addCleanup(connection.close)
        return connection.open()

    def test_connection_is_one_of_the_other_library(self):
        connection = DpduConnection(self.module(), name="engine")
        self.assertIsInstance(connection, BaseConnection)
        self.assertIsInstance(connection, DpduConnection)
        self.assertEqual(connection.name, "engine")

    def test_request_is_sent_and_its_response_waited_for(self):
        connection = self.open()
        for _ in range(3):
            connection.empty_rxqueue()
            connection.send(READ_VIN)
            self.assertEqual(connection.wait_frame(timeout=5), VIN)

    def test_timeout_keyword_of_older_versions_is_accepted(self):
        connection = self.open()
        connection.specific_send(READ_VIN, timeout=1)
        self.assertEqual(connection.specific_wait_frame(timeout=5), VIN)

    def test_negative_response_is_a_frame_as_any_other(self):
        connection = self.open()
        connection.specific_send(b"\x22\xF1\x00")
        self.assertEqual(connection.specific_wait_frame(5), b"\x7F\x22\x31")

    def test_with_statement_opens_and_closes(self):
        connection = DpduConnection(self.module())
        self.assertFalse(connection.is_open())
        with connection as entered:
            self.assertIs(entered, connection)
            self.assertTrue(connection.is_open())
            connection.send(READ_VIN)
            self.assertEqual(connection.wait_frame(5), VIN)
        self.assertFalse(connection.is_open())
        self.assertIn("stopcomm", self.report())
        with self.assertRaises(RuntimeError):
            connection.send(READ_VIN)
        with connection:
            connection.send(READ_VIN)
            self.assertEqual(connection.wait_frame(5), VIN)

    def test_open_twice_is_one_link(self):
        connection = self.open()
        connection.open()
        connection.close()
        connection.close()
        self.assertFalse(connection.is_open())

    def test_link_of_the_caller_is_used_and_left_open(self):
        link = self.link()
        with DpduConnection(link) as connection:
            connection.send(READ_VIN)
            self.assertEqual(connection.wait_frame(5), VIN)
        self.assertEqual(link.request(READ_VIN).data, VIN)

    def test_silent_control_unit_is_a_timeout_as_soon_as_the_library_says_so(self):
        connection = self.open(*SILENT, pending_timeout=3600)
        connection.send(READ_VIN)
        with self.assertRaisesRegex(TimeoutException, "PDU_ERR_EVT_RX_TIMEOUT"):
            connection.specific_wait_frame(timeout=3600)
        self.assertIsNone(connection.wait_frame(timeout=1))

    def test_request_that_never_ends_is_a_timeout_and_cancelled(self):
        connection = self.open(*HANGING, pending_timeout=0)
        connection.send(READ_VIN)
        with self.assertRaisesRegex(TimeoutException, "within 0.1 s"):
            connection.specific_wait_frame(timeout=0.1)
        self.assertIn("cancelled", self.report())

    def test_control_unit_that_is_pending_is_waited_for_longer(self):
        connection = self.open(*HANGING, pending_timeout=0.4)
        connection.send(READ_VIN)
        started = time.monotonic()
        with self.assertRaises(TimeoutException):
            connection.specific_wait_frame(timeout=0.1)
        self.assertGreaterEqual(time.monotonic() - started, 0.5)

    def test_suppressed_positive_response_blocks_nothing(self):
        connection = self.open(*SILENT)
        for _ in range(3):
            connection.send(b"\x3E\x80")
        with self.assertRaisesRegex(TimeoutException, "suppressed"):
            connection.specific_wait_frame(timeout=3600)

    def test_sending_does_not_wait_for_a_response(self):
        connection = self.open(*HANGING)
        connection.send(b"\x3E\x80")  # nothing ever comes of it
        connection.close()
        self.assertFalse(connection.is_open())

    def test_response_that_nobody_wants_any_more_is_forgotten(self):
        connection = self.open()
        connection.send(b"\x3E\x00")
        connection.empty_rxqueue()
        self.assertIsNone(connection.wait_frame(timeout=0.1))
        connection.send(READ_VIN)
        self.assertEqual(connection.wait_frame(5), VIN)

    def test_lost_module_is_no_timeout(self):
        self.use_scenario("lost-module")
        connection = self.open()
        connection.send(READ_VIN)
        with self.assertRaises(LostModule):
            connection.wait_frame(timeout=5)

    def test_library_that_is_not_there_is_an_import_error_only_when_it_is_needed(self):
        child = run_child("from tarvik_dpdu.udsoncan import DpduConnection\n"
                          "sys.modules['udsoncan'] = None\n"
                          "try:\n"
                          "    DpduConnection(None)\n"
                          "except ImportError:\n"
                          "    print('no udsoncan')\n")
        self.assertEqual((child.stdout, child.stderr), ("no udsoncan\n", ""))


if __name__ == "__main__":
    run()
