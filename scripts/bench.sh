#!/bin/bash
# Runs every benchmark, or those named: scripts/bench.sh [PROGRAM...]. BENCH_OPTIONS is handed to
# each, for instance "--benchmark_filter=InProcess".
set -euo pipefail

cd "$(dirname "$0")/.."
folder=build/linux-release/bench
programs=${*:-$(find "$folder" -maxdepth 1 -type f -executable -printf '%f\n' | sort)}
[ -n "$programs" ] || {
    echo "bench: there is no benchmark in $folder" >&2
    exit 1
}

for program in $programs; do
    echo "== $program"
    "$folder/$program" ${BENCH_OPTIONS:-}
done
