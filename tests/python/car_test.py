#!/usr/bin/env python3
"""car_test.py SOURCE-FOLDER LIBRARY: the package with this project's library, a simulated dongle and
the demonstration car."""
import json, threading, time, unittest

import udsoncan_double
from package import LIBRARY, run, tarvik_dpdu
from simulator import command, configure, find_module
from tarvik_dpdu import (
    EcuAddress, LostModule, NegativeResponse, NoAnswer, PduError, RequestTimeout, SessionTiming)

udsoncan_double.install()
from tarvik_dpdu.udsoncan import DpduConnection

READ_VIN = bytes.fromhex("22F190")
VIN = b"WTVDEM0S1M0000001"
ENGINE, TRANSMISSION, ABS, NOBODY = (0x7E0, 0x7E8), (0x7E1, 0x7E9), (0x713, 0x77D), (0x7E5, 0x7ED)


class Car(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        configure()

    def setUp(self):
        command("reset")
        command("violations clear")
        command("record clear")
        self.library = tarvik_dpdu.Library(LIBRARY)
        self.addCleanup(self.assert_nothing_violated)
        self.addCleanup(self.library.close)
        self.module = find_module(self.library)

    def assert_nothing_violated(self):
        self.assertEqual(command("violations").split()[0], "0")


class Requests(Car):
    def test_vin_is_read(self):
        with self.module.link(*ENGINE) as link:
            self.assertEqual(link.request(READ_VIN).data[3:], VIN)

    def test_module_reports_what_it_is(self):
        info = self.module.info
        self.assertEqual((info.name, info.serial_number, info.connection),
                         ("Brennix demo", "02:42:52:4E:58:01", "USB"))
        self.assertEqual(self.module.version().library_name, "Tarvik D-PDU API")
        self.assertEqual(self.module.battery_mv(), 13800)
        self.assertFalse(self.module.is_lost())

    def test_second_library_in_the_process_is_refused(self):
        with self.assertRaises(PduError) as raised:
            tarvik_dpdu.Library(LIBRARY)
        self.assertEqual(raised.exception.name, "PDU_ERR_SHARING_VIOLATION")

    def test_negative_response_has_its_name(self):
        link = self.module.link(*ENGINE)
        self.assertEqual(link.request(b"\x22\xF1\xFF").code_name, "requestOutOfRange")
        with self.assertRaises(NegativeResponse):
            link.request(b"\x22\xF1\xFF", raise_negative=True)

    def test_silent_control_unit_is_no_lost_module(self):
        with self.assertRaises(NoAnswer) as raised:
            self.module.link(*NOBODY).request(READ_VIN)
        self.assertEqual(raised.exception.name, "PDU_ERR_EVT_TX_ERROR")

    def test_suppressed_positive_response_is_an_empty_one_and_a_negative_one_comes(self):
        link = self.module.link(*ENGINE, p2_max=0.2)
        self.assertEqual(link.request(b"\x3E\x80").data, b"")
        self.assertEqual(link.request(READ_VIN).data[3:], VIN)
        self.assertEqual(link.request(b"\x10\xFF", timeout=60).code_name, "subFunctionNotSupported")
        self.assertEqual(link.request(b"\x3E\x80", timeout=60).data, b"")

    def test_response_pending_is_waited_for_beyond_p2(self):
        link = self.module.link(*ENGINE, p2_max=0.4)
        command('next 1 {"pending": 4, "pending_interval_ms": 150}')
        self.assertEqual(link.request(READ_VIN).data[3:], VIN)

    def test_request_that_is_not_finished_in_time_is_cancelled(self):
        link = self.module.link(*ENGINE)
        command('next 1 {"pending": 8, "pending_interval_ms": 200}')
        with self.assertRaises(RequestTimeout):
            link.request(READ_VIN, timeout=0.1)
        self.assertEqual(link.request(READ_VIN).data[3:], VIN)

    def test_functional_request_gets_the_answers_of_those_who_answer(self):
        units = [ABS, NOBODY, ENGINE]
        answers = self.module.link(*TRANSMISSION).functional(b"\x22\xF1\x87", units)
        self.assertEqual({answer.unit: answer.data[3:] for answer in answers},
                         {EcuAddress(*ABS): b"TV-ABS-1170-B", EcuAddress(*ENGINE): b"TV-ENG-0815-A"})
        with self.module.functional_link([NOBODY, (0x7E6, 0x7EE)], p2_max=0.2) as link:
            self.assertEqual(link.request(READ_VIN), [])

    def test_single_unit_is_asked_on_the_functional_identifier(self):
        (answer,) = self.module.link().functional(READ_VIN, [ENGINE], functional_id=0x7DF)
        self.assertEqual(answer.unit, EcuAddress(*ENGINE))
        (record,) = json.loads(command("record last 1 in CREQ"))
        self.assertIn("7df", json.dumps(record).lower())

    def test_times_of_answers_grow(self):
        link = self.module.link(*ENGINE)
        times = [link.request(READ_VIN).timestamp_us for _ in range(5)]
        self.assertEqual(times, sorted(times))
        self.assertGreaterEqual(self.module.timestamp_us(), times[-1])

    def test_threads_with_links_of_their_own_get_their_own_answers(self):
        parts = {ENGINE: b"TV-ENG-0815-A", TRANSMISSION: b"TV-TCU-0420-C", ABS: b"TV-ABS-1170-B"}
        links = {unit: self.module.link(*unit) for unit in parts}
        answers = {}

        def ask(unit):
            answers[unit] = {links[unit].request(b"\x22\xF1\x87").data[3:] for _ in range(20)}

        threads = [threading.Thread(target=ask, args=(unit,)) for unit in parts]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(answers, {unit: {part} for unit, part in parts.items()})

    def test_comparams_of_every_type_are_set_and_read(self):
        values = self.module.link(*ENGINE).comparams
        for name, value in {"CP_P2Max": 1500000, "CP_TesterPresentMessage": b"\x3E\x80",
                            "CP_CanBaudrateRecord": [500000, 250000],
                            "CP_SessionTimingOverride": [SessionTiming(3, 0, 50, 1, 244)]}.items():
            with self.subTest(name):
                values[name] = value
                self.assertEqual(values[name], value)

    def test_tester_present_is_started_and_ended_in_the_dongle(self):
        with self.module.link(*ENGINE, tester_present=0.1) as link:
            link.request(b"\x10\x03")
        command("wait 2 20000 in TSPR")
        records = json.loads(command("record last 5 in TSPR"))
        self.assertEqual([(record["fields"]["period_ms"], record["fields"]["message"])
                          for record in records], [(100, "3E80"), (0, "")])

    def test_udsoncan_connection_reads_the_vin_and_survives_a_suppressed_response(self):
        with DpduConnection(self.module, *ENGINE) as connection:
            connection.send(b"\x3E\x80")
            connection.empty_rxqueue()
            command('next 1 {"pending": 4, "pending_interval_ms": 150}')
            connection.send(READ_VIN)
            self.assertEqual(connection.wait_frame(timeout=5, exception=True)[3:], VIN)


class RawFrames(Car):
    def test_frames_of_the_bus_are_received_with_growing_times(self):
        with self.module.raw_link() as link:
            frames = [link.receive(30) for _ in range(20)]
        self.assertTrue({frame.can_id for frame in frames} <= {0x0C0, 0x1A0, 0x18FEF718})
        times = [frame.timestamp_us for frame in frames]
        self.assertEqual(times, sorted(times))

    def next_of(self, link, can_id):
        deadline = time.monotonic() + 30
        while time.monotonic() < deadline:
            frame = link.receive(1)
            if frame is not None and frame.can_id == can_id:
                return frame
        self.fail(f"no frame {can_id:X}")

    def test_frame_is_sent_and_answered_with_11_and_29_bits(self):
        with self.module.raw_link() as link:
            self.assertIsNotNone(link.receive(30))
            link.send(0x600, b"\x01\x02")
            answer = self.next_of(link, 0x601)
            self.assertEqual((answer.data, answer.extended), (bytes.fromhex("410DE0"), False))
            link.send(0x18DAFFF1, b"\x02\x3E\x00")
            answer = self.next_of(link, 0x18DAF118)
            self.assertEqual((answer.data, answer.extended), (bytes.fromhex("027E00"), True))
            link.flush()
        self.assertEqual([frame["id"] for frame in json.loads(command("raw received 2"))],
                         ["600", "18DAFFF1"])

    def test_silent_bus_is_none_and_frames_follow_a_request(self):
        with self.module.raw_link(receive=False) as link:
            self.assertIsNone(link.receive(0.05))
        self.assertEqual(self.module.link(*ENGINE).request(READ_VIN).data[3:], VIN)


class PulledOut(Car):
    def setUp(self):
        super().setUp()
        self.addCleanup(command, "replug")

    def test_dongle_that_was_pulled_out_is_a_lost_module(self):
        link = self.module.link(*ENGINE)
        self.assertEqual(link.request(READ_VIN).data[3:], VIN)
        command("unplug")
        with self.assertRaises(LostModule):
            link.request(READ_VIN)
        with self.assertRaises(LostModule):
            link.functional(READ_VIN, [ENGINE, ABS])
        with self.assertRaises(LostModule):
            self.module.check()
        self.assertEqual(self.library.modules(), [])

    def test_dongle_that_is_pulled_out_during_a_request_is_a_lost_module(self):
        link = self.module.link(*ENGINE)
        command('next 1 {"lost": true}')
        primitive = link.start_request(READ_VIN)
        command("wait 1 20000 in CREQ")
        command("unplug")
        self.assertTrue(primitive.wait(60))
        with self.assertRaises(LostModule):
            link.raise_no_answer(primitive)

    def test_receiver_of_frames_learns_that_the_dongle_was_pulled_out(self):
        with self.module.raw_link() as link:
            self.assertIsNotNone(link.receive(30))
            command("unplug")
            self.library.scan()
            with self.assertRaises(LostModule):
                while link.receive(0.5) is not None:
                    pass

    def test_dongle_that_is_back_is_found_after_a_new_start(self):
        command("unplug")
        with self.assertRaises(LostModule):
            self.module.link(*ENGINE).request(READ_VIN)
        self.library.close()
        command("replug")
        with tarvik_dpdu.Library(LIBRARY) as library, find_module(library) as module:
            self.assertEqual(module.link(*ENGINE).request(READ_VIN).data[3:], VIN)


if __name__ == "__main__":
    run()
