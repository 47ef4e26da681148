#!/bin/bash
# Runs every fuzz target for FUZZ_SECONDS (60), JOBS (one per processor) at a time. Keeps new inputs in
# build/fuzz/found, and an input that breaks something as build/fuzz/crash-TARGET-….
set -uo pipefail

cd "$(dirname "$0")/.."
seconds=${FUZZ_SECONDS:-60}
jobs=${JOBS:-$(nproc)}
folder=build/fuzz/tests/fuzz
# The leak checker takes a thread for an ended one that had the same number, and what only that thread
# refers to for lost. Targets that start threads for every input therefore look for leaks afterwards,
# in a new process and with the inputs that were kept.
many_threads="api_sequence_fuzz bluez_messages_fuzz tcp_stream_fuzz"

# fuzz TARGET: prints a row of the table.
fuzz() {
    local name=${1##*/}
    local found=build/fuzz/found/$name log=build/logs/fuzz-$name.log
    mkdir -p "$found"
    local options=(-max_total_time="$seconds" -artifact_prefix="build/fuzz/crash-$name-" -print_final_stats=1)
    [ ! -f "$1.dict" ] || options+=(-dict="$1.dict")
    local corpora=("$found")  # libFuzzer adds to the first
    [ ! -d "$1.corpus" ] || corpora+=("$1.corpus")
    local result=passed afterwards=()
    [[ " $many_threads " != *" $name "* ]] || afterwards=(-runs=0 "${corpora[@]}")
    "$1" "${options[@]}" ${afterwards[0]:+-detect_leaks=0} "${corpora[@]}" >"$log" 2>&1 || result=failed
    [ -z "${afterwards[0]:-}" ] || "$1" "${afterwards[@]}" >>"$log" 2>&1 || result=failed
    local tried
    tried=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    printf '%-26s %12s inputs  %s\n' "$name" "${tried:-?}" "$result"
    [ $result = passed ] || tail -n 40 "$log"
}

mkdir -p build/logs
echo "== fuzzing for $seconds s each, $jobs at a time"
targets=()
for target in "$folder"/*; do
    [ ! -f "$target" ] || [ ! -x "$target" ] || targets+=("$target")
done
for target in "${targets[@]}"; do
    while [ "$(jobs -rp | wc -l)" -ge "$jobs" ]; do wait -n; done
    fuzz "$target" &
done | tee build/logs/fuzz.log

passed=$(grep -c ' inputs  passed$' build/logs/fuzz.log)
echo "fuzz: $passed passed, $((${#targets[@]} - passed)) failed"
[ "$passed" -gt 0 ] && [ "$passed" = ${#targets[@]} ]
