#!/bin/bash
# scripts/link_with_lld.sh COMMAND...: for g++'s option -wrapper. Runs the command, but links with
# ld.lld, because MinGW's g++ has no option for another linker.
set -eu

[[ $1 == */collect2 ]] || exec "$@"
shift
arguments=()
while [ $# -gt 0 ]; do
    case $1 in # the plug-in serves link-time optimisation
        -plugin) shift ;;
        -plugin-opt=*) ;;
        *) arguments+=("$1") ;;
    esac
    shift
done
exec ld.lld "${arguments[@]}"
