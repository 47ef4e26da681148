#!/bin/bash
# check_without_bluetooth.sh DPDU LIBRARY SIMULATOR VEHICLE
# Where sdbus-c++ cannot be loaded, the library loads, the log names what is missing, Bluetooth LE is
# off, and a dongle on a serial port works.
set -uo pipefail

dpdu=$1 library=$2 simulator=$3 vehicle=$4
folder=$(mktemp -d "${TMPDIR:-/tmp}/brennix-nosdbus.XXXXXX")
trap 'rm -rf "$folder"' EXIT
failures=0

fail() {
    failures=$((failures + 1))
    echo "FAILED: $1"
}
count() { cat "$folder"/dpdu_debug_*.log | grep -cF "$1"; }

# The loader takes the first file of this name and gives up, as it is no library.
mkdir -p "$folder/lib" "$folder/Tarvik/Brennix"
: >"$folder/lib/libsdbus-c++.so.1"
cat >"$folder/Tarvik/Brennix/config.json" <<END
{"showDebug": false, "enableCopTrace": false, "enableDebugLogFile": true, "useWebsocket": false,
 "useSerial": true, "useCloud": false, "useBle": true, "dummyDevice": true}
END

vin=$("$simulator" --vehicle "$vehicle" --usb ttyACM0 -- env "LD_LIBRARY_PATH=$folder/lib" \
    "XDG_CONFIG_HOME=$folder" "TMPDIR=$folder" "$dpdu" --library "$library" vin --ecu 7E0:7E8) ||
    fail "the exit code is $?"
grep -q WT <<<"$vin" || fail "the dongle's VIN is missing: $vin"

missing='[BLE] Failed to initialize BLE: libsdbus-c++.so.1 cannot be loaded, install the package libsdbus-c++1'
[ "$(count "$missing")" = 1 ] || fail "the log does not say once what is missing"
[ "$(count '[BLE] Not initialized, cannot start')" = 1 ] || fail "Bluetooth was started"
[ "$(count '[BLE] BLE scanning failed')" = 0 ] || fail "a scan tried Bluetooth"
[ $failures = 0 ] || cat "$folder"/dpdu_debug_*.log
exit $((failures > 0))
