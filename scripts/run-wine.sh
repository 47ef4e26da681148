#!/bin/bash
# Runs a Windows program under Wine in the project's own prefix, build/wine/prefix, and passes its
# output and exit code through. TARVIK_WINEPREFIX names another prefix. A program that still runs
# after TARVIK_RUN_LIMIT seconds is ended, after a look at what it and its prefix wait for.
#
# Wine and its server write to files only: a server that outlives the program would otherwise keep
# the caller's pipe open. The server stays for ten minutes, for the next program; scripts/stop-wine.sh
# ends it.
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

# The server that Wine itself starts goes with the last program, and a program that is started
# meanwhile meets services that are about to end. This one stays; if there is a server, it ends.
start_server() {
    local server
    set -m # a process group of its own: an interrupt from the keyboard is not for it
    wineserver -f -p600 </dev/null >/dev/null 2>&1 9>&- &
    server=$!
    set +m
    until [ -e "/proc/$server/cwd/socket" ] || ! kill -0 "$server" 2>/dev/null; do sleep 0.01; done
    disown
}

exec 9>"$WINEPREFIX/.lock"
flock 9
create_prefix
start_server
exec 9>&-

[ $# -gt 0 ] || exit 0

logs=$(mktemp -d "$root/build/wine/logs/run.XXXXXX")
trap 'rm -rf "$logs"' EXIT

# A line for each process of the prefix: number, parent, seconds, name, and where in the kernel how
# many of its threads wait.
show_prefix() {
    local process
    for process in /proc/[0-9]*; do
        grep -qszFx "WINEPREFIX=$WINEPREFIX" "$process/environ" || continue
        [ "$(readlink "$process/exe")" != "$(readlink "/proc/$$/exe")" ] || continue
        echo "$(ps -o pid=,ppid=,etimes=,comm= -p "${process#/proc/}")" \
            "$(for thread in "$process"/task/*; do cat "$thread/wchan" 2>/dev/null && echo; done |
                sort | uniq -c | awk '{ printf " %s*%s", $1, $2 }')"
    done
}

end_after_limit() {
    sleep "$TARVIK_RUN_LIMIT"
    {
        echo "run-wine: ended after $TARVIK_RUN_LIMIT s; the processes of its prefix:"
        show_prefix
    } >"$logs/limit" 2>&1
    kill -KILL "$program"
}

wine "$@" >"$logs/out" 2>"$logs/err" </dev/null &
program=$!
limiter=
if [ -n "${TARVIK_RUN_LIMIT:-}" ]; then
    set -m # a process group of its own, to be ended with its sleep
    end_after_limit </dev/null >/dev/null 2>&1 &
    limiter=$!
    set +m
fi
stop_limiter() { [ -z "$limiter" ] || kill -- "-$limiter" 2>/dev/null; }
trap 'kill -TERM $program 2>/dev/null; stop_limiter; wait $program; cat "$logs/out"; exit 143' TERM INT
wait $program
code=$?
stop_limiter
cat "$logs/out"
cat "$logs/err" >&2
[ ! -e "$logs/limit" ] || cat "$logs/limit" >&2
exit $code
