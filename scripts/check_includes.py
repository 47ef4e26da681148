#!/usr/bin/env python3
"""Fails when an #include of our own code runs up. Usage: check_includes.py [ROOT]

ORDER decides between folders. A folder may also include the one around it, but not the reverse.
Inside a folder no include leads back; a header and the source of the same name count as one.
"""
import re, sys
from pathlib import Path

# The folders of each tree from the top: each may include those after it.
ORDER = {
    "src": "api worker objects comparam transport link support platform",
    "tools/simulator": "bluez radio relay sockets program wine control vehicle_file dongle record"
                       " ports replay vehicle protocol process",
    "tools/dpdu": "completion options commands script check doctor report trace scan raw links params root xml pdu uds console"
                  " text",
    "packaging/descriptions": "",
}
NEVER = {("comparam", "transport"), ("comparam", "link")}
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.MULTILINE)


def allowed(order, above, below):
    if above[:len(below)] == below or not above:  # the same folder, the one around it; a main
        return True
    rank = {name: position for position, name in enumerate(order)}
    return rank.get(above[0], 99) < rank.get(below[0], -1) and (above[0], below[0]) not in NEVER


def check(root, tree, order):
    base, edges, faults, done, under_way = root / tree, {}, [], set(), []
    files = [path for path in sorted(base.rglob("*")) if path.suffix in (".h", ".cpp", ".c")]
    for path in files:
        for name in INCLUDE.findall(path.read_text(encoding="utf-8")):
            found = [p.resolve() for p in (base / name, path.parent / name) if p.is_file()]
            if found:  # else a public header, another tree's or a library's
                source, target = path.relative_to(base), found[0].relative_to(base.resolve())
                if not allowed(order, source.parent.parts, target.parent.parts):
                    faults.append(f"{tree}/{source} includes {tree}/{target}, which is above it")
                if source.with_suffix("") != target.with_suffix(""):
                    ends = source.with_suffix(""), target.with_suffix("")
                    edges.setdefault(ends[0], {})[ends[1]] = source, target

    def visit(unit):  # depth first; meeting a unit that is under way closes a circle
        under_way.append(unit)
        for other, (source, target) in edges.get(unit, {}).items():
            if other in under_way:
                faults.append(f"{tree}/{source} includes {tree}/{target}, which leads back to it")
            elif other not in done:
                visit(other)
        done.add(under_way.pop())

    for unit in sorted(edges):
        unit in done or visit(unit)
    return len(files), faults


root = Path(sys.argv[1]) if sys.argv[1:] else Path(__file__).parent.parent
results = [check(root, tree, order.split()) for tree, order in ORDER.items()]
wrong = [fault for _, faults in results for fault in faults]
print(*wrong, f"{sum(n for n, _ in results)} files, {len(wrong)} includes that run up", sep="\n")
sys.exit(bool(wrong))
