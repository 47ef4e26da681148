#!/bin/bash
# exit_code_test.sh PROGRAM VEHICLE: the exit code of the relay, with and without --strict.
source "$(dirname "$0")/../exports/checks.sh"

program=$1 vehicle=$2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# code_of COMMAND [OPTION]...
code_of() {
    local command=$1
    shift
    "$program" --folder "$folder" --vehicle "$vehicle" --tcp 0 "$@" -- bash -c "$command" \
        >/dev/null 2>&1
    echo $?
}
# A packet header with a length that none can have; then the relay closes the connection.
breaks_protocol='exec 3<>"/dev/tcp/${BRENNIX_RELAY_TCP/://}"
    printf "CNYS\003\000\000\000" >&3
    cat <&3 >/dev/null'

check "strict, nothing is broken" 42 "$(code_of 'exit 42' --strict)"
check "strict, the protocol is broken" 3 "$(code_of "$breaks_protocol; exit 0" --strict)"
check "strict, the protocol is broken and the command fails" 3 \
    "$(code_of "$breaks_protocol; exit 42" --strict)"
check "not strict, the protocol is broken and the command fails" 42 \
    "$(code_of "$breaks_protocol; exit 42")"
exit $((failures > 0))
