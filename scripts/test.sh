#!/bin/bash
# scripts/test.sh [PRESET...]: builds each preset, runs all its tests and counts test cases for each.
# Ends with a line "PRESET: N passed, N failed" for each, and non-zero unless all is well.
# CTEST_OPTIONS is handed to ctest, for instance "-L unit" or "-R Reassembly".
set -uo pipefail

cd "$(dirname "$0")/.."
presets=${*:-linux-release windows-release linux-asan linux-tsan}
jobs=${JOBS:-3} # most tests wait most of the time

ahead= # the process that builds the next preset
clean_up() {
    [ -z "$ahead" ] || kill -- "-$ahead" 2>/dev/null
    scripts/stop-wine.sh
}
trap clean_up EXIT
trap 'exit 130' INT TERM

# Tests wait most of the time. What they leave of the processors builds the next preset.
build_ahead() {
    mkdir -p build/logs
    set -m # a process group of its own, to be ended as one
    nice -n 19 scripts/build.sh "$1" >"build/logs/build-$1.log" 2>&1 </dev/null &
    ahead=$!
    set +m
}

# Builds the preset, unless that has been done or begun.
build() {
    [ -n "$ahead" ] || { scripts/build.sh "$1"; return; }
    wait "$ahead"
    local code=$?
    ahead=
    cat "build/logs/build-$1.log"
    return $code
}

# Test programs say in XML how many cases they ran; ctest says which programs failed. A program that
# ended badly without saying so in its XML (a crash, a sanitizer's report) counts as one failure.
count() {
    local results=$1 name status file
    [ -f "$results/ctest.xml" ] || { echo "0 0 0"; return; }
    sed -n 's/.*<testcase name="\([^"]*\)".* status="\([^"]*\)".*/\2 \1/p' "$results/ctest.xml" |
        while read -r status name; do
            file=$results/$name.xml
            if [ -f "$file" ]; then
                echo "xml $status $(cases_in "$file")"
            else
                echo "plain $status 0 0 0"
            fi
        done |
        awk '{
                if ($1 == "xml") {
                    passed += $3; failed += $4; skipped += $5
                    if ($2 == "fail" && $4 == 0) failed++
                } else if ($2 == "run") passed++
                else failed++
            }
            END { print passed + 0, failed + 0, skipped + 0 }'
}

# Passed, failed and skipped cases of one GoogleTest XML file.
cases_in() {
    awk '/<testcase / {
            total++
            if (/status="notrun"/ || /result="skipped"/ || /result="suppressed"/) skipped++
            open = 1
        }
        /<failure/ && open { failed++; open = 0 }
        END { print total - failed - skipped, failed + 0, skipped + 0 }' "$1"
}

failed_programs() {
    [ ! -f "$1/ctest.xml" ] || sed -n 's/.*<testcase name="\([^"]*\)".* status="fail".*/\1/p' "$1/ctest.xml"
}

# What the programs that failed last said.
show_failures() {
    local results=$1 log=$PWD/build/$2/Testing/Temporary/LastTest.log name
    failed_programs "$results" | while read -r name; do
        echo "-- $2: $name failed"
        awk -v start="Testing: $name" '
            index($0, "Testing: ") { shown = substr($0, index($0, "Testing: ")) == start }
            shown' "$log" | cut -c 1-400 >"$results/failed.txt"
        grep -aE "^\[  FAILED  \]|: Failure$|WARNING: ThreadSanitizer|ERROR: AddressSanitizer|runtime error:" \
            "$results/failed.txt" | tail -n 15
        tail -n 40 "$results/failed.txt"
    done
}

# A line for each of them. These stand last: of a long log one gets to see the end.
list_failures() {
    local results=$1 name
    failed_programs "$results" | while read -r name; do
        echo "$2: $name: $(grep -aB 1 "<failure " "$results/$name.xml" 2>/dev/null |
            sed -n 's/.*<testcase name="\([^"]*\)".*/\1/p' | sort -u | head -n 5 | paste -sd ' ' |
            grep . || echo "no results, see above")"
    done
}

# The simulated dongle of all presets is that of the Linux release build.
[[ $presets == linux-release* ]] || scripts/build.sh linux-release || exit 1

summary=() failing=() worst=0
read -ra waiting <<<"$presets"
while [ ${#waiting[@]} -gt 0 ]; do
    preset=${waiting[0]}
    waiting=("${waiting[@]:1}")
    if ! build "$preset"; then
        summary+=("$preset: 0 passed, 1 failed")
        echo "$preset does not build" >&2
        worst=1
        continue
    fi
    results=$PWD/build/$preset/results
    rm -rf "$results"
    mkdir -p "$results"
    [ ${#waiting[@]} = 0 ] || build_ahead "${waiting[0]}"
    echo "== testing $preset"
    ctest --preset "$preset" -j "$jobs" --output-junit "$results/ctest.xml" ${CTEST_OPTIONS:-} || worst=1
    read -r passed failed skipped < <(count "$results")
    line="$preset: $passed passed, $failed failed"
    [ "$skipped" = 0 ] || line+=", $skipped skipped"
    [ "$failed" = 0 ] && [ "$passed" -gt 0 ] || worst=1 failing+=("$preset")
    again=$(grep -acs "^run-wine: Wine's server has crashed" "build/$preset/Testing/Temporary/LastTest.log")
    [ "${again:-0}" = 0 ] ||
        summary+=("$preset: Wine's server crashed $again times under programs, which were run again")
    summary+=("$line")
done

for preset in "${failing[@]}"; do
    show_failures "$PWD/build/$preset/results" "$preset"
done
echo
for preset in "${failing[@]}"; do
    list_failures "$PWD/build/$preset/results" "$preset"
done
printf '%s\n' "${summary[@]}"
exit $worst
