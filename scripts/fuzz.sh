#!/bin/bash
# Runs every fuzz target for FUZZ_SECONDS (60). Keeps new inputs in build/fuzz/found, and an input that
# breaks something as build/fuzz/crash-TARGET-….
set -uo pipefail

cd "$(dirname "$0")/.."
seconds=${FUZZ_SECONDS:-60}
folder=build/fuzz/tests/fuzz
passed=0 failed=0

for target in "$folder"/*; do
    [ -f "$target" ] && [ -x "$target" ] || continue
    name=${target##*/}
    found=build/fuzz/found/$name
    mkdir -p "$found"
    options=(-max_total_time="$seconds" -artifact_prefix="build/fuzz/crash-$name-" -print_final_stats=1)
    [ ! -f "$target.dict" ] || options+=(-dict="$target.dict")
    corpora=("$found")  # libFuzzer adds to the first
    [ ! -d "$target.corpus" ] || corpora+=("$target.corpus")
    echo "== fuzzing $name for $seconds s"
    if "$target" "${options[@]}" "${corpora[@]}" >"build/logs/fuzz-$name.log" 2>&1; then
        passed=$((passed + 1))
        sed -n 's/^stat::number_of_executed_units: */   inputs tried: /p' "build/logs/fuzz-$name.log"
    else
        failed=$((failed + 1))
        tail -n 40 "build/logs/fuzz-$name.log"
    fi
done

echo "fuzz: $passed passed, $failed failed"
[ $failed = 0 ] && [ $passed -gt 0 ]
