#!/bin/bash
# scripts/test.sh [PRESET...]: builds each preset, runs its tests and counts test cases. Ends with a
# line "PRESET: N passed, N failed" for each, and non-zero unless every case passed.
#
# CTEST_OPTIONS is passed to ctest, for instance "-L unit" or "-R link_test"; JOBS is how many
# programs run at a time (5, and 8 of the last preset, beside which none is built).
set -uo pipefail

cd "$(dirname "$0")/.."
. scripts/results.sh
presets=${*:-linux-release windows-release linux-asan linux-tsan}
# What the library writes in its traces is checked, with a package that the tests have installed.
export TARVIK_CHECK_TRACES=yes
jobs=${JOBS:-5} # most tests wait most of the time

ahead= # the process that builds the other presets
clean_up() {
    for tests in "${running[@]}"; do kill -- "-$tests" 2>/dev/null; done
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

# start_tests PRESET JOBS
start_tests() {
    local results=$PWD/build/$1/results
    rm -rf "$results"
    mkdir -p "$results" build/logs
    : >"build/logs/test-$1.log"
    echo "== testing $1"
    set -m # a process group of its own, as above
    (
        {
            # shellcheck disable=SC2086 # several words
            ctest --preset "$1" -j "$2" --output-junit "$results/ctest.xml" ${CTEST_OPTIONS:-} 2>&1
            echo $? >"$results/code"
        } | tee "build/logs/test-$1.log" | sed -u "s/^/$1: /"
    ) </dev/null &
    testing=$1 tests=$!
    set +m
}

# Waits until the last test of the preset that is being tested runs, and no other: one that takes
# minutes then runs beside the first of the next preset.
await_last_test() {
    local log=build/logs/test-$testing.log begun ended all
    while kill -0 "$tests" 2>/dev/null; do
        sleep 0.5
        all=$(grep -m 1 -oE '^ *[0-9]+/[0-9]+ Test' "$log" | sed 's/.*\///; s/ Test//')
        begun=$(grep -cE '^ *Start +[0-9]+:' "$log")
        ended=$(grep -cE '^ *[0-9]+/[0-9]+ Test' "$log")
        [ -z "$all" ] || [ "$begun" -lt "$all" ] || [ $((begun - ended)) -gt 1 ] || return 0
    done
}

# add_results PRESET: adds to the summary.
add_results() {
    local results=$PWD/build/$1/results passed failed skipped line restarts
    read -r passed failed skipped < <(count_cases "$results")
    line="$1: $passed passed, $failed failed"
    [ "$skipped" = 0 ] || line+=", $skipped skipped"
    [ "$failed" = 0 ] && [ "$passed" -gt 0 ] && [ "$(cat "$results/code")" = 0 ] ||
        worst=1 failing+=("$1")
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

summary=() failing=() tested=() running=() worst=0
testing= tests= # the preset whose tests were started last, and their process
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
    [ -z "$testing" ] || await_last_test
    [ "$preset" != "${presets##* }" ] || jobs=${JOBS:-8}
    start_tests "$preset" "$jobs"
    tested+=("$preset") running+=("$tests")
done
wait "${running[@]}"
running=()
for preset in "${tested[@]}"; do add_results "$preset"; done
# Nothing else shows that they still compile.
[ -z "$ahead" ] || build benchmarks || summary+=("benchmarks: 0 passed, 1 failed") worst=1

for preset in "${failing[@]}"; do show_failures "$preset"; done
echo
# The names come last: of a long log, the end is what people see.
for preset in "${failing[@]}"; do failed_cases "build/$preset/results" "$preset"; done
printf '%s\n' "${summary[@]}"
exit $worst
