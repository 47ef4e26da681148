#!/usr/bin/env python3
"""pcapng_test.py DPDU TRACES LIBRARY: tshark finds in captures what traces and frames say."""
import json, os, re, shutil, subprocess, sys, tempfile, unittest
from pathlib import Path

PROGRAM, TRACES, LIBRARY = sys.argv[1], Path(sys.argv[2]), sys.argv[3]


class Pcapng(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.base = Path(scratch.name)

    def lines(self, name):
        return [json.loads(line) for line in (TRACES / f"{name}.jsonl").read_text().splitlines()]

    def trace(self, name):
        """A copy that was changed at the time of its last line, counted from 1970."""
        path = self.base / f"{name}.jsonl"
        shutil.copy(TRACES / path.name, path)
        last_us = max(int(time) for time in re.findall(r'"ts_us":(\d+)', path.read_text()))
        os.utime(path, ns=(last_us * 1000, last_us * 1000))
        return path

    def rows(self, name, *fields):
        """The fields of each packet, as tshark reads them."""
        target = self.base / f"{name}.pcapng"
        subprocess.run([PROGRAM, "trace", "export", "--to", "pcapng", "-o", target,
                        self.trace(name)], check=True, stderr=subprocess.DEVNULL)
        words = [word for field in fields for word in ("-e", field)]
        result = subprocess.run(["tshark", "-n", "-r", target, "-T", "fields", *words],
                                check=True, capture_output=True, text=True)
        return [tuple(line.split("\t")) for line in result.stdout.splitlines()]

    @staticmethod
    def seconds(time_us):
        return f"{time_us // 10**6}.{time_us % 10**6:06}000"

    def messages(self, name):
        """Time and bytes of all requests to, and answers of, a single control unit."""
        return [(line["ts_us"], bytes.fromhex(line.get("tx_hex", line.get("rx_hex"))))
                for line in self.lines(name)
                if line["ev"] in ("comm_req_sent", "comm_res_received")]

    def test_requests_and_answers_are_decoded_as_uds(self):
        messages = self.messages("three_units")
        self.assertGreater(len(messages), 5)
        expected = [(self.seconds(time_us), "0x22", "0x01" if data[0] & 0x40 else "0x00",
                     f"0x{data[1:3].hex()}") for time_us, data in messages]
        self.assertEqual(self.rows("three_units", "frame.time_epoch", "uds.sid", "uds.reply",
                                   "uds.rdbi.data_identifier"), expected)

    def test_a_negative_response_has_its_code_and_service(self):
        (_, request), (_, answer) = self.messages("negative")
        self.assertEqual(answer[0], 0x7F)
        self.assertEqual(
            self.rows("negative", "uds.reply", "uds.err.sid", "uds.err.code"),
            [("0x00", "", ""), ("0x01", f"0x{request[0]:02x}", f"0x{answer[2]:02x}")])

    def test_identifiers_direction_and_comprimitive_are_shown(self):
        fields = ("exported_pdu.src_port", "exported_pdu.dst_port", "frame.packet_flags_direction",
                  "frame.interface_name", "frame.comment")
        answers = [(0x7E8, 0x7E0), (0x7E9, 0x7E1), (0x77D, 0x713)]
        self.assertEqual(
            self.rows("functional", *fields),
            [("0", str(0x7DF), "0x00000002", "uds0", "request to 7DF, ComPrimitive 2")] +
            [(str(source), str(target), "0x00000001", "uds0",
              f"answer from {source:X}, ComPrimitive 2") for source, target in answers])

    def test_a_payload_that_the_trace_has_cut_has_its_whole_length(self):
        # The library has cut the lines, which are no JSON any more.
        total, digits = re.search(r'"comm_req_sent",.*?"tx_len":(\d+),"tx_hex":"([0-9A-Fa-f]*)',
                                  (TRACES / "long_request.jsonl").read_text()).groups()
        total, recorded = int(total), len(digits) // 2
        self.assertLess(recorded, total)
        length, captured, comment = self.rows("long_request", "frame.len", "frame.cap_len",
                                              "frame.comment")[0]
        self.assertEqual(int(length) - int(captured), total - recorded)
        self.assertIn(f"{recorded} of {total} bytes recorded", comment)

    def check_frames(self, name, direction):
        """Against the candump log of the same trace, which has its own tests."""
        log = subprocess.run([PROGRAM, "trace", "export", "--format", "candump", self.trace(name)],
                             check=True, capture_output=True, text=True).stdout
        expected = []
        for line in log.splitlines():
            time, bus, frame = line.split(" ")
            identifier, data = frame.split("#")
            expected.append((time.strip("()").lstrip("0") + "000", bus, str(int(identifier, 16)),
                             str(int(len(identifier) == 8)), str(len(data) // 2), data.lower(),
                             direction))
        rows = self.rows(name, "frame.time_epoch", "frame.interface_name", "can.id",
                         "can.flags.xtd", "can.len", "data.data", "frame.packet_flags_direction")
        self.assertEqual(rows, expected)
        return rows

    def test_received_frames_are_those_of_the_bus(self):
        rows = self.check_frames("raw_listen", "0x00000001")
        self.assertEqual({row[3] for row in rows}, {"0", "1"})  # identifiers of 11 and 29 bits

    def test_sent_frames_are_outbound(self):
        self.assertGreater(len(self.check_frames("raw_send", "0x00000002")), 2)

    def test_standard_output_has_the_bytes_of_the_file(self):
        target, trace = self.base / "some.pcapng", self.trace("negative")
        words = [PROGRAM, "trace", "export", "--to", "pcapng"]
        subprocess.run([*words, "-o", target, trace], check=True)
        result = subprocess.run([*words, trace], check=True, capture_output=True)
        self.assertEqual(result.stdout, target.read_bytes())

    def test_a_terminal_gets_no_packets(self):
        for words in (["trace", "export", "--to", "pcapng", self.trace("negative")],
                      ["raw", "listen", "--pcapng", "-", "--library", LIBRARY]):
            ours, theirs = os.openpty()
            self.addCleanup(os.close, ours)
            result = subprocess.run([PROGRAM, *words], stdout=theirs, stderr=subprocess.PIPE,
                                    text=True)
            os.close(theirs)
            self.assertEqual(result.returncode, 2, result.stderr)
            self.assertIn("not for a terminal", result.stderr)

    def test_frames_reach_a_reader_while_they_come(self):
        """The library of the test has five frames, and the program goes on to listen."""
        program = subprocess.Popen([PROGRAM, "raw", "listen", "--pcapng", "-", "--library", LIBRARY],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        reader = subprocess.Popen(["tshark", "-n", "-l", "-r", "-", "-T", "fields", "-e", "can.id",
                                   "-e", "can.flags.xtd", "-e", "data.data"], text=True,
                                  stdin=program.stdout, stdout=subprocess.PIPE,
                                  stderr=subprocess.DEVNULL)
        program.stdout.close()
        rows = [reader.stdout.readline().rstrip("\n").split("\t") for _ in range(5)]
        self.assertEqual(rows, [["192", "0", "0c80"], ["2024", "0", "037f2231"],
                                ["192", "0", "0d10"], ["417001744", "1", ""],
                                ["291", "1", "ff"]])
        program.terminate()
        _, errors = program.communicate()
        self.assertIn("5 frames received", errors)
        reader.communicate()

    def test_the_file_names_its_program_and_is_without_fault(self):
        target = self.base / "all.pcapng"
        subprocess.run([PROGRAM, "trace", "export", "--to", "pcapng", "-o", target,
                        self.trace("functional")], check=True)
        self.assertIn(b"dpdu ", target.read_bytes()[:64])
        result = subprocess.run(["tshark", "-n", "-r", target, "-Y", "_ws.malformed"],
                                check=True, capture_output=True, text=True)
        self.assertEqual(result.stdout, "")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
