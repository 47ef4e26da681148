#!/bin/bash
# Counts what the unit and conformance tests execute of src on Linux. Writes build/coverage/table.md,
# a table by folder, and build/coverage/html/index.html, which shows each line with its branches.
# CTEST_OPTIONS is passed to ctest; JOBS is how many programs run at a time (4).
set -uo pipefail

cd "$(dirname "$0")/.."
. scripts/results.sh
folder=$PWD/build/coverage

# The simulators are those of the Linux release build.
BUILD_TARGETS="brennix-sim brennix-relay brennix-radio brennix-bluez check_programs" \
    scripts/build.sh linux-release || exit 1
BUILD_TARGETS=coverage_programs scripts/build.sh coverage || exit 1

find "$folder" -name '*.gcda' -delete
rm -rf "$folder/results" "$folder/html"
mkdir -p "$folder/results" "$folder/html"
# In this scenario of tests/torture the library's counts are written while allocations fail: libgcov
# crashes then, and leaves a file that cannot be merged.
export GTEST_FILTER=${GTEST_FILTER:--Unload.*}
# shellcheck disable=SC2086 # several words
ctest --preset coverage -j "${JOBS:-4}" -L 'unit|conformance' \
    --output-junit "$folder/results/ctest.xml" ${CTEST_OPTIONS:-} 2>&1 | tee build/logs/test-coverage.log
code=${PIPESTATUS[0]}

# The branches that the compiler adds for exceptions, and those that it has removed, do not count.
gcovr --root . --filter 'src/' --exclude-throw-branches --exclude-unreachable-branches \
    -j "$(nproc)" --print-summary \
    --json-summary "$folder/summary.json" --html-details "$folder/html/index.html" \
    --html-title "Coverage of src" "$folder/src" "$folder/tests" >build/logs/gcovr.log 2>&1 || {
    cat build/logs/gcovr.log >&2
    exit 1
}
scripts/coverage_table.py "$folder/summary.json" >"$folder/table.md" || exit 1

read -r passed failed skipped < <(count_cases "$folder/results")
failed_cases "$folder/results" coverage
cat "$folder/table.md"
echo "coverage: $passed passed, $failed failed, $skipped skipped; see build/coverage/html/index.html"
[ "$code" = 0 ] && [ "$failed" = 0 ] && [ "$passed" -gt 0 ]
