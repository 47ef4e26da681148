#!/bin/bash
# other_system.sh SETUP-SCRIPT: on another system than Debian 12, set-up ends with one line that says
# so and how to go on, and advises no foreign mirrors.
set -uo pipefail

setup=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
failures=0

# run LINE...: set-up on a system whose os-release file has these lines. The group does not exist, so
# that nothing is installed where the system is the right one.
run() {
    printf '%s\n' "$@" >"$folder/os-release"
    said=$(TARVIK_OS_RELEASE=$folder/os-release "$setup" no-such-group 2>&1)
    code=$?
    echo "$said"
}

# refuses NAME
refuses() {
    [ $code = 1 ] && [ "$(echo "$said" | wc -l)" = 1 ] && [[ $said == "setup: this is $1, "* ]] &&
        [[ $said == *"container"*"debian:12"* ]] && [[ $said != *[Mm]irror* ]] &&
        [[ $said != *sources.list* ]] && return
    failures=$((failures + 1))
    echo "FAILED: on $1"
}

run 'PRETTY_NAME="Ubuntu 22.04.4 LTS"' 'ID=ubuntu' 'ID_LIKE=debian' 'VERSION_ID="22.04"'
refuses "Ubuntu 22.04.4 LTS"
run 'ID=fedora' 'VERSION_ID=38' "PRETTY_NAME='Fedora Linux 38'"
refuses "Fedora Linux 38"
run 'PRETTY_NAME="Debian GNU/Linux 13 (trixie)"' 'ID=debian' 'VERSION_ID="13"'
refuses "Debian GNU/Linux 13 (trixie)"
run 'ID=arch'
refuses "arch"
run ''
refuses "an unknown system"

run 'PRETTY_NAME="Debian GNU/Linux 12 (bookworm)"' 'ID=debian' 'VERSION_ID="12"'
if [ "${said%%;*}" != "setup: unknown group 'no-such-group'" ]; then
    failures=$((failures + 1))
    echo "FAILED: on Debian 12"
fi
exit $((failures > 0))
