#!/bin/bash
# scripts/build.sh PRESET...: configures and builds.
set -euo pipefail

cd "$(dirname "$0")/.."
mkdir -p build/logs

for preset in "$@"; do
    echo "== building $preset"
    cmake --preset "$preset" >"build/logs/configure-$preset.log" 2>&1 || {
        cat "build/logs/configure-$preset.log" >&2
        exit 1
    }
    cmake --build --preset "$preset"
done
