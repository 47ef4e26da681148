#!/bin/bash
# completion_test.sh PROGRAM FOLDER SUBCOMMAND: the completion scripts in the folder offer what the
# program's help lists.
source "$(dirname "$0")/../exports/checks.sh"

program=$1 scripts=$2 subcommand=$3
empty=$(mktemp -d)
trap 'rm -rf "$empty"' EXIT
cd "$empty" || exit 1
touch car.json

sorted() { tr ' ' '\n' | grep . | LC_ALL=C sort -u; }
# The options in a help text.
options_of() { "$program" "$@" --help | sed -n '/^Options:/,/^$/s/^  \(-[^ ]*\).*/\1/p' | tr ',' '\n'; }

# What bash offers after the words.
in_bash() {
    bash --norc -c 'source "$1/brennix.bash"
        shift
        COMP_WORDS=("$@" "") COMP_CWORD=$#
        _brennix "$1"
        printf "%s\n" "${COMPREPLY[@]}"' bash "$scripts" "$program" "$@" 2>/dev/null
}
# What zsh's own functions are asked to offer.
in_zsh() {
    zsh -f -c 'source() { builtin source "$@" }
        _arguments() { print -rl -- "$@" }
        _normal() { print -r -- "command: $words" }
        scripts=$1
        shift
        words=("$@" "") CURRENT=$(( $# + 1 ))
        builtin source $scripts/_brennix' zsh "$scripts" "$program" "$@"
}
names_in_zsh() { in_zsh "$@" | sed -n 's/^\*\(-[^[]*\)\[.*/\1/p'; }
spec_in_zsh() { in_zsh | sed -n "s/^\*$1\[.*\]//p"; }

everything=$({ options_of && echo "$subcommand"; } | sorted)
[ "$(wc -l <<<"$everything")" -gt 10 ] || { echo "FAILED: the help has no options"; exit 1; }
check "bash offers the options and the subcommand" "$everything" "$(in_bash | sorted)"
check "bash offers files for --vehicle" car.json "$(in_bash --vehicle)"
check "bash offers nothing for a number" "" "$(in_bash --dongles)"
check "bash leaves a command after -- to itself" "" "$(in_bash --strict -- ls)"
with_subcommand=$({ options_of && options_of "$subcommand"; } | sorted)
check "bash offers the subcommand's options" "$with_subcommand" \
    "$(in_bash "$subcommand" | grep -vx -e car.json -e "$subcommand" | sorted)"

check "zsh offers the options" "$(options_of | sorted)" "$(names_in_zsh | sorted)"
check "zsh offers the subcommand" "*:command:($subcommand)" "$(in_zsh | grep '^\*:command')"
check "zsh offers files for --vehicle" ":FILE:_files" "$(spec_in_zsh --vehicle)"
check "zsh expects a value for a number" ":N: " "$(spec_in_zsh --dongles)"
check "zsh expects no value for a flag" "" "$(spec_in_zsh --strict)"
check "zsh offers the subcommand's options" "$with_subcommand" "$(names_in_zsh "$subcommand" | sorted)"
check "zsh completes a command after -- as such" "command: ls " "$(in_zsh --strict -- ls)"
exit $((failures > 0))
