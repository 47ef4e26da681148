#!/usr/bin/env python3
"""trace_format.py [--check]: writes docs/trace-format.md from docs/trace.schema.json.

--check: says whether the file is what would be written.
"""
import json, sys
from pathlib import Path

DOCS = Path(__file__).resolve().parents[1] / "docs"
SCHEMA, TARGET = DOCS / "trace.schema.json", DOCS / "trace-format.md"

HEAD = """# The format of ComPrimitive traces

<!-- scripts/trace_format.py makes this file from trace.schema.json: change that, or the script. -->

With `enableCopTrace` on in `config.json` the library writes what happens to ComPrimitives to
`dpdu_coptrace_PROCESS_SESSION.jsonl` in the folder for temporary files. `dpdu trace` reads these files. This page is
for programs that read them, too; [trace.schema.json](trace.schema.json) says the same as a JSON Schema (draft 7).

## Files and lines

- Each line is a JSON object in ASCII, and one event. A line is in the file at most `flush_ms` after its event.
- A session begins with `log_start` and ends with `log_stop`. A process that constructs the library again begins
  another session in another file. The last line of a process that has crashed may be incomplete.
- Threads append their lines in the order in which they get to it. `ts_us` says when something happened; order lines
  by it, and equal ones by `seq`.
- Times are those of the computer's performance counter. A trace has no calendar time; the file was last changed when
  its last line was written.
- Payloads have at most their first 512 bytes; the number beside them is the true one.
- Lines are at most 1023 characters long, `cloud_pkt` 1399, `cop_expected_responses` and `telemetry` 8191. A line
  that would be longer is cut there and **lacks its line end**: the next line follows at once. No string contains
  `{"seq":`, so that this is a safe place to part them. `cop_expected_responses` leaves items out instead.
- Pass over events and fields that you do not know: later versions may add both. Those that are here keep their names,
  types and meaning.

The variables of the environment: `DPDU_COPTRACE_DISABLE` switches the trace off, `DPDU_COPTRACE_DISABLE_CLOUD_PKTS`
leaves `cloud_pkt` out, `DPDU_COPTRACE_CLOUD_PKTS_META_ONLY` leaves its bytes out, each if it is `1`, `true` or `yes`.

A trace holds what went over the bus, security keys and VINs among it.

## An example

The mean time from a request to its answer, in Python:

```python
import json, sys

sent, times = {}, []
for text in open(sys.argv[1], encoding="ascii", errors="replace"):
    for part in text.replace('{"seq":', '\\n{"seq":').split("\\n"):
        try:
            line = json.loads(part)
        except ValueError:
            continue  # empty, or cut
        if line["ev"] == "comm_req_sent":
            sent[line["req_id"]] = line["ts_us"]
        elif line["ev"] == "comm_res_received" and line["req_id"] in sent:
            times.append(line["ts_us"] - sent.pop(line["req_id"]))
print(f"{len(times)} answers, on average after {sum(times) / max(1, len(times)) / 1000:.3f} ms")
```

## Fields of every line
"""
TYPES = {"#/$defs/u32": "0 to 4294967295", "#/$defs/count": "number from 0", "#/$defs/signed": "number",
         "#/$defs/time": "number from 0", "#/$defs/hex": "lower-case hexadecimal"}


def type_of(field):
    if "allOf" in field:
        return TYPES[field["allOf"][0]["$ref"]]
    if "enum" in field:
        return " or ".join(f"`{value}`" for value in field["enum"])
    kinds = field["type"] if isinstance(field["type"], list) else [field["type"]]
    names = {"boolean": "`true` or `false`", "array": "list of objects"}
    return " or ".join(names.get(kind, kind) for kind in kinds)


def rows(properties, required, prefix=""):
    for name, field in properties.items():
        words = field["description"] + ("" if name in required else " Not in every line.")
        yield f"| `{prefix}{name}` | {type_of(field)} | {field.get('unit', '')} | {words} |"
        inside = field.get("items", field)
        if "properties" in inside:
            yield from rows(inside["properties"], inside["required"], f"{prefix}{name}.")


def table(properties, required):
    return ["", "| field | type | unit | meaning |", "|---|---|---|---|", *rows(properties, required), ""]


def document():
    schema = json.loads(SCHEMA.read_text("utf-8"))
    common = set(schema["required"])
    lines = [HEAD.rstrip("\n"), *table(schema["properties"], common | {"tick_ms"}),
             "`log_start` and `log_stop` have no `tick_ms`.", "", "## Events"]
    for name, event in schema["definitions"].items():
        lines += ["", f"### `{name}`", "", event["description"]]
        if event["properties"]:
            lines += table(event["properties"], event["required"])[:-1]
    return "\n".join(lines) + "\n"


def main():
    text = document()
    if "--check" not in sys.argv[1:]:
        TARGET.write_text(text, "utf-8")
        return 0
    if TARGET.read_text("utf-8") == text:
        return 0
    print("docs/trace-format.md is not what docs/trace.schema.json makes: run scripts/trace_format.py", file=sys.stderr)
    return 1


if __name__ == "__main__":
    sys.exit(main())
