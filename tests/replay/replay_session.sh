#!/bin/bash
# Records a session of the client with a simulated car, plays the session's traces, and asks the
# same again. Both times the answers must be the same, and nothing may be asked that the traces do
# not know.
#
#   replay_session.sh LAUNCHER... -- DPDU...
#
# LAUNCHER runs a command with a simulated dongle, options for the simulator before the "--"; DPDU
# runs the client program.
set -uo pipefail

fail() {
    echo "replay_session: $1" >&2
    exit 1
}

# On a busy machine the simulator may miss the 300 ms in which a port must answer. The library leaves
# such a port alone until it comes back, so the dongle is pulled out and put back, as a user would:
# when nobody has its port open for a while and nobody has opened it meanwhile.
replug_when_left_alone() {
    local answer opens= before
    exec 3<>"/dev/tcp/${BRENNIX_SIM_CONTROL/:/\/}" || return
    tell() { echo "$1" >&3 && read -r answer <&3; }
    while true; do
        read -rt 4 answer <&3 # nothing comes unasked
        tell '@0 stats' || return
        before=$opens
        opens=$(sed -n 's/.*"host":false,"opens":\([0-9]*\),.*/\1/p' <<<"$answer")
        [ -n "$opens" ] && [ "$opens" = "$before" ] || continue
        tell unplug
        read -rt 0.5 answer <&3
        tell replug
    done
}

# Within the launcher: asks the car behind the dongle, all questions or another one; answers and
# traces go to folder $3.
if [ "${1:-}" = --ask ]; then
    questions=$2
    folder=$3
    shift 3
    scratch=$(tr '\\' / <<<"${BRENNIX_SIM_SCRATCH#Z:}")
    mkdir -p "$folder" "$scratch/config/Tarvik/Brennix"
    printf '%s' '{"showDebug": false, "useSerial": true, "useCloud": false, "useBle": false,' \
        ' "dummyDevice": false}' >"$scratch/config/Tarvik/Brennix/config.json"
    # Without the lines of progress, which come when something takes longer than a second, and the path
    # of the log, which is another one each time.
    ask() {
        "${dpdu[@]}" "$@" --wait 30 2>&1 | sed 's/\r$//
            /^dpdu: .*[.]\{3\}$/d
            s/; the library.s log is .*//' >>"$folder/answers"
        echo "exit code ${PIPESTATUS[0]}" >>"$folder/answers"
    }
    dpdu=("$@")
    replug_when_left_alone &
    trap "kill $! 2>/dev/null" EXIT
    if [ "$questions" = other ]; then
        ask request --ecu 7E0:7E8 --p2 100 22F1FF
        exit
    fi
    ask vin --ecu 7E0:7E8
    ask dtc --ecu 713:77D
    ask request --ecu 7E1:7E9 --ecu 7E0:7E8 22F187
    ask request --functional 7DF --ecu 713:77D --ecu 7E0:7E8 --ecu 123:456 --p2 200 22F195
    ask request --ecu 7E0:7E8 22FFFF
    ask request --ecu 123:456 --p2 200 22F190
    # Without their times, which vary a little.
    "${dpdu[@]}" raw listen --filter 0C0 --count 5 --time 30 --wait 30 2>&1 |
        sed -n 's/.*\(0C0  \[8\]\)/raw \1/p' >>"$folder/answers"
    cp "$scratch"/tmp/dpdu_coptrace_*.jsonl "$folder"
    exit
fi

launcher=()
while [ $# -gt 0 ] && [ "$1" != -- ]; do
    launcher+=("$1")
    shift
done
[ $# -ge 2 ] || fail "expected LAUNCHER... -- DPDU..."
shift

work=$(mktemp -d "${TMPDIR:-/tmp}/replay-session.XXXXXX")
trap 'rm -rf "$work"' EXIT

"${launcher[@]}" -- "$0" --ask all "$work/recorded" "$@" || fail "the recording failed"
for text in WTVDEM0S1M0000001 C0035-11 'TV-TCU-0420-C\|54 56 2D 54 43 55' 'no answer' \
    'raw 0C0  \[8\]  0C 80 00 00 00 00 00 04'; do
    grep -q "$text" "$work/recorded/answers" || {
        cat "$work/recorded/answers" >&2
        fail "'$text' is not among the answers of the car"
    }
done

# Every line is one that is documented, and a reader passes over what later versions may add.
validate=$(dirname "$0")/../trace_schema/validate.py
[ -z "${TARVIK_CHECK_TRACES:-}" ] || /usr/bin/python3 "$validate" --strict "$work/recorded" ||
    fail "the trace is not as its schema says"
for trace in "$work"/recorded/*.jsonl; do
    sed -i 's/,"ev":/,"future":{"a":[1,"x"]},"half":0.5,"ev":/
        3s/.*/{"seq":3,"ts_us":1,"pid":1,"tid":1,"ev":"of_the_future"}\n&/' "$trace"
done

"${launcher[@]}" replay "$work"/recorded/*.jsonl --strict -- \
    "$0" --ask all "$work/replayed" "$@" || fail "the replay failed, exit code $?"
diff "$work/recorded/answers" "$work/replayed/answers" >&2 ||
    fail "the answers differ: < recorded, > replayed"

# What the traces do not know is told.
"${launcher[@]}" replay "$work"/recorded/*.jsonl --strict -- \
    "$0" --ask other "$work/unknown" "$@" 2>"$work/complaints"
code=$?
[ $code -eq 3 ] || fail "exit code $code for a request that is not in the traces, expected 3"
grep -q 'not in the trace: 7E0 to 7E8: 22F1FF' "$work/complaints" ||
    fail "nothing says what is not in the traces"
