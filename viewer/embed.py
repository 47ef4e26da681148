#!/usr/bin/env python3
"""embed.py PAGE STYLE SCRIPT SOURCE: writes the report's page as a C++ source.

The policy lets the browser execute this script and nothing else, and load nothing from anywhere.
"""
import base64, hashlib, sys
from pathlib import Path


def digest(text):
    return "sha256-" + base64.b64encode(hashlib.sha256(text.encode()).digest()).decode()


def literal(name, text):
    data = text.encode()
    rows = [", ".join(str(byte - 256 if byte > 127 else byte) for byte in data[at:at + 24])
            for at in range(0, len(data), 24)]
    return (f"constexpr char k{name}Bytes[] = {{\n" + ",\n".join(rows) + "};\n",
            f"const std::string_view kPage{name}(k{name}Bytes, sizeof k{name}Bytes);\n")


def main():
    page, style, script, source = (Path(name) for name in sys.argv[1:])
    # An element's text ends where its end tag seems to be.
    style_text = style.read_text("utf-8").strip()
    script_text = script.read_text("utf-8").strip().replace("</script", "<\\/script").replace("<!--", "<\\!--")
    policy = (f"default-src 'none'; script-src '{digest(script_text)}'; style-src '{digest(style_text)}'; "
              "base-uri 'none'; form-action 'none'")
    html = page.read_text("utf-8").replace("@POLICY@", policy).replace("@STYLE@", style_text)
    head, tail = html.split("@DATA@")
    parts = [literal("Head", head), literal("Tail", tail.replace("@SCRIPT@", script_text))]
    source.write_text('#include "report/page.h"\n\nnamespace dpdu::report {\nnamespace {\n\n'
                      + "".join(part[0] for part in parts) + "\n}  // namespace\n\n"
                      + "".join(part[1] for part in parts) + "\n}  // namespace dpdu::report\n", "utf-8")


if __name__ == "__main__":
    main()
