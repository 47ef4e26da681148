#!/bin/bash
# scripts/build.sh PRESET...: configures and builds each. BUILD_TARGETS names the targets (all).
set -euo pipefail

cd "$(dirname "$0")/.."
mkdir -p build/logs
# Ninja starts two compilers more than there are processors: a tenth more processor time, and later.
export CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-$(nproc)}

# configure PRESET [OPTION]
configure() {
    cmake "${@:2}" --preset "$1" >"build/logs/configure-$1.log" 2>&1 || {
        cat "build/logs/configure-$1.log" >&2
        exit 1
    }
}

for preset in "$@"; do
    echo "== building $preset"
    configure "$preset"
    # Of a folder that was configured for another compiler CMake forgets the preset's other variables.
    ! grep -q "require your cache to be deleted" "build/logs/configure-$preset.log" ||
        configure "$preset" --fresh
    # shellcheck disable=SC2086 # several words
    cmake --build --preset "$preset" ${BUILD_TARGETS:+--target $BUILD_TARGETS}
done
