#!/bin/bash
# scripts/torture.sh [PRESET...]: every point of every scenario in tests/torture (linux-release). At
# each, one allocation, fifty allocations or one input or output of the library fails. Ends with a
# table of the points, and non-zero if one was bad.
#
# JOBS (80) is how many processes run at a time; each waits nearly all of the time. TORTURE_FILTER is a
# GoogleTest filter, for instance "SerialScan.*". TORTURE_EVERY (1) leaves points out: every 7th, say.
set -uo pipefail

cd "$(dirname "$0")/.."
presets=${*:-linux-release}
every=${TORTURE_EVERY:-1}
programs="torture_dongle torture_relay torture_radio"
# Scenarios with thousands of points, or whose sessions take seconds, are shared by several processes.
many="SerialScan CloudOverTcp CloudOverWebSocket CloudOverSecureWebSocket BleScanAndConnect BleFragmentsBothWays"
shares=40

# Sets command and environment of a test program, as ctest starts it.
read_command() {
    local listing
    listing=$(ctest --preset "$1" -N -V -R "^$2\$" 2>/dev/null | sed 's/^[0-9]*: //')
    eval "command=($(sed -n 's/^Test command: //p' <<<"$listing"))"
    mapfile -t environment < <(sed -n 's/^ \([A-Z_]*=.*\)/\1/p' <<<"$listing" | grep -v '^GTEST_OUTPUT=')
}

# run_share LOG FIRST STRIDE FILTER COMMAND...
run_share() {
    local log=$1
    TORTURE_FIRST=$2 TORTURE_STRIDE=$3 "${@:5}" --gtest_filter="$4" >"$log" 2>&1
    local code=$?
    [ $code = 0 ] || echo "torture: $4 from point $2 ended with $code" >>"$log"
    sed -n '/^torture: /p' "$log"
}

# run_all PRESET FOLDER
run_all() {
    local program test count share pending=0
    for program in $programs; do
        read_command "$1" "$program"
        for test in $(TORTURE_STRIDE=1 "build/$1/tests/conformance/$program" \
            --gtest_filter="${TORTURE_FILTER:-*}" --gtest_list_tests |
            awk '/^[^ ]/ { suite = $1 } /^ / { print suite $1 }'); do
            count=1
            [[ " $many " != *" ${test%%.*} "* ]] || count=$shares
            for ((share = 0; share < count; ++share)); do
                [ $pending -lt "${JOBS:-80}" ] || { wait -n; pending=$((pending - 1)); }
                (
                    export "${environment[@]}"
                    run_share "$2/$test-$share.log" $((1 + share * every)) $((count * every)) \
                        "$test" "${command[@]}"
                ) </dev/null &
                pending=$((pending + 1))
            done
        done
    done
    wait
}

# The numbers of all shares, added up.
print_table() {
    cat "$1"/*.log | awk -F ': ' '
        /^torture: .* points, / {
            split($4, numbers, /[ ,]+/)
            points[$2 ": " $3] += numbers[1]
            bad[$2 ": " $3] += numbers[3]
        }
        END { for (row in points) printf "%-62s %7d points %4d bad\n", row, points[row], bad[row] }' | sort
    ! grep -lE '^torture: .* ended with ' "$1"/*.log
}

worst=0
for preset in $presets; do
    # The simulators of all presets are those of the Linux release build.
    BUILD_TARGETS="brennix-sim brennix-relay brennix-radio brennix-bluez" \
        scripts/build.sh linux-release || exit 1
    BUILD_TARGETS=$programs scripts/build.sh "$preset" || exit 1
    folder=build/logs/torture-$preset
    rm -rf "$folder"
    mkdir -p "$folder"
    run_all "$preset" "$folder"
    echo
    echo "== torture: $preset"
    print_table "$folder" || worst=1
done
exit $worst
