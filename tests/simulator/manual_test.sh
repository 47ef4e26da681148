#!/bin/bash
# manual_test.sh PROGRAM PAGE [SUBCOMMAND]...
# The manual page is formatted without warnings, names exactly the options of the program's help, its
# subcommands' included, and lists all faults and control commands with their arguments.
source "$(dirname "$0")/../exports/checks.sh"

program=$1 page=$2
shift 2

# One line for each paragraph, so that no word is broken.
warnings=$(groff -man -ww -Tascii -P-cbou -rLL=1000n -rHY=0 "$page" 2>&1 >/dev/null)
text=$(groff -man -Tascii -P-cbou -rLL=1000n -rHY=0 "$page" 2>/dev/null)
help=$("$program" --help)
options() { grep -oE -- '(^|[^[:alnum:]-])--[a-z][a-z-]*' | sed 's/^[^-]*//' | sort -u; }
options_of_help() {
    local subcommand
    {
        echo "$help"
        for subcommand in "$@"; do "$program" "$subcommand" --help; done
    } | grep '^  -' | options
}
# "NAME ARGUMENTS" of each row below "Control commands" and "Faults".
rows_of_help() {
    awk '/^(Control commands|Faults)/ { is_list = 1 } /^$/ { is_list = 0 }
        is_list && /^  [^ ]/ { sub(/^  /, ""); sub(/  .*/, ""); print }' <<<"$help"
}
missing_rows() {
    local row
    rows_of_help | while read -r row; do
        grep -qE "^ +$(sed 's/[][{}()|*+?.\\]/\\&/g' <<<"$row")( |$)" <<<"$text" || echo "$row"
    done
}

check "the page is formatted without warnings" "" "$warnings"
check "the options of the page" "$(options_of_help "$@")" "$(options <<<"$text")"
check "the help has control commands" yes "$(rows_of_help | grep -qx quit && echo yes)"
check "control commands and faults that the page lacks" "" "$(missing_rows)"
exit $((failures > 0))
