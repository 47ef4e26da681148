#!/usr/bin/env python3
"""links_test.py SOURCE-FOLDER FAKE-LIBRARY: requests, ComParams and raw frames with the library of
another vendor."""
import contextlib, threading
from unittest import mock

from package import LIBRARY, OtherVendor, run, tarvik_dpdu
from tarvik_dpdu import (
    Closed, EcuAddress, ExpectedResponse, NegativeResponse, NoAnswer, PduError, RequestTimeout,
    SessionTiming, UnknownName, constants)

READ_VIN = bytes.fromhex("22F190")
SILENT, HANGING = (0x7E3, 0x7EB), (0x7E5, 0x7ED)


@contextlib.contextmanager
def spy(library, name):
    """The arguments of the calls of a function."""
    calls, function = [], getattr(library.functions, name)

    def record(*arguments):
        calls.append(arguments)
        return function(*arguments)

    with mock.patch.object(library.functions, name, record):
        yield calls


class Requests(OtherVendor):
    def test_vin_is_read_and_everything_released(self):
        with tarvik_dpdu.Library(LIBRARY) as library, library.module() as module, \
                module.link(request_id=0x7E0, response_id=0x7E8) as link:
            self.assertEqual(link.request(READ_VIN).data, b"\x62\xF1\x90TESTV1N0000000001")
        self.assert_released()

    def test_29_bit_identifiers_are_used(self):
        answer = self.link(0x18DA10F1, 0x18DAF110).request(READ_VIN)
        self.assertEqual(answer.data[3:], b"TESTV1N0000000029")
        self.assertEqual(answer.unit, EcuAddress(0x18DA10F1, 0x18DAF110))

    def test_response_has_its_time_and_its_matching_expectation(self):
        answer = self.link().request(READ_VIN)
        self.assertEqual((answer.timestamp_us, answer.after_us), (1234567, 1500))
        self.assertEqual((answer.unique_id, answer.acceptance_id), (0, 1))
        self.assertFalse(answer.is_negative)

    def test_negative_response_is_returned_or_raised_by_choice(self):
        link = self.link()
        answer = link.request(b"\x22\xF1\x00")
        self.assertEqual((answer.is_negative, answer.code, answer.code_name),
                         (True, 0x31, "requestOutOfRange"))
        with self.assertRaisesRegex(NegativeResponse, r"requestOutOfRange \(0x31\)") as raised:
            link.request(b"\x22\xF1\x00", raise_negative=True)
        self.assertEqual((raised.exception.service, raised.exception.code), (0x22, 0x31))
        self.assertEqual(raised.exception.data, b"\x7F\x22\x31")

    def test_silent_control_unit_is_no_answer_with_the_name_of_the_error(self):
        with self.assertRaises(NoAnswer) as raised:
            self.link(*SILENT).request(READ_VIN)
        self.assertEqual((raised.exception.status, raised.exception.name),
                         (0x103, "PDU_ERR_EVT_RX_TIMEOUT"))
        self.assertNotIsInstance(raised.exception, RequestTimeout)

    def test_suppressed_positive_response_is_not_waited_for(self):
        answer = self.link(*HANGING).request(b"\x3E\x80")  # nothing ever comes of it
        self.assertEqual(answer.data, b"")
        self.assertFalse(answer)

    def test_suppression_reaches_the_library(self):
        link = self.link()
        with spy(link.library, "PDUStartComPrimitive") as calls:
            for request in (b"\x3E\x80", b"\x3E\x00"):
                link.request(request, timeout=10)
        flags = [call[5]._obj.TxFlag.pFlagData[:4] for call in calls
                 if call[2] == constants.PDU_COPT_SENDRECV]
        self.assertEqual(flags, [[0x40, 0, 0, 0], [0, 0, 0, 0]])

    def test_link_with_a_request_under_way_is_closed_without_waiting_for_it(self):
        with self.link(*HANGING) as link:
            link.request(b"\x3E\x80")
        self.assertNotIn("stopcomm", self.report())
        with self.module().link(*HANGING, tester_present=1) as link:
            link.request(b"\x3E\x80")
        self.assertIn("stopcomm", self.report())  # tester present has to end

    def test_suppressed_positive_response_that_does_not_come_in_the_time_given_is_no_error(self):
        self.assertEqual(self.link(*HANGING).request(b"\x3E\x80", timeout=0.05).data, b"")
        self.assertEqual(self.link(*SILENT).request(b"\x3E\x80", timeout=3600).data, b"")

    def test_response_that_comes_in_the_time_given_though_it_was_not_wanted_is_returned(self):
        self.assertEqual(self.link().request(b"\x3E\x80", timeout=3600).data, b"\x7E\x80")

    def test_suppress_bit_counts_only_where_there_is_a_sub_function(self):
        with self.assertRaises(NoAnswer):
            self.link(*SILENT).request(b"\x22\xF1")

    def test_request_that_never_ends_is_cancelled_after_the_limit(self):
        with self.assertRaisesRegex(RequestTimeout, "within 0.2 s"):
            self.link(*HANGING).request(READ_VIN, timeout=0.2)
        self.assertIn("cancelled", self.report())

    def test_request_after_a_cancelled_one_is_answered(self):
        module = self.module()
        with self.assertRaises(RequestTimeout):
            module.link(*HANGING).request(READ_VIN, timeout=0.1)
        self.assertTrue(module.link().request(READ_VIN))

    def test_response_that_is_not_expected_is_no_answer(self):
        link = self.link()
        with self.assertRaises(NoAnswer):
            link.request(READ_VIN, expected=[ExpectedResponse(b"\x50", b"\xFF")])
        positive_or_any = [ExpectedResponse(b"\x50", b"\xFF"), ExpectedResponse()]
        self.assertEqual(link.request(READ_VIN, expected=positive_or_any).acceptance_id, 2)

    def test_request_without_bytes_and_wrong_identifiers_are_refused(self):
        module = self.module()
        with self.assertRaises(ValueError):
            module.link().request(b"")
        for ids, options in (((0x20000000, 0x7E8), {}), ((0x7E0, -1), {}),
                             ((0x800, 0x7E8), {"extended": False})):
            with self.assertRaises(ValueError):
                module.link(*ids, **options)

    def test_started_request_is_finished_later(self):
        link = self.link()
        first, second = link.start_request(READ_VIN), link.start_request(b"\x3E\x00")
        self.assertTrue(second.wait(10))
        self.assertTrue(first.wait(10))
        self.assertEqual([len(each.responses) for each in (first, second)], [1, 1])
        self.assertEqual(second.responses[0].data, b"\x7E\x00")

    def test_requests_of_many_threads_get_their_own_answers(self):
        module = self.module()
        link = module.link()
        answers, failures = {}, []

        def ask(number):
            try:
                answers[number] = [link.request(bytes([0x31, 1, number])).data for _ in range(20)]
            except Exception as error:
                failures.append(error)

        threads = [threading.Thread(target=ask, args=(number,)) for number in range(8)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(failures, [])
        self.assertEqual(answers, {at: [bytes([0x71, 1, at])] * 20 for at in range(8)})

    def test_tester_present_is_configured_and_ends_with_the_link(self):
        with self.link(tester_present=2.5) as link:
            link.request(READ_VIN)
        report = self.report()
        self.assertIn("tester present 3E80 every 2500000", report)
        self.assertLess(report.index("tester present 3E80 every 2500000"), report.index("stopcomm"))

    def test_timing_is_set_in_microseconds(self):
        link = self.link(p2_max=0.25, p2_star=7)
        self.assertEqual((link.comparams["CP_P2Max"], link.comparams["CP_P2Star"]),
                         (250000, 7000000))

    def test_link_reports_its_state_as_event(self):
        states = [event.name for event in self.link().events(0)]
        self.assertEqual(states, ["PDU_CLLST_ONLINE"])

    def test_closed_link_and_library_refuse(self):
        library = self.library()
        module = library.module()
        link = module.link()
        link.close()
        link.close()
        with self.assertRaises(Closed):
            link.request(READ_VIN)
        library.close()
        for use in (module.version, module.link, library.module, lambda: next(link.events(0))):
            with self.assertRaises(Closed):
                use()
        self.assert_released()

    def test_exception_in_the_middle_releases_everything(self):
        with self.assertRaises(ZeroDivisionError):
            with tarvik_dpdu.Library(LIBRARY) as library, library.module() as module:
                module.link().start_request(READ_VIN)
                module.raw_link()
                raise ZeroDivisionError
        self.assert_released()

    def test_refused_link_is_an_error_with_function_number_name_and_meaning(self):
        module = self.module()
        self.use_scenario("refuses-link")
        with self.assertRaises(PduError) as raised:
            module.link()
        error = raised.exception
        self.assertEqual((error.function, error.status, error.name, error.meaning),
                         ("PDUCreateComLogicalLink", 0x30, "PDU_ERR_RESOURCE_BUSY",
                          "the resource is in use"))

    def test_link_that_cannot_be_configured_is_destroyed(self):
        library = self.library()
        module = library.module()
        with self.assertRaises(UnknownName):
            module.link(comparams={"CP_Nothing": 1})
        with self.assertRaises(UnknownName):
            module.link(protocol="ISO_NOTHING")
        self.assertEqual(module._links, [])
        library.close()
        self.assert_released()


class Functional(OtherVendor):
    UNITS = [(0x7E1, 0x7E9), SILENT, (0x7E0, 0x7E8)]

    def test_answers_come_with_their_control_units(self):
        answers = self.link().functional(READ_VIN, self.UNITS)
        self.assertEqual({answer.unit: answer.data[3:] for answer in answers},
                         {EcuAddress(0x7E1, 0x7E9): b"TESTV1N0000000002",
                          EcuAddress(0x7E0, 0x7E8): b"TESTV1N0000000001"})
        self.assertEqual([answer.after_us for answer in answers], [1500, 2500])

    def test_eight_usual_units_are_asked_by_default(self):
        answers = self.link().functional(b"\x3E\x00")
        self.assertEqual([answer.unit.request_id for answer in answers],
                         [0x7E0, 0x7E1, 0x7E2, 0x7E4, 0x7E5, 0x7E6, 0x7E7])

    def test_single_unit_is_asked_functionally(self):
        answers = self.link().functional(READ_VIN, [(0x7E0, 0x7E8)])
        self.assertEqual([answer.unit for answer in answers], [EcuAddress(0x7E0, 0x7E8)])
        with spy(self.library(), "PDUSetUniqueRespIdTable") as calls:
            self.module().functional_link([(0x7E0, 0x7E8)])
        # With one entry some libraries ask physically.
        self.assertEqual([call[2]._obj.NumEntries for call in calls], [2])

    def test_unit_that_was_not_asked_is_left_out(self):
        self.assertEqual(self.link().functional(READ_VIN, [(0x7E0, 0x7E9)]), [])

    def test_all_answers_within_the_time_are_received(self):
        link = self.link()
        with spy(link.library, "PDUStartComPrimitive") as calls:
            link.functional(READ_VIN, self.UNITS)
            link.request(READ_VIN)
        cycles = {call[5]._obj.NumReceiveCycles for call in calls
                  if call[2] == constants.PDU_COPT_SENDRECV}
        self.assertEqual(cycles, {-2, 1})

    def test_nobody_who_answers_is_an_empty_list(self):
        self.assertEqual(self.link().functional(READ_VIN, [SILENT]), [])
        self.assertEqual(self.link().functional(READ_VIN, functional_id=0x7DE), [])

    def test_link_for_many_is_kept_until_units_or_comparams_change(self):
        link = self.link()
        for units in (self.UNITS, self.UNITS, None, None):
            link.functional(READ_VIN, units)
        self.assertEqual(self.report().count("startcomm"), 2)
        link.comparams["CP_P2Max"] = 70000
        answers = link.functional(b"\x22\xF1\xA0", self.UNITS)
        self.assertEqual(answers[0].data[3:], (70000).to_bytes(4, "big"))
        self.assertEqual(len(link.module._links), 2)

    def test_other_threads_use_the_link_meanwhile(self):
        link = self.link()
        asked, released = threading.Event(), threading.Event()

        def ask(*_arguments):
            asked.set()
            released.wait()
            return []

        with mock.patch.object(tarvik_dpdu.FunctionalLink, "request", ask):
            thread = threading.Thread(target=link.functional, args=(READ_VIN,))
            thread.start()
            self.addCleanup(thread.join)
            self.addCleanup(released.set)
            asked.wait()
            self.assertTrue(link.request(READ_VIN))
            link.close()

    def test_units_that_share_a_response_identifier_are_refused(self):
        with self.assertRaises(ValueError):
            self.link().functional(READ_VIN, [(0x7E0, 0x7E8), (0x7E1, 0x7E8)])


class ComParams(OtherVendor):
    def test_values_have_python_types(self):
        values = self.link().comparams
        self.assertEqual(values["CP_Baudrate"], 500000)
        self.assertEqual(values["CP_T1Max"], -3)
        self.assertEqual(values["CP_TesterPresentMessage"], b"")
        self.assertEqual(values["CP_CanBaudrateRecord"], [500000, 250000])
        self.assertEqual(values["CP_SessionTimingOverride"], [SessionTiming(0x301, 0, 50, 1, 244)])

    def test_values_of_every_type_are_set(self):
        values = self.link().comparams
        for name, value in {"CP_Baudrate": 250000, "CP_T1Max": -32768, "CP_RequestAddrMode": 255,
                            "CP_TesterPresentMessage": b"\x3E\x80", "CP_CanBaudrateRecord": [1, 2, 3],
                            "CP_SessionTimingOverride": [SessionTiming(1, 2, 3, 4, 5)] * 2}.items():
            with self.subTest(name):
                values[name] = value
                self.assertEqual(values[name], value)
        values["CP_SessionTimingOverride"] = [(0xFFFF, 2, 3, 4, 0xFF)]
        self.assertEqual(values["CP_SessionTimingOverride"], [(0xFFFF, 2, 3, 4, 0xFF)])
        for name, empty in (("CP_CanBaudrateRecord", []), ("CP_SessionTimingOverride", [])):
            values[name] = empty
            self.assertEqual(values[name], empty)

    def test_values_beyond_the_type_are_refused_before_the_library_sees_them(self):
        values = self.link().comparams
        for name, value in (("CP_Baudrate", 1 << 32), ("CP_Baudrate", -1), ("CP_T1Max", 32768),
                            ("CP_T1Max", -32769), ("CP_RequestAddrMode", 256),
                            ("CP_CanBaudrateRecord", [-1]),
                            ("CP_SessionTimingOverride", [(0x10000, 0, 0, 0, 0)]),
                            ("CP_SessionTimingOverride", [(0, 0, 0, 0, 256)])):
            with self.subTest(name=name, value=value), self.assertRaises(ValueError):
                values[name] = value
        for name, value in (("CP_Baudrate", "1"), ("CP_TesterPresentMessage", "3E"),
                            ("CP_CanBaudrateRecord", ["1"]),
                            ("CP_SessionTimingOverride", [(1, 2)])):
            with self.subTest(name=name, value=value), self.assertRaises(TypeError):
                values[name] = value
        self.assertEqual(values["CP_Baudrate"], 500000)

    def test_refused_value_is_an_error_that_names_the_comparam(self):
        with self.assertRaisesRegex(PduError, "CP_Baudrate=0") as raised:
            self.link().comparams["CP_Baudrate"] = 0
        self.assertEqual(raised.exception.name, "PDU_ERR_VALUE_NOT_SUPPORTED")

    def test_unknown_name_is_a_lookup_error(self):
        values = self.link().comparams
        self.assertNotIn("CP_Nothing", values)
        self.assertIn("CP_P2Max", values)
        with self.assertRaises(LookupError):
            values["CP_Nothing"]

    def test_type_and_class_are_reported(self):
        kind = self.link().comparams.type_of("CP_SessionTimingOverride")
        self.assertEqual((kind.id, kind.type_name, kind.class_name, kind.struct_type),
                         (914, "PDU_PT_STRUCTFIELD", "PDU_PC_TIMING", 1))

    def test_change_on_a_connected_link_is_applied_once_before_the_next_request(self):
        link = self.link()
        link.request(READ_VIN)
        self.assertNotIn("updateparam", self.report())
        link.comparams["CP_P2Star"] = 6000000
        answers = [link.request(b"\x22\xF1\xA1").data[3:] for _ in range(2)]
        self.assertEqual(answers, [(6000000).to_bytes(4, "big")] * 2)
        self.assertEqual(self.report().count("updateparam"), 1)

    def test_items_are_given_back(self):
        library = self.library()
        values = library.module().link().comparams
        for name in ("CP_SessionTimingOverride", "CP_CanBaudrateRecord", "CP_P2Max"):
            values[name]
        library.close()
        self.assert_released()


class RawFrames(OtherVendor):
    def test_frames_are_received_in_order_across_a_wrap_of_the_time_stamps(self):
        link = self.module().raw_link()
        frames = [link.receive(5) for _ in range(5)]
        self.assertEqual([(frame.can_id, frame.data.hex(), frame.extended) for frame in frames],
                         [(0xC0, "0c80", False), (0x7E8, "037f2231", False), (0xC0, "0d10", False),
                          (0x18DAF110, "", True), (0x123, "ff", True)])
        first = frames[0].timestamp_us
        self.assertEqual([frame.timestamp_us - first for frame in frames],
                         [0, 0xFFF, 0x1000, 0x2000, 0x3000])

    def test_nothing_received_in_time_is_none(self):
        link = self.module().raw_link(receive=False)
        self.assertIsNone(link.receive(0))
        self.assertIsNone(link.receive(0.05))

    def test_frames_are_sent_with_their_kind_of_identifier(self):
        link = self.module().raw_link(receive=False)
        link.send(0x7DF, b"\x02\x01\x00")
        link.send(0x18DAF110, bytes(8))
        link.send(0x123, b"", extended=True)
        link.flush()
        frames = [line for line in self.report() if line.startswith("frame")]
        self.assertEqual(frames, ["frame 000007DF short 020100",
                                  "frame 18DAF110 long 0000000000000000", "frame 00000123 long "])

    def test_frames_are_sent_by_another_comprimitive_if_wanted(self):
        link = self.module().raw_link(receive=False, send_with=constants.PDU_COPT_SENDRECV)
        link.send(0x7DF, b"\x01")
        self.assertIn("frame 000007DF short 01", self.report())
        with self.assertRaises(ValueError):
            link.module.raw_link(send_with=constants.PDU_COPT_DELAY)

    def test_frames_that_can_does_not_have_are_refused(self):
        link = self.module().raw_link(receive=False)
        for arguments in ((0x7DF, bytes(9)), (0x20000000, b""), (-1, b""), (0x800, b"", False)):
            with self.assertRaises(ValueError):
                link.send(*arguments)

    def test_frames_can_be_forgotten(self):
        link = self.module().raw_link()
        link.clear()
        self.assertIsNone(link.receive(0.05))


if __name__ == "__main__":
    run()
