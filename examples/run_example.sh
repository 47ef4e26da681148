#!/bin/bash
# run_example.sh PROGRAM [ARGUMENT...]: README.md shows the examples beside this script as they are, and
# PROGRAM prints the VIN of the car behind the dongle.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
shown() { sed -n "/^\`\`\`$1\$/,/^\`\`\`\$/p" "$here/../README.md" | sed '1d;$d'; }
shown c | diff - "$here/read_vin.c"
shown cpp | diff - "$here/read_vin.cpp"

config=$BRENNIX_SIM_SCRATCH/config/Tarvik/Brennix
mkdir -p "$config"
echo '{"showDebug": false, "useSerial": true, "useCloud": false, "useBle": false, "dummyDevice": false}' \
    >"$config/config.json"
# Not grep -q: it would close the pipe while the program still prints.
"$@" | tee /dev/stderr | grep '^VIN WTVDEM0S1M0000001$' >/dev/null
