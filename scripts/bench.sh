#!/bin/bash
# Runs every benchmark, or those named, and prints their tables, which are left in
# build/bench/table.md as well. With --write the tables go into docs/performance.md.
#
#   scripts/bench.sh [--write] [PROGRAM...]
#
# BENCH_FOLDER names another folder with the programs. BENCH_OPTIONS is handed to each, for
# instance "--benchmark_filter=two_cores".
set -euo pipefail

cd "$(dirname "$0")/.."
folder=${BENCH_FOLDER:-build/linux-release/bench}
output=build/bench
document=docs/performance.md
begin="<!-- bench.sh writes from here -->"
end="<!-- to here -->"

write=no
if [ "${1:-}" = --write ]; then
    write=yes
    shift
fi
programs=${*:-$(find "$folder" -maxdepth 1 -type f -executable -printf '%f\n' 2>/dev/null | sort)}
[ -n "$programs" ] || {
    echo "bench: there is no benchmark in $folder" >&2
    exit 1
}

# table FILE HEADER...: the rows of FILE below their header; nothing without rows.
table() {
    local rows=$output/rows/$1 line="|" rule="|"
    shift
    [ -s "$rows" ] || return 0
    for column in "$@"; do
        line+=" $column |"
        rule+=" --- |"
    done
    printf '%s\n%s\n' "$line" "$rule"
    cat "$rows"
    echo
}

tables() {
    echo "Measured on $(date -u +%Y-%m-%d), $(nproc) cores of $(sed -n 's/^model name[^:]*: //p' \
        /proc/cpuinfo | head -n 1), Linux $(uname -r), $(g++ --version | head -n 1), load average \
$load before the run."
    echo
    echo "Times in microseconds."
    echo
    table round_trips "request" "time" "floor" "times the floor" "p99" "floor's p99" \
        "times the floor's p99" "requests/s" "CPU time" "floor's CPU time"
    table findings "what" "measured" "goal" "met"
    table steps "step" "CPU time in ns"
}

rm -rf "$output/rows"
mkdir -p "$output/rows"
load=$(cut -d ' ' -f 1 /proc/loadavg)
export TARVIK_BENCH_ROWS=$PWD/$output/rows
for program in $programs; do
    echo "== $program"
    # shellcheck disable=SC2086 # several options, several words
    "$folder/$program" --benchmark_color=false ${BENCH_OPTIONS:-} >"$output/$program.txt" 2>&1 || {
        cat "$output/$program.txt" >&2
        exit 1
    }
done
tables >"$output/table.md"
cat "$output/table.md"

if [ $write = yes ]; then
    grep -qF "$begin" "$document" && grep -qF "$end" "$document"
    {
        sed "/^$begin\$/q" "$document"
        cat "$output/table.md"
        sed -n "/^$end\$/,\$p" "$document"
    } >"$output/document.md"
    cp "$output/document.md" "$document"
    echo "bench: $document holds these tables now"
fi
