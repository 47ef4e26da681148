#!/bin/bash
# scripts/test.sh [PRESET...]: builds each preset, runs its tests and counts test cases. Ends with a
# line "PRESET: N passed, N failed" for each, and non-zero unless every case passed.
#
# CTEST_OPTIONS is passed to ctest, for instance "-L unit" or "-R link_test"; JOBS is how many
# programs run at a time (3).
set -uo pipefail

cd "$(dirname "$0")/.."
. scripts/results.sh
presets=${*:-linux-release windows-release linux-asan linux-tsan}
jobs=${JOBS:-3} # most tests wait most of the time

ahead= # the process that builds the other presets
clean_up() {
    [ -z "$ahead" ] || kill -- "-$ahead" 2>/dev/null
    [[ $presets != *windows* ]] || scripts/stop-wine.sh
}
trap clean_up EXIT
trap 'exit 130' INT TERM

# build_now PRESET | benchmarks
build_now() {
    case $1 in
        benchmarks) BUILD_TARGETS=benchmarks scripts/build.sh linux-release ;;
        *) scripts/build.sh "$1" ;;
    esac
}

# Builds presets one after the other with the processor time that waiting tests leave. Each leaves
# the exit code of its build in build/logs/built-PRESET.
build_ahead() {
    local preset
    mkdir -p build/logs
    for preset in "$@"; do rm -f "build/logs/built-$preset"; done
    set -m # a process group of its own, so that it can be ended as one
    for preset in "$@"; do
        renice -n 19 "$BASHPID" >/dev/null
        build_now "$preset" >"build/logs/build-$preset.log" 2>&1
        echo $? >"build/logs/built-$preset.new"
        mv "build/logs/built-$preset.new" "build/logs/built-$preset"
    done </dev/null &
    ahead=$!
    set +m
}

# Waits until build_ahead is done with the preset, or builds it now.
build() {
    [ -n "$ahead" ] || { build_now "$1"; return; }
    until [ -f "build/logs/built-$1" ]; do
        kill -0 "$ahead" 2>/dev/null || { [ -f "build/logs/built-$1" ] || return 1; }
        sleep 0.2
    done
    cat "build/logs/build-$1.log"
    return "$(cat "build/logs/built-$1")"
}

# run_tests PRESET: runs them and adds to the summary.
run_tests() {
    local results=$PWD/build/$1/results passed failed skipped line restarts
    rm -rf "$results"
    mkdir -p "$results"
    echo "== testing $1"
    # shellcheck disable=SC2086 # several words
    ctest --preset "$1" -j "$jobs" --output-junit "$results/ctest.xml" ${CTEST_OPTIONS:-} || worst=1
    read -r passed failed skipped < <(count_cases "$results")
    line="$1: $passed passed, $failed failed"
    [ "$skipped" = 0 ] || line+=", $skipped skipped"
    [ "$failed" = 0 ] && [ "$passed" -gt 0 ] || worst=1 failing+=("$1")
    restarts=$(grep -acs "^run-wine: Wine's server has crashed" "build/$1/Testing/Temporary/LastTest.log")
    [ "${restarts:-0}" = 0 ] ||
        summary+=("$1: Wine's server crashed under $restarts programs, which were run again")
    summary+=("$line")
}

# The last output of the programs that failed.
show_failures() {
    local name output=build/logs/failed.txt
    failed_programs "build/$1/results" | while read -r name; do
        echo "-- $1: $name failed"
        program_log "$name" "$1" | cut -c 1-400 >"$output"
        grep -aE "^\[  FAILED  \]|: Failure$|WARNING: ThreadSanitizer|ERROR: AddressSanitizer|runtime error:" \
            "$output" | tail -n 15
        tail -n 40 "$output"
    done
}

# The simulators of all presets are those of the Linux release build.
[[ $presets == linux-release* ]] || scripts/build.sh linux-release || exit 1

summary=() failing=() worst=0
for preset in $presets; do
    if ! build "$preset"; then
        summary+=("$preset: 0 passed, 1 failed")
        echo "$preset does not build" >&2
        worst=1
        continue
    fi
    others=${presets#"$preset"}
    # shellcheck disable=SC2086 # several words
    [ -n "$ahead" ] || [ -z "$others" ] || build_ahead $others benchmarks
    run_tests "$preset"
done
# Nothing else shows that they still compile.
[ -z "$ahead" ] || build benchmarks || summary+=("benchmarks: 0 passed, 1 failed") worst=1

for preset in "${failing[@]}"; do show_failures "$preset"; done
echo
# The names come last: of a long log, the end is what people see.
for preset in "${failing[@]}"; do failed_cases "build/$preset/results" "$preset"; done
printf '%s\n' "${summary[@]}"
exit $worst
