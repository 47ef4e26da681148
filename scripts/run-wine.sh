#!/bin/bash
# Runs a Windows program under Wine in the project's own prefix, build/wine/prefix, and passes its
# output and exit code through. TARVIK_WINEPREFIX names another prefix.
#
# Wine and its server write to files only: a server that outlives the program would otherwise keep
# the caller's pipe open. The server stays for the next program; scripts/stop-wine.sh ends it.
set -uo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
export WINEPREFIX=${TARVIK_WINEPREFIX:-$root/build/wine/prefix}
export WINEDEBUG=${WINEDEBUG:--all} WINEDLLOVERRIDES="mscoree=;mshtml=;winemenubuilder.exe=d"

for tool in wine wineboot wineserver; do
    command -v $tool >/dev/null || {
        echo "run-wine: the program '$tool' is missing; run scripts/setup.sh windows" >&2
        exit 127
    }
done

mkdir -p "$WINEPREFIX" "$root/build/wine/logs"

create_prefix() {
    [ ! -e "$WINEPREFIX/created" ] || return 0
    wineboot --init >"$root/build/wine/logs/wineboot.log" 2>&1 </dev/null 9>&- || {
        echo "run-wine: the Wine prefix could not be created; see $root/build/wine/logs/wineboot.log" >&2
        exit 127
    }
    touch "$WINEPREFIX/created"
}
exec 9>"$WINEPREFIX/.lock"
flock 9
create_prefix
exec 9>&-

[ $# -gt 0 ] || exit 0

logs=$(mktemp -d "$root/build/wine/logs/run.XXXXXX")
trap 'rm -rf "$logs"' EXIT

wine "$@" >"$logs/out" 2>"$logs/err" </dev/null &
program=$!
trap 'kill -TERM $program 2>/dev/null; wait $program; cat "$logs/out"; exit 143' TERM INT
wait $program
code=$?
cat "$logs/out"
cat "$logs/err" >&2
exit $code
