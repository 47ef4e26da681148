#!/usr/bin/env python3
"""validate.py [--strict] FILE|FOLDER...: are the lines of traces as docs/trace.schema.json says?

Of a folder every trace below it. Strict: an event or a field that the schema does not have is an error,
too. Lines that the library has cut are counted and passed over: they end within a field.
"""
import json, sys
from pathlib import Path

from jsonschema import Draft7Validator

SCHEMA = Path(__file__).resolve().parents[2] / "docs" / "trace.schema.json"
LINE_START = '{"seq":'
CUT_LENGTHS = (1023, 1399, 8191)  # of the library's buffers, without the zero at their end
MOST_SHOWN = 20


class Lines:
    def __init__(self, strict=False):
        schema = json.loads(SCHEMA.read_text("utf-8"))
        Draft7Validator.check_schema(schema)
        self.strict, self.common = strict, schema["properties"]
        self.events = {}
        # A validator of its own for each event: the whole schema would ask for the event twenty times.
        for event, definition in schema["definitions"].items():
            self.events[event] = Draft7Validator({
                "type": "object", "$defs": schema["$defs"], "required": schema["required"] + definition["required"],
                "properties": {**self.common, **definition["properties"]}})
        self.any_event = Draft7Validator({"type": "object", "$defs": schema["$defs"], "required": schema["required"],
                                          "properties": self.common})
        self.cut = self.checked = 0

    def unknown(self, schema, value, path=""):
        """Fields of an object, and of those inside it, that its schema does not have."""
        for name, inside in value.items():
            field = schema["properties"].get(name)
            if field is None:
                yield f"unknown field {path}{name}"
                continue
            items = inside if isinstance(inside, list) else [inside]
            for item in (item for item in items if isinstance(item, dict)):
                yield from self.unknown(field.get("items", field), item, f"{path}{name}.")

    def faults(self, text, is_last=False):
        """What is wrong with a line, each in a sentence. The last one may lack the rest."""
        try:
            line = json.loads(text)
        except ValueError as error:
            if is_last or len(text.encode()) in CUT_LENGTHS:
                self.cut += 1
                return
            yield f"is not JSON: {error}"
            return
        self.checked += 1
        event = line.get("ev") if isinstance(line, dict) else None
        validator = self.events.get(event, self.any_event)
        if validator is self.any_event and self.strict:
            yield f"unknown event {event}"
        for error in validator.iter_errors(line):
            yield "/".join(str(part) for part in error.absolute_path) + f" {error.message}".strip()
        if self.strict and event in self.events:
            yield from self.unknown(validator.schema, line)


def split(text):
    """Lines, also those that follow a cut one, which has lost its line end."""
    for number, line in enumerate(text.splitlines(), 1):
        begin = 0
        while begin < len(line):
            end = line.find(LINE_START, begin + 1)
            yield number, line[begin:] if end < 0 else line[begin:end]
            begin = len(line) if end < 0 else end


def main(arguments):
    strict = "--strict" in arguments
    lines, faults, files = Lines(strict), [], []
    for path in (Path(name) for name in arguments if name != "--strict"):
        files += sorted(path.rglob("*.jsonl")) if path.is_dir() else [path]
    for file in files:
        content = file.read_text("utf-8")
        parts = list(split(content))
        for at, (number, text) in enumerate(parts, 1):
            # A process that was ended by force leaves half a line.
            is_last = at == len(parts) and not content.endswith("\n")
            faults += [f"{file}:{number}: {fault}" for fault in lines.faults(text, is_last)]
    print("\n".join(faults[:MOST_SHOWN]), end="\n" if faults else "")
    print(f"{lines.checked} lines of {len(files)} files checked, {lines.cut} cut lines passed over, "
          f"{len(faults)} faults")
    return 1 if faults or lines.checked == 0 else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
