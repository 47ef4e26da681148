# bash completion for brennix-sim and brennix-relay. Asks the program, whose --help lists everything.

# Sets the caller's variables to what may follow the words before the current one.
_brennix_words() {
    local word=$1 help=$2 line
    while IFS= read -r line; do
        # "  -h,--help   …" or "  --vehicle FILE   …": one blank before a value
        [[ $line =~ ^\ \ (-[^\ ]+)(\ ([^\ :=]+))? ]] || continue
        words+=" ${BASH_REMATCH[1]//,/ }"
        if [[ ,${BASH_REMATCH[1]}, == *",$word,"* && ${BASH_REMATCH[3]} ]]; then
            value=${BASH_REMATCH[3]}
        fi
    done <<<"$help"
}

_brennix() {
    local program=$1 current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local help subcommands words='' value='' i
    COMPREPLY=()
    help=$("$program" --help 2>/dev/null) || return
    subcommands=$(sed -n '/^Subcommands:/,/^$/s/^  \([a-z][^ ]*\) .*/\1/p' <<<"$help")
    words=$subcommands
    _brennix_words "$previous" "$help"
    for ((i = 1; i < COMP_CWORD; i++)); do
        if [[ ${COMP_WORDS[i]} == -- ]]; then # a command follows, with its own arguments
            ! declare -F _command_offset >/dev/null || _command_offset $((i + 1))
            return
        fi
        if [[ $'\n'$subcommands$'\n' == *$'\n'"${COMP_WORDS[i]}"$'\n'* ]]; then
            help=$("$program" "${COMP_WORDS[i]}" --help 2>/dev/null)
            _brennix_words "$previous" "$help"
            [[ -n $value || $help != *$'\nPositionals:'* ]] || value=ARGUMENT
        fi
    done

    [[ -z $value || $value == ARGUMENT ]] || words=''
    COMPREPLY=($(compgen -W "$words" -- "$current"))
    if [[ $value =~ ^(FILE|PATH|FOLDER|ARGUMENT)$ && $current != -* ]]; then
        compopt -o filenames 2>/dev/null
        local IFS=$'\n'
        COMPREPLY+=($(compgen -f -- "$current"))
    fi
}
complete -F _brennix brennix-sim brennix-relay
