#!/bin/bash
# A dongle in another town: a relay on the loopback interface with a simulated dongle and car behind
# it. The VIN is read over TCP and over a WebSocket with TLS; then the relay is killed and started
# again while an application keeps asking, and the application goes on.
set -euo pipefail

cd "$(dirname "$0")/.."
bin=$PWD/build/linux-release
scratch=$(mktemp -d "${TMPDIR:-/tmp}/tarvik-demo.XXXXXX")
export XDG_CONFIG_HOME=$scratch/config TMPDIR=$scratch/tmp
config=$XDG_CONFIG_HOME/Tarvik/Brennix/config.json
mkdir -p "$TMPDIR" "$(dirname "$config")"

relay= monitor=
stop() { # stop SIGNAL PID: and waits for its end
    [ -z "$2" ] || { kill "-$1" "$2" && wait "$2"; } 2>/dev/null || true
}
trap 'stop INT "$monitor"; stop TERM "$relay"; rm -rf "$scratch"' EXIT

# wait_for SECONDS WHAT COMMAND...: until the command succeeds.
wait_for() {
    local deadline=$((SECONDS + $1)) what=$2
    shift 2
    until "$@"; do
        [ $SECONDS -lt $deadline ] || {
            echo "demo: $what did not come" >&2
            exit 1
        }
        sleep 0.1
    done
}

start_relay() { # start_relay TCP-PORT WSS-PORT
    rm -f "$scratch/ready"
    "$bin/brennix-relay" --folder "$scratch/relay" --tcp "$1" --wss "$2" \
        --vehicle tools/simulator/vehicles/demo.json --ready-file "$scratch/ready" \
        >>"$scratch/relay.log" &
    relay=$!
    wait_for 20 "the relay" test -e "$scratch/ready"
    # shellcheck disable=SC1091 # its places, as NAME=VALUE lines
    . "$scratch/ready"
}

write_config() { # write_config true|false: over a WebSocket
    cat >"$config" <<JSON
{
  "showDebug": false, "enableCopTrace": true, "enableDebugLogFile": true,
  "useSerial": false, "useCloud": true, "useBle": false, "dummyDevice": false,
  "serverAddress": "$BRENNIX_RELAY_TCP",
  "useWebsocket": $1, "websocketAddress": "$BRENNIX_RELAY_WSS", "disableCertValidation": true,
  "devicePrivateKey": "", "serverPublicKey": "$BRENNIX_RELAY_PUBLIC_KEY"
}
JSON
    chmod 600 "$config"
}

ask() {
    echo
    echo "\$ dpdu $*"
    "$bin/dpdu" "$@"
}

answers() { grep -c ' answer ' "$scratch/monitor.log" || true; }
has_answers() { [ "$(answers)" -ge "$1" ]; }

echo "A simulated dongle behind a relay on the loopback interface"
start_relay 0 0
tcp_port=${BRENNIX_RELAY_TCP##*:}
wss_port=$(sed 's/.*:\([0-9]*\)\/.*/\1/' <<<"$BRENNIX_RELAY_WSS")

echo
echo "== over TCP ($BRENNIX_RELAY_TCP)"
write_config false
ask doctor
ask modules
ask vin

echo
echo "== over a WebSocket with TLS ($BRENNIX_RELAY_WSS)"
write_config true
ask doctor
ask vin --ecu 7E0:7E8 --ecu 7E1:7E9 --ecu 713:77D

echo
echo "== the relay is lost while an application asks twice a second"
echo "\$ dpdu monitor 22F190 --period 500"
"$bin/dpdu" monitor 22F190 --period 500 >"$scratch/monitor.log" &
monitor=$!
wait_for 30 "an answer" has_answers 3
stop KILL "$relay"
killed=$(wc -l <"$scratch/monitor.log")
start_relay "$tcp_port" "$wss_port"
# A request that was lost with the relay is sent again after ten seconds.
wait_for 60 "an answer of the relay that was started again" has_answers $(($(answers) + 4))
stop INT "$monitor"
monitor=
grep ' sent \| answer ' <(head -n "$killed" "$scratch/monitor.log") | cut -c1-60
echo "              -- the relay is killed, and started again --"
grep ' sent \| answer ' <(tail -n +$((killed + 1)) "$scratch/monitor.log") | cut -c1-60

stop TERM "$relay"
relay=
echo
echo "What the relay said:"
grep '^[0-9:]* \(client\|dongle\) ' "$scratch/relay.log" | cut -c1-120
