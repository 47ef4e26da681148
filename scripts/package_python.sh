#!/bin/bash
# scripts/package_python.sh [FOLDER]: makes the wheel of the Python package and leaves it in FOLDER
# (build/packages). The same sources and the same SOURCE_DATE_EPOCH (scripts/source_date.sh) give the
# same bytes in any folder.
set -euo pipefail

cd "$(dirname "$0")/.."
output=$(realpath -m "${1:-build/packages}")
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
log=$stage/log
umask 022
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(scripts/source_date.sh)}
export SOURCE_DATE_EPOCH LC_ALL=C.UTF-8 TZ=UTC

# setuptools leaves its own files beside the sources, and keeps the rights of theirs.
mkdir -p "$output" "$stage/source"
cp -r python/pyproject.toml python/README.md python/tarvik_dpdu "$stage/source/"
find "$stage/source" -name __pycache__ -prune -exec rm -rf {} +
chmod -R u=rwX,go=rX "$stage/source"

# Debian's own Python: the one with Debian's setuptools.
(cd "$stage/source" && /usr/bin/python3 -c "
import sys
from setuptools.build_meta import build_wheel
build_wheel(sys.argv[1])" "$stage") >"$log" 2>&1 || {
    tail -n 20 "$log" >&2
    echo "package_python: making the wheel failed; scripts/setup.sh package installs what is missing" >&2
    exit 1
}
rm -f "$output"/tarvik_dpdu-*.whl
cp "$stage"/tarvik_dpdu-*.whl "$output/"
ls "$output"/tarvik_dpdu-*.whl
