#!/usr/bin/env python3
"""Fails when an #include of our own code runs up. Usage: check_includes.py [ROOT]

Between folders the table below decides. A folder may also include what lies in the folder around
it, but neither the reverse nor a folder beside it. Inside a folder no include leads back; a header
and the source of the same name count as one.
"""
import re
import sys
from pathlib import Path

# Each folder of a tree, from the top: it may include those behind it. Trees without folders of
# their own in here are checked for circles only.
ORDER = {
    "src": "api worker objects comparam transport link support platform",
    "tools/simulator": "",
    "tools/dpdu": "",
}
NEVER = {("comparam", "transport"), ("comparam", "link")}  # beside each other, below objects
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.MULTILINE)


def allowed(order, above, below):
    if above == below or above[: len(below)] == below:  # the same folder, or the one around it
        return True
    top, bottom = (folder[0] if folder else "" for folder in (above, below))
    if top == bottom or not order:
        return top != bottom
    ranks = [order.index(name) if name in order else -1 for name in (top, bottom)]
    return ranks[0] < ranks[1] and (top, bottom) not in NEVER


def check(root, tree, order):
    base, edges, faults = root / tree, {}, []
    files = [path for path in sorted(base.rglob("*")) if path.suffix in (".h", ".cpp", ".c")]
    for path in files:
        for name in INCLUDE.findall(path.read_text(encoding="utf-8")):
            target = next((t for t in (base / name, path.parent / name) if t.is_file()), None)
            if target is None:
                continue  # a public header, another tree or a system's
            source, target = path.relative_to(base), target.resolve().relative_to(base.resolve())
            if not allowed(order, source.parent.parts, target.parent.parts):
                faults.append(f"{tree}/{source} includes {tree}/{target}, which is not below it")
            if source.with_suffix("") != target.with_suffix(""):
                edges.setdefault(source.with_suffix(""), {})[target.with_suffix("")] = source, target
    done, under_way = set(), []

    def visit(unit):
        under_way.append(unit)
        for other, (source, target) in edges.get(unit, {}).items():
            if other in under_way:
                faults.append(f"{tree}/{source} includes {tree}/{target}, which leads back to it")
            elif other not in done:
                visit(other)
        done.add(under_way.pop())

    for unit in sorted(edges):
        if unit not in done:
            visit(unit)
    return len(files), faults


ROOT = Path(sys.argv[1] if len(sys.argv) > 1 else Path(__file__).parent.parent)
RESULTS = [check(ROOT, tree, order.split()) for tree, order in ORDER.items()]
for fault in [fault for _, faults in RESULTS for fault in faults]:
    print(fault, file=sys.stderr)
print(f"{sum(count for count, _ in RESULTS)} files, {sum(len(f) for _, f in RESULTS)} includes that run up")
sys.exit(any(faults for _, faults in RESULTS) or not all(count for count, _ in RESULTS))
