#!/bin/bash
# scripts/build.sh PRESET...: configures and builds each. BUILD_TARGETS names the targets (all).
set -euo pipefail

cd "$(dirname "$0")/.."
mkdir -p build/logs

for preset in "$@"; do
    echo "== building $preset"
    cmake --preset "$preset" >"build/logs/configure-$preset.log" 2>&1 || {
        cat "build/logs/configure-$preset.log" >&2
        exit 1
    }
    # shellcheck disable=SC2086 # several words
    cmake --build --preset "$preset" ${BUILD_TARGETS:+--target $BUILD_TARGETS}
done
