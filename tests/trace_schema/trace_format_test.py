#!/usr/bin/env python3
"""trace_format_test.py DPDU TRACES: the trace's schema, its document, and readers of what the schema does not have."""
import json, os, re, subprocess, sys, tempfile, unittest
from pathlib import Path

from validate import Lines, main as validate, split

PROGRAM, TRACES = sys.argv[1], Path(sys.argv[2])
ROOT = Path(__file__).resolve().parents[2]
LINE = {"seq": 2, "ts_us": 5, "tick_ms": 1, "pid": 1, "tid": 1, "ev": "cop_state", "hMod": 0, "hCLL": 0, "hCoP": 1,
        "from": 32784, "to": 32785, "dur_ms": 0}


def faults(line, strict=True):
    return list(Lines(strict).faults(json.dumps(line)))


class TraceFormat(unittest.TestCase):
    def test_recorded_traces_are_as_the_schema_says(self):
        self.assertEqual(validate(["--strict", str(TRACES)]), 0)

    def test_a_missing_field_is_a_fault(self):
        self.assertEqual(faults(LINE), [])
        for field in LINE:
            self.assertNotEqual(faults({key: value for key, value in LINE.items() if key != field}), [], field)

    def test_a_wrong_type_or_range_is_a_fault(self):
        for field, value in (("seq", "1"), ("ts_us", -1), ("hCoP", 2**32), ("to", None), ("ev", 7), ("dur_ms", 0.5)):
            self.assertNotEqual(faults({**LINE, field: value}, strict=False), [], field)
        rx = {**{k: v for k, v in LINE.items() if k not in ("from", "to", "dur_ms")}, "ev": "cop_rx", "uniq": 0, "acc": 1,
              "rx_len": 1, "rx_hex": "7e", "rx_hex_len": 1, "rx_trunc": False}
        self.assertEqual(faults(rx), [])
        for value in ("7E", "7", "zz", "00" * 513):
            self.assertNotEqual(faults({**rx, "rx_hex": value}), [], value)

    def test_unknown_fields_and_events_are_faults_only_where_lines_are_our_own(self):
        nested = {**LINE, "ev": "telemetry", "q": {"future": 1}}
        for line in ({**LINE, "future": 1}, {**LINE, "ev": "future"}):
            self.assertEqual(faults(line, strict=False), [])
            self.assertIn("future", faults(line)[0])
        self.assertTrue(any("q.future" in fault for fault in faults(nested)))

    def test_a_line_without_its_end_is_parted_from_the_next(self):
        cut = ('{"seq":1,"ev":"' + "x" * 2000)[:1023]
        text = cut + json.dumps(LINE, separators=(",", ":")) + "\n"
        lines = Lines(True)
        self.assertEqual([fault for _, part in split(text) for fault in lines.faults(part)], [])
        self.assertEqual((lines.cut, lines.checked), (1, 1))
        self.assertNotEqual(list(lines.faults(cut[:-1])), [])

    def test_half_a_line_is_passed_over_at_the_end_only(self):
        line = json.dumps(LINE, separators=(",", ":"))
        with tempfile.TemporaryDirectory() as folder:
            trace = Path(folder) / "killed.jsonl"
            for content, expected in ((f"{line}\n{line[:50]}", 0), (f"{line[:50]}\n{line}\n", 1)):
                trace.write_text(content)
                self.assertEqual(validate(["--strict", folder]), expected)

    def test_a_folder_without_a_trace_is_not_valid(self):
        with tempfile.TemporaryDirectory() as folder:
            self.assertEqual(validate([folder]), 1)

    def test_the_document_is_made_of_the_schema(self):
        self.assertEqual(subprocess.run([ROOT / "scripts/trace_format.py", "--check"], check=False).returncode, 0)

    def test_the_documents_program_reads_a_trace(self):
        text = (ROOT / "docs/trace-format.md").read_text("utf-8")
        program = re.search(r"```python\n(.*?)```", text, re.S)[1]
        trace = TRACES / "three_units.jsonl"
        result = subprocess.run([sys.executable, "-c", program, trace], check=True, capture_output=True, text=True)
        answers = trace.read_text().count('"ev":"comm_res_received"')
        self.assertRegex(result.stdout, rf"^{answers} answers, on average after \d+\.\d{{3}} ms\n$")

    def test_unknown_fields_and_events_change_nothing_that_readers_say(self):
        with tempfile.TemporaryDirectory() as folder:
            for name in ("negative", "functional", "raw_listen", "silent", "three_units"):
                text = (TRACES / f"{name}.jsonl").read_text()
                changed = re.sub(r',"ev":', ',"future":{"ev":"x","a":[1,{"hCoP":9}],"f":0.5},"more":null,"half":0.5,'
                                 r'"most":18446744073709551615,"ev":', text)
                lines = changed.splitlines()
                lines.insert(len(lines) // 2, lines[1].replace('"ev":"cop_start"', '"ev":"of_the_future"'))
                said = []
                for kind, content in (("old", text), ("new", "\n".join(lines) + "\n")):
                    trace = Path(folder) / kind / f"{name}.jsonl"
                    trace.parent.mkdir(exist_ok=True)
                    trace.write_text(content)
                    os.utime(trace, ns=(0, 10**18))
                    said.append([self.read(trace, *words) for words in (
                        ("summary", "--json"), ("timeline", "--columns", "120"), ("export", "--to", "candump"),
                        ("export", "--to", "asc"), ("export", "--to", "chrome"), ("export", "--to", "pcapng"))])
                    report = trace.with_suffix(".html")
                    self.read(trace, "report", "-o", report)
                    said[-1].append(re.findall(rb'class="chunk">.*?</script>', report.read_bytes(), re.S))
                # The summary counts the unknown line.
                old, new = (json.loads(texts.pop(0)) for texts in said)
                self.assertEqual(self.without_counts(old), self.without_counts(new))
                self.assertEqual(said[0], said[1])

    @staticmethod
    def without_counts(summary):
        return {key: value for key, value in summary.items() if "nknown" not in key and key not in ("files", "lines")}

    @staticmethod
    def read(trace, *words):
        result = subprocess.run([PROGRAM, "trace", *words, trace], check=True, capture_output=True)
        return result.stdout


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[3:], verbosity=2)
