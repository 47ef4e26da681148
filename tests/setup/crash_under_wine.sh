#!/bin/bash
# crash_under_wine.sh RUN-WINE PROGRAM: a program that crashes under Wine ends with an exit code that is
# not 0, every time. PROGRAM crashes if it has an argument.
set -uo pipefail

"$1" "$2" || exit 1
for _ in 1 2 3 4; do
    ! "$1" "$2" now || exit 1
done
