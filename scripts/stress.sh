#!/bin/bash
# scripts/stress.sh [PRESET...]: sixteen threads make random calls for DPDU_STRESS_SECONDS (60; ctest
# allows some 800), with the library as it is released and under the thread sanitizer. Each run
# prints its seed first; with that in DPDU_STRESS_SEED the threads choose the same calls again.
set -uo pipefail

cd "$(dirname "$0")/.."
presets=${*:-linux-release linux-tsan}
program=conformance_random_calls
export DPDU_STRESS_SECONDS=${DPDU_STRESS_SECONDS:-60}
passed=0 failed=0

# The simulated dongles of all presets are those of the Linux release build.
BUILD_TARGETS=brennix-sim scripts/build.sh linux-release || exit 1
for preset in $presets; do
    BUILD_TARGETS=$program scripts/build.sh "$preset" || exit 1
    echo "== random calls on $preset for $DPDU_STRESS_SECONDS s"
    if ctest --preset "$preset" -R "^$program\$" --verbose 2>&1 | tee "build/logs/stress-$preset.log"; then
        passed=$((passed + 1))
    else
        failed=$((failed + 1))
    fi
done

echo "stress: $passed passed, $failed failed"
[ $failed = 0 ] && [ $passed -gt 0 ]
