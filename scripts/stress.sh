#!/bin/bash
# scripts/stress.sh [PRESET...]: sixteen threads make random calls for DPDU_STRESS_SECONDS (60; ctest
# allows some 800), with the library as it is released and under the thread sanitizer. Each run
# prints its seed first; with that in DPDU_STRESS_SEED the threads choose the same calls again.
#
# As it is released, fifty programs then ask fifty dongles behind one relay for as long, over TCP and
# over a WebSocket (ctest allows some 400 seconds of each). No answer may be lost, come twice or go
# to another; each program prints what it got done.
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

# The simulated dongles of all presets are those of the Linux release build.
BUILD_TARGETS="brennix-sim brennix-relay" scripts/build.sh linux-release || exit 1
for preset in $presets; do
    stress "$preset" conformance_random_calls "random calls"
    [ "$preset" != linux-release ] || stress "$preset" conformance_cloud_load "the relay's load"
done

echo "stress: $passed passed, $failed failed"
[ $failed = 0 ] && [ $passed -gt 0 ]
