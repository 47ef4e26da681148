#!/bin/bash
# scripts/demo.sh linux|windows: asks three control units of a simulated car for their VIN, part
# number and trouble codes, through the real library on its serial port, and shows what was logged.
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

    rm -rf "build/demo/$system"
    mkdir -p "build/demo/$system"
    cp "$scratch"/tmp/dpdu_* "build/demo/$system/"
    exit
fi

echo "A simulated dongle with three control units behind it, on a serial port ($system)"
tests/fixtures/run_with_dongle.sh "$host" --tools build/linux-release \
    --helper "$root/build/windows-release/wine_port.exe" --strict -- "$0" "$system" session

newest() { ls -t build/demo/"$system"/$1 | head -n 1; }
log=$(newest 'dpdu_debug_*.log')
trace=$(newest 'dpdu_coptrace_*.jsonl')
echo
echo "The debug log of the last command, from its first request on ($log):"
grep -n -A 24 -m 1 'PDU_COPT_SENDRECV' "$log" | cut -c1-140
echo
echo "The trace of the same request ($trace):"
grep -m 12 '"hCoP":2,\|"req_id":2,' "$trace" | cut -c1-180
