#!/bin/bash
# scripts/check.sh: what to run after an edit. Builds the Linux release's unit tests and quick
# conformance tests and runs them. CTEST_OPTIONS is passed to ctest.
set -uo pipefail

cd "$(dirname "$0")/.."
. scripts/results.sh

BUILD_TARGETS=check_programs scripts/build.sh linux-release || exit 1

results=$PWD/build/linux-release/results
rm -rf "$results"
mkdir -p "$results"
# shellcheck disable=SC2086 # several words
ctest --preset linux-release -j "${JOBS:-4}" -L 'unit|quick' --output-junit "$results/ctest.xml" \
    ${CTEST_OPTIONS:-}
code=$?
read -r passed failed skipped < <(count_cases "$results")
failed_cases "$results" linux-release
echo "check: $passed passed, $failed failed, $skipped skipped"
[ $code = 0 ] && [ "$failed" = 0 ] && [ "$passed" -gt 0 ]
