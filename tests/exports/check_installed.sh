#!/bin/bash
# check_installed.sh BUILD-FOLDER EXPORTS-FILE VERSION: the DLL that is installed has no symbols of its
# own, and those of the build are in a file beside it, where debuggers look for them.
set -uo pipefail

build=$1 exports=$2 version=$3
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
tools=x86_64-w64-mingw32
dll=$folder/bin/tarvik_dpdu_x64.dll
failures=0

expect() {
    local what=$1
    shift
    "$@" && echo "ok: $what" && return
    failures=$((failures + 1))
    echo "FAILED: $what"
}

symbols() { $tools-nm "$1" 2>/dev/null; }
has_no_symbols() { [ -z "$(symbols "$1")" ]; }
has_no_debug_sections() { ! $tools-objdump -h "$1" | grep -E ' \.(z?debug|stab)' >/dev/null; }
has_function() { symbols "$1" | grep -E "T .*$2" >/dev/null; }
names_its_symbols() { $tools-objdump -s -j .gnu_debuglink "$dll" | grep -q tarvik_dpdu_x64; }

cmake --install "$build" --prefix "$folder" --component runtime >/dev/null || exit 1
expect "the DLL is installed" test -s "$dll"
expect "the DLL has no table of symbols" has_no_symbols "$dll"
expect "the DLL has no sections for debuggers" has_no_debug_sections "$dll"
expect "the DLL names the file of its symbols" names_its_symbols
expect "that file has the functions of the library" has_function "$dll.debug" OsThreadStart
expect "the DLL of the build keeps its symbols" has_function "$build/tarvik_dpdu_x64.dll" OsThreadStart
"$(dirname "$0")/check_library.sh" "$exports" "$version" "$dll" || failures=$((failures + 1))
exit $((failures > 0))
