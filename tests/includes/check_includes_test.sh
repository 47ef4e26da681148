#!/bin/bash
# Shows that the include check accepts includes that run down and names both files of one that runs
# up. $1: the check.
set -eu
check=$1
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT

# has FILE INCLUDE...: a source file that includes these.
has() {
    local file=$tree/src/$1
    shift
    mkdir -p "${file%/*}"
    printf '#include "%s"\n' "$@" >"$file"
}

# expect CODE TEXT...: the check's exit code, and lines that it must print.
expect() {
    local code=0 wanted=$1 line
    shift
    "$check" "$tree" >"$tree/output" 2>&1 || code=$?
    [ "$code" = "$wanted" ] || { echo "exit code $code instead of $wanted"; cat "$tree/output"; exit 1; }
    for line in "$@"; do
        grep -qFx "$line" "$tree/output" || { echo "missing: $line"; cat "$tree/output"; exit 1; }
    done
}

has worker/exchange.h objects/record.h
has worker/exchange.cpp worker/exchange.h link/packet.h dpdu_types.h
has objects/record.h link/packet.h comparam/values.h
has comparam/values.h support/log.h
has link/packet.h support/log.h
has support/log.h string.h
has transport/transport.h link/packet.h
has transport/serial/port.h transport/transport.h
expect 0 "8 files, 0 includes that run up"

has link/packet.h worker/exchange.h
expect 1 "src/link/packet.h includes src/worker/exchange.h, which is above it"
has link/packet.h support/log.h

has comparam/values.h link/packet.h
expect 1 "src/comparam/values.h includes src/link/packet.h, which is above it"
has comparam/values.h support/log.h

has transport/transport.h transport/serial/port.h
expect 1 "src/transport/transport.h includes src/transport/serial/port.h, which is above it"
has transport/transport.h link/packet.h

# In one folder, a header and the source of the same name count as one.
has support/memory.h string.h
has support/memory.cpp support/log.h
has support/log.h support/memory.h
expect 1 "src/support/memory.cpp includes src/support/log.h, which leads back to it"
has support/log.h string.h

# A folder that the order does not know.
has gadgets/new.h support/log.h
expect 1 "src/gadgets/new.h includes src/support/log.h, which is above it"
rm -r "$tree/src/gadgets"

expect 0
