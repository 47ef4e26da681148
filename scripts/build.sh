#!/bin/bash
# scripts/build.sh PRESET...: configures and builds each. BUILD_TARGETS names the targets (all).
set -euo pipefail

cd "$(dirname "$0")/.."
mkdir -p build/logs
# Ninja starts two compilers more than there are processors: a tenth more processor time, and later.
export CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-$(nproc)}

for preset in "$@"; do
    echo "== building $preset"
    log=build/logs/configure-$preset.log
    cmake --preset "$preset" >"$log" 2>&1 || {
        cat "$log" >&2
        exit 1
    }
    # Of a folder that was configured for another compiler CMake forgets the preset's other variables.
    ! grep -q "require your cache to be deleted" "$log" || cmake --fresh --preset "$preset" >"$log" 2>&1
    # shellcheck disable=SC2086 # several words
    cmake --build --preset "$preset" ${BUILD_TARGETS:+--target $BUILD_TARGETS}
done
