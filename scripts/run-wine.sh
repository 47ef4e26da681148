#!/bin/bash
# Runs a Windows program under Wine in the project's own prefix, build/wine/prefix, and passes on its
# output and exit code. TARVIK_WINEPREFIX names another prefix. After TARVIK_RUN_LIMIT seconds it
# lists what the programs of the prefix wait for, and ends the program.
#
# Wine's server crashes now and then while a program with network connections ends, and takes all
# programs of its prefix with it. Such a run says nothing about the program, so it is run again. With
# TARVIK_RUN_ONCE set, where more than the program must be restarted, the exit code is 75 instead.
#
# Wine and its server write to files only: a server that outlives the program would otherwise keep
# the caller's pipe open. The server stays for ten minutes, for the next program; scripts/stop-wine.sh
# ends it.
set -uo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
export WINEPREFIX=${TARVIK_WINEPREFIX:-$root/build/wine/prefix}
export LC_ALL=C.UTF-8 # else Wine can only use file names in ASCII
# Without a debugger: under one, a program that crashes ends with the exit code 0 now and then.
export WINEDEBUG=${WINEDEBUG:--all} WINEDLLOVERRIDES="mscoree=;mshtml=;winemenubuilder.exe=d;winedbg.exe=d"

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

# The server that Wine itself starts ends with the last program, and a program that is started at that
# moment meets services that are about to end. This one stays. It is not started beside another: it
# would end at once, and could be taken for the prefix's server until then.
start_server() {
    local server
    set -m # a process group of its own: an interrupt from the keyboard must not reach it
    wineserver -f -p600 </dev/null >/dev/null 2>&1 9>&- &
    server=$!
    set +m
    until [ -e "/proc/$server/cwd/socket" ] || ! kill -0 "$server" 2>/dev/null; do sleep 0.01; done
    disown
}

is_of_prefix() { grep -qszFx "WINEPREFIX=$WINEPREFIX" "$1/environ"; }

# Prints the server's process, or nothing. The oldest if there are several: one that is started
# beside a server ends at once.
find_server() {
    local process name oldest= oldest_start= fields
    for process in /proc/[0-9]*; do
        { read -r name <"$process/comm"; } 2>/dev/null || continue
        [[ $name == wineserver* ]] && is_of_prefix "$process" || continue
        { read -r fields <"$process/stat"; } 2>/dev/null || continue
        read -ra fields <<<"${fields##*) }" # those after the name, which may contain spaces
        [ -z "$oldest" ] || [ "${fields[19]}" -lt "$oldest_start" ] || continue
        oldest=${process#/proc/} oldest_start=${fields[19]}
    done
    echo "$oldest"
}

# Without a server, the remaining Wine processes of the prefix would wait for ever.
end_orphans() {
    local process
    for process in /proc/[0-9]*; do
        [[ $(readlink "$process/exe") == */wine* ]] && is_of_prefix "$process" &&
            kill -KILL "${process#/proc/}"
    done 2>/dev/null
}

with_server() {
    exec 9>"$WINEPREFIX/.lock"
    flock 9
    if [ -z "$(find_server)" ]; then
        end_orphans
        start_server # first: creating a prefix runs a program too
    fi
    create_prefix
    exec 9>&-
}
with_server

[ $# -gt 0 ] || exit 0

logs=$(mktemp -d "$root/build/wine/logs/run.XXXXXX")
trap 'rm -rf "$logs"' EXIT

# A server that ends first closes its files, so that its programs end, while it still has its folder.
server_seems_gone() {
    [ ! -e "/proc/$server/cwd/socket" ] || ! compgen -G "/proc/$server/fd/*" >/dev/null
}

# Looks for some seconds: while it saves the registry, a server is in another folder, on a busy machine
# for longer than a moment.
server_has_gone() {
    local look
    [ -n "$server" ] || return 1
    for look in {1..20}; do
        [ -e "/proc/$server" ] || return 0
        server_seems_gone || return 1
        sleep 0.2
    done
}

# Prints a line for each process of the prefix: number, name, and how many of its threads wait where
# in the kernel.
show_prefix() {
    local process
    for process in /proc/[0-9]*; do
        is_of_prefix "$process" || continue
        [ "$(readlink "$process/exe")" != "$(readlink "/proc/$$/exe")" ] || continue
        echo "${process#/proc/} $(cat "$process/comm"):" \
            "$(for thread in "$process"/task/*; do cat "$thread/wchan" 2>/dev/null && echo; done |
                sort | uniq -c | awk '{ printf " %s*%s", $1, $2 }')"
    done
}

# Ends the program when its time is over or its server is gone.
watch_program() {
    local seconds=0
    while sleep 1; do
        seconds=$((seconds + 1))
        if [ "$seconds" = "${TARVIK_RUN_LIMIT:-}" ]; then
            {
                echo "run-wine: ended after $seconds s; the processes of its prefix:"
                show_prefix
            } >"$logs/limit" 2>&1
            break
        fi
        ! server_has_gone || break
    done
    kill -KILL "$program"
}

stop_watching() { kill -- "-$watcher" 2>/dev/null; }

run_program() {
    server=$(find_server)
    wine "$@" >"$logs/out" 2>"$logs/err" </dev/null &
    program=$!
    set -m # a process group of its own, so that its sleep ends with it
    watch_program </dev/null >/dev/null 2>&1 &
    watcher=$!
    set +m
    wait $program
    code=$?
    stop_watching
}
program= watcher=
trap 'kill -TERM $program 2>/dev/null; stop_watching; wait $program; cat "$logs/out"; exit 143' TERM INT

for attempt in 1 2; do
    run_program "$@"
    # The exit code means nothing then: a program that lost the server may end with 0.
    server_has_gone || break
    code=75
    echo "run-wine: Wine's server has crashed under $1 (its process was $server, the prefix's is now" \
        "'$(find_server)'); until then it said:" >&2
    cat "$logs/out" "$logs/err" >&2
    with_server
    [ -z "${TARVIK_RUN_ONCE:-}" ] || break
done
cat "$logs/out"
cat "$logs/err" >&2
[ ! -e "$logs/limit" ] || cat "$logs/limit" >&2
exit $code
