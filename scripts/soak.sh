#!/bin/bash
# scripts/soak.sh ROUNDS [PRESET...]: runs the suites of all presets ROUNDS times, in random order,
# while a real-time process takes each processor away for 20 to 300 ms about twice a second. Prints
# every failure and, at the end, how often each case failed; ends non-zero if one did.
#
# SOAK_OPTIONS is passed to ctest, for instance "-R link_test"; JOBS is how many programs run at a
# time (3). SOAK_BUILD=no takes the build folders as they are. GTEST_SHUFFLE=1 also shuffles the cases
# of each program. SOAK_PROCESSORS lists the processors to take away (all). Real-time priority needs
# root or CAP_SYS_NICE; without it the script stops.
set -uo pipefail

cd "$(dirname "$0")/.."
. scripts/results.sh

rounds=${1:-}
[[ $rounds =~ ^[1-9][0-9]*$ ]] || { sed -n '2,4s/^# //p' "$0" >&2; exit 2; }
shift
presets=("$@")
[ $# -gt 0 ] || presets=(linux-release windows-release linux-asan linux-tsan)
folder=${SOAK_FOLDER:-$PWD/build/soak} # logs, and the list of failures
failures=$folder/failures.txt

disturbers=()
clean_up() {
    [ ${#disturbers[@]} = 0 ] || kill "${disturbers[@]}" 2>/dev/null
    [[ ${presets[*]} != *windows* ]] || scripts/stop-wine.sh
}
trap clean_up EXIT
trap 'exit 130' INT TERM

# Keeps one processor busy for 20 to 300 ms, then leaves it alone for 200 to 480 ms, and so on. Both
# the clock and the pause are the shell's own: a program to start would take longer.
disturb() {
    local busy_until pause
    exec {pause}<> <(:)
    while :; do
        busy_until=$((${EPOCHREALTIME/[.,]/} + (20 + RANDOM % 281) * 1000))
        while [ "${EPOCHREALTIME/[.,]/}" -lt $busy_until ]; do :; done
        read -rt "0.$((200 + RANDOM % 281))" -u "$pause"
    done
}

start_disturbing() {
    local processor processors=${SOAK_PROCESSORS-$(all_processors)}
    [ -n "$processors" ] || return 0
    chrt -f 50 true 2>/dev/null || {
        echo "soak: no right to real-time priority; run it as root" >&2
        exit 2
    }
    for processor in $processors; do
        chrt -f 50 taskset -c "$processor" bash -c "$(declare -f disturb); disturb" \
            </dev/null >/dev/null 2>&1 &
        disturbers+=($!)
    done
}

# The processors that this process may use, one a line.
all_processors() {
    local range
    for range in $(taskset -cp $$ | sed 's/.*: //; s/,/ /g'); do seq "${range%-*}" "${range#*-}"; done
}

# run_round ROUND PRESET: adds a line "PRESET CASE" to the failures for each that failed.
run_round() {
    local results=$PWD/build/$2/results passed failed skipped
    rm -rf "$results"
    mkdir -p "$results"
    # shellcheck disable=SC2086 # several words
    ctest --preset "$2" -j "${JOBS:-3}" --schedule-random \
        --output-junit "$results/ctest.xml" ${SOAK_OPTIONS:-} >"$folder/$2-$1.log" 2>&1
    read -r passed failed skipped < <(count_cases "$results")
    [ $((passed + failed)) -gt 0 ] || failed=1
    echo "round $1: $2: $passed passed, $failed failed"
    [ "$failed" = 0 ] || {
        failed_cases "$results" "$2" | tee -a "$failures"
        [ "$passed" -gt 0 ] || echo "$2: nothing ran, see $folder/$2-$1.log" | tee -a "$failures"
        cp "build/$2/Testing/Temporary/LastTest.log" "$folder/$2-$1.failed.log" 2>/dev/null
    }
}

if [ "${SOAK_BUILD:-}" != no ]; then
    scripts/build.sh linux-release "${presets[@]}" || exit 1
fi
rm -rf "$folder"
mkdir -p "$folder"
: >"$failures"
start_disturbing
for ((round = 1; round <= rounds; round++)); do
    for preset in "${presets[@]}"; do run_round "$round" "$preset"; done
done

echo
if [ ! -s "$failures" ]; then
    echo "soak: $rounds rounds of ${presets[*]} without a failure"
    exit 0
fi
echo "soak: failures in $rounds rounds; logs are in $folder"
sort "$failures" | uniq -c | sort -rn
exit 1
