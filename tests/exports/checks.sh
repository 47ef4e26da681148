# For the scripts beside it: each calls `check` and ends with `exit $((failures > 0))`.
set -uo pipefail

objdump=x86_64-w64-mingw32-objdump
failures=0

check() {
    local what=$1 expected=$2 found=$3
    if [ "$expected" = "$found" ]; then
        echo "ok: $what"
        return
    fi
    failures=$((failures + 1))
    echo "FAILED: $what (- expected, + found)"
    diff -u <(echo "$expected") <(echo "$found") | tail -n +3
}
