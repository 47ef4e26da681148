#!/bin/bash
# scripts/demo_ble.sh linux|windows: a dongle that is reached by Bluetooth LE, without a radio. The
# dongle is found by its advertisement, connected and asked for the VIN; a long request goes out in
# fragments, and its answer comes in fragments. On Linux BlueZ is simulated on a private message bus, under Wine the runtime's classes.
set -euo pipefail

cd "$(dirname "$0")/.."
system=${1:-}
case $system in
linux) host=linux dpdu=(build/linux-release/dpdu) ;;
windows) host=wine dpdu=(scripts/run-wine.sh build/windows-release/dpdu.exe) ;;
*)
    echo "demo: expected linux or windows, found '$system'" >&2
    exit 2
    ;;
esac

# The second half: runs with the simulated dongle in reach.
if [ "${2:-}" = session ]; then
    ask() {
        echo
        echo "\$ dpdu $*"
        "${dpdu[@]}" "$@"
    }
    ask modules
    ask vin --ecu 7E0:7E8 --ecu 7E1:7E9 --ecu 713:77D
    # The VIN many times in one request and one answer: fragments both ways.
    ask request "22$(printf 'F190%.0s' {1..150})" | cut -c1-120
    exit
fi

scratch=$(mktemp -d "${TMPDIR:-/tmp}/tarvik-demo.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
mkdir -p "$scratch/tmp" "$scratch/config/Tarvik/Brennix"
cat >"$scratch/config/Tarvik/Brennix/config.json" <<'JSON'
{
  "showDebug": false, "enableCopTrace": false, "enableDebugLogFile": true,
  "useSerial": false, "useCloud": false, "useBle": true, "dummyDevice": false
}
JSON
if [ "$system" = linux ]; then
    export XDG_CONFIG_HOME=$scratch/config TMPDIR=$scratch/tmp
else
    # A prefix of the demonstration's own, whose folders may stay as they are set here.
    export TARVIK_WINEPREFIX=$PWD/build/wine/demo-prefix
    trap 'scripts/stop-wine.sh; rm -rf "$scratch"' EXIT
    windows_path() { echo "Z:${1//\//\\}"; }
    scripts/run-wine.sh build/windows-release/wine_port.exe folders \
        "$(windows_path "$scratch/config")" "$(windows_path "$scratch/tmp")" >"$scratch/wine.log"
fi

echo "A simulated dongle with three control units behind it, in reach of Bluetooth ($system)"
tests/fixtures/run_with_radio.sh "$host" --tools build/linux-release -- "$0" "$system" session

log=$(grep -l 'type: GARF' "$scratch"/tmp/dpdu_debug_*.log | head -n 1)
echo
echo "The debug log of the long request:"
grep -F '[BLE' "$log" | tail -n 36 | cut -c1-110
