# bash completion of dpdu
# Made by dpdu_completion from the commands of the program.

# What may follow a command, in the caller's variables.
_dpdu_words() {
    case $1 in
        '')
            words='modules version doctor comparam objects ioctl request functional vin dtc trace raw tester-present monitor -h --help --library --library-options --module --wait --json --verbose --version'
            ;;
        'modules')
            words='-h --help --library --library-options --module --wait --json --verbose'
            ;;
        'version')
            words='-h --help --library --library-options --module --wait --json --verbose'
            ;;
        'doctor')
            words='-h --help --library --library-options --module --wait --json --verbose'
            ;;
        'comparam')
            words='get set list -h --help'
            ;;
        'comparam get')
            words='-h --help --library --library-options --module --wait --json --verbose --protocol --bus-type'
            ;;
        'comparam set')
            words='-h --help --library --library-options --module --wait --json --verbose --protocol --bus-type'
            ;;
        'comparam list')
            words='-h --help --library --library-options --module --wait --json --verbose --protocol --bus-type --filter'
            ;;
        'objects')
            words='-h --help --library --library-options --module --wait --json --verbose --type --filter'
            ;;
        'ioctl')
            words='-h --help --library --library-options --module --wait --json --verbose reset clear-tx-queue suspend-tx-queue resume-tx-queue clear-rx-queue battery set-voltage voltage generic buffer-size start-filter clear-filters stop-filter event-queue cable break ignition vehicle-id ethernet-switch entity-status power-mode ethernet-pins tls-mode isobus-functions'
            ;;
        'request')
            words='-h --help --library --library-options --module --wait --json --verbose --functional --expect --expect-negative --ecu --p2 --p2-star --tester-present --timeout --param --protocol --bus-type'
            ;;
        'functional')
            words='-h --help --library --library-options --module --wait --json --verbose --id --units --file --any --p2 --p2-star --tester-present --timeout --param --protocol --bus-type'
            ;;
        'vin')
            words='-h --help --library --library-options --module --wait --json --verbose --ecu --p2 --p2-star --tester-present --timeout --param --protocol --bus-type'
            ;;
        'dtc')
            words='-h --help --library --library-options --module --wait --json --verbose --mask --ecu --p2 --p2-star --tester-present --timeout --param --protocol --bus-type'
            ;;
        'trace')
            words='summary timeline export -h --help'
            ;;
        'trace summary')
            words='-h --help --slowest --json'
            files=1
            ;;
        'trace timeline')
            words='-h --help --link --from --to --errors --waterfall --columns'
            files=1
            ;;
        'trace export')
            words='-h --help --format -o --output'
            files=1
            ;;
        'raw')
            words='send listen -h --help'
            ;;
        'raw send')
            words='-h --help --library --library-options --module --wait --json --verbose --extended --repeat --period --primitive --param --protocol --bus-type'
            ;;
        'raw listen')
            words='-h --help --library --library-options --module --wait --json --verbose --filter --count --time --table --log --param --protocol --bus-type'
            ;;
        'tester-present')
            words='-h --help --library --library-options --module --wait --json --verbose --period --message --functional --time --ecu --param --protocol --bus-type'
            ;;
        'monitor')
            words='-h --help --library --library-options --module --wait --json --verbose --ecu --period --count --time --p2 --p2-star --tester-present --timeout --param --protocol --bus-type'
            ;;
    esac
}

_dpdu() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local command='' next words='' files='' i
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            --bus-type | --columns | --count | --ecu | --expect | --expect-negative | --file | --filter | --format | --from | --functional | --id | --library | --library-options | --link | --mask | --message | --module | --output | --p2 | --p2-star | --param | --period | --primitive | --protocol | --repeat | --slowest | --tester-present | --time | --timeout | --to | --type | --units | --wait | -o)
                ((i++)) # the word behind it is its value
                continue
                ;;
        esac
        next="${command:+$command }${COMP_WORDS[i]}"
        case $next in
            'modules' | 'version' | 'doctor' | 'comparam' | 'comparam get' | 'comparam set' | 'comparam list' | 'objects' | 'ioctl' | 'request' | 'functional' | 'vin' | 'dtc' | 'trace' | 'trace summary' | 'trace timeline' | 'trace export' | 'raw' | 'raw send' | 'raw listen' | 'tester-present' | 'monitor') command=$next ;;
        esac
    done

    case $previous in
        --file | --library | --output | -o) files=1 ;;
        --bus-type | --columns | --count | --ecu | --expect | --expect-negative | --file | --filter | --format | --from | --functional | --id | --library | --library-options | --link | --mask | --message | --module | --output | --p2 | --p2-star | --param | --period | --primitive | --protocol | --repeat | --slowest | --tester-present | --time | --timeout | --to | --type | --units | --wait | -o)
            case "$command $previous" in
                'objects --type') words='protocol bus-type ioctl comparam pin-type resource' ;;
                'trace export --format') words='candump asc chrome' ;;
                'raw send --primitive') words='startcomm sendrecv' ;;
            esac
            ;;
        *) _dpdu_words "$command" ;;
    esac
    COMPREPLY=($(compgen -W "$words" -- "$current"))
    if [[ $files && $current != -* ]]; then
        compopt -o filenames 2>/dev/null
        local IFS=$'\n'
        COMPREPLY+=($(compgen -f -- "$current"))
    fi
}
complete -F _dpdu dpdu
