#!/bin/bash
# run_example.sh PROGRAM: the example of README.md is the file beside this script, and its program
# prints the VIN of the car behind the dongle.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
sed -n '/^```c$/,/^```$/p' "$here/../README.md" | sed '1d;$d' | diff - "$here/read_vin.c"

config=$BRENNIX_SIM_SCRATCH/config/Tarvik/Brennix
mkdir -p "$config"
echo '{"showDebug": false, "useSerial": true, "useCloud": false, "useBle": false, "dummyDevice": false}' \
    >"$config/config.json"
# Not grep -q: it would close the pipe while the program still prints.
"$1" | tee /dev/stderr | grep '^VIN WTVDEM0S1M0000001$' >/dev/null
