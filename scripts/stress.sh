#!/bin/bash
# scripts/stress.sh [PRESET...]: sixteen threads make random calls for DPDU_STRESS_SECONDS (60; ctest
# allows about 800), with the released library and under the thread sanitizer. Each run first prints
# its seed; with that in DPDU_STRESS_SEED the threads choose the same calls again.
#
# With the released library, fifty programs then make requests to fifty dongles behind one relay for
# as long, over TCP and over a WebSocket (ctest allows about 400 seconds of each). No answer may be
# lost, come twice or reach another program. Each program prints its counts.
set -uo pipefail

cd "$(dirname "$0")/.."
presets=${*:-linux-release linux-tsan}
export DPDU_STRESS_SECONDS=${DPDU_STRESS_SECONDS:-60}
export DPDU_LOAD_CLIENTS=${DPDU_LOAD_CLIENTS:-50}
passed=0 failed=0

# stress PRESET PROGRAM WHAT
stress() {
    BUILD_TARGETS=$2 scripts/build.sh "$1" || exit 1
    echo "== $3 on $1 for $DPDU_STRESS_SECONDS s"
    if ctest --preset "$1" -R "^$2\$" --verbose 2>&1 | tee "build/logs/stress-$1-$2.log"; then
        passed=$((passed + 1))
    else
        failed=$((failed + 1))
    fi
}

# The simulators of all presets are those of the Linux release build.
BUILD_TARGETS="brennix-sim brennix-relay" scripts/build.sh linux-release || exit 1
for preset in $presets; do
    stress "$preset" conformance_random_calls "random calls"
    [ "$preset" != linux-release ] || stress "$preset" conformance_cloud_load "the relay's load"
done

echo "stress: $passed passed, $failed failed"
[ $failed = 0 ] && [ $passed -gt 0 ]
