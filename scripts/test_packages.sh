#!/bin/bash
# scripts/test_packages.sh [debian] [windows]: installs, uses and removes the packages of build/packages,
# in a bare Debian 12 and under Wine. The transcripts are build/logs/test-packages-SYSTEM.log. What this
# machine does not allow is skipped, and not counted as passed.
set -uo pipefail

cd "$(dirname "$0")/.."
systems=${*:-debian windows}
mkdir -p build/logs
code=0

for system in $systems; do
    case $system in
        debian) test=tests/packages/debian.sh ;;
        windows) test=tests/packages/windows_installer.sh ;;
        *) echo "test_packages: unknown system '$system'; known: debian windows" >&2; exit 2 ;;
    esac
    echo "== packages for $system"
    "$test" 2>&1 | tee "build/logs/test-packages-$system.log"
    [ "${PIPESTATUS[0]}" = 0 ] || code=1
done

for system in $systems; do
    echo "$system: $(tail -n 1 "build/logs/test-packages-$system.log")"
done
exit $code
