#!/bin/bash
# scripts/demo.sh linux|windows: asks three control units of a simulated car for their VIN, part
# number and trouble codes, one by one and all at once, sends and receives raw frames, all through
# the real library on its serial port, and shows what was logged and traced.
set -euo pipefail

cd "$(dirname "$0")/.."
root=$PWD
system=${1:-}
case $system in
linux) host=linux preset=linux-release ;;
windows) host=wine preset=windows-release ;;
*)
    echo "demo: expected linux or windows, found '$system'" >&2
    exit 2
    ;;
esac

# The second half: runs beside the simulated dongle, with folders of its own.
if [ "${2:-}" = session ]; then
    scratch=${BRENNIX_SIM_SCRATCH#Z:} # a path of Windows when the command is a Windows program
    scratch=${scratch//\\//}
    config=$scratch/config/Tarvik/Brennix
    mkdir -p "$config"
    cat >"$config/config.json" <<'JSON'
{
  "showDebug": false, "enableCopTrace": true, "enableDebugLogFile": true, "useWebsocket": false,
  "useSerial": true, "useCloud": false, "useBle": false, "dummyDevice": false
}
JSON
    dpdu=("build/$preset/dpdu")
    [ "$system" = linux ] || dpdu=(scripts/run-wine.sh "build/$preset/dpdu.exe")
    units=(--ecu 7E0:7E8 --ecu 7E1:7E9 --ecu 713:77D)
    ask() {
        echo
        echo "\$ dpdu $*"
        "${dpdu[@]}" "$@"
    }
    ask modules
    ask vin "${units[@]}"
    ask request --functional 7DF "${units[@]}" 22 F1 87
    ask dtc "${units[@]}"
    ask functional 22F187 --units 7E0,7E1,713:77D
    ask raw send 600 01 0D --repeat 3 --period 50
    ask raw listen --filter 0C0 --filter 18FEF718 --count 6

    rm -rf "build/demo/$system"
    mkdir -p "build/demo/$system"
    cp "$scratch"/tmp/dpdu_* "build/demo/$system/"
    ask trace summary $(ls -tr build/demo/"$system"/dpdu_coptrace_*.jsonl)
    exit
fi

echo "A simulated dongle with three control units behind it, on a serial port ($system)"
tests/fixtures/run_with_dongle.sh "$host" --tools build/linux-release \
    --helper "$root/build/windows-release/wine_port.exe" --strict -- "$0" "$system" session

files_with() { grep -l "$1" build/demo/"$system"/$2 | xargs ls -t; }
log=$(files_with '22 F1 87' 'dpdu_debug_*.log' | head -n 1)
trace=$(files_with '22f187' 'dpdu_coptrace_*.jsonl' | head -n 1)
echo
echo "The debug log of the functional request ($log):"
grep -n -A 24 -m 1 'PDU_COPT_SENDRECV' "$log" | cut -c1-140
echo
echo "Its trace ($trace):"
grep -m 12 '"hCoP":2,\|"req_id":2,' "$trace" | cut -c1-180
