#!/bin/bash
# abi_test.sh INCLUDE-FOLDER EXPORTS-FILE SONAME
# Headers and exports are those of the files beside this script, which a change of the interface has to
# change too. The second half shows that the comparison notices changes, in copies of the headers.
source "$(dirname "$0")/../exports/checks.sh"

include=$1 exports=$2 soname=$3
here=$(cd "$(dirname "$0")" && pwd)
folder=$(mktemp -d "${TMPDIR:-/tmp}/brennix-abi-test.XXXXXX")
trap 'rm -rf "$folder"' EXIT

command -v abidiff >/dev/null || {
    echo "FAILED: the program 'abidiff' is missing; run scripts/setup.sh test"
    exit 1
}

# differences INCLUDE-FOLDER EXPORTS-FILE [SONAME]
differences() {
    "$here/make_dump.sh" "$1" "$2" "${3:-$soname}" >"$folder/now.abi" &&
        abidiff --non-reachable-types --harmless "$here/tarvik_dpdu_x64.abi" "$folder/now.abi"
}

check "the interface" "" "$(differences "$include" "$exports" 2>&1)"
check "the exports" "$(cat "$here/exports.txt")" "$(grep -v '^#' "$exports")"
[ $failures = 0 ] || echo "If the change is meant, and old programs still work with it or the soname has" \
    "changed: cmake --build --preset linux-release --target update_abi"

# notices WHAT EXPECTED-TEXT SED-SCRIPT [EXPORT]: with the headers edited and one more export.
notices() {
    local what=$1 text=$2 said
    rm -rf "$folder/include"
    cp -r "$include" "$folder/include"
    sed -i "$3" "$folder"/include/*.h
    { cat "$exports" && echo "${4:-}"; } >"$folder/exports.txt"
    said=$(differences "$folder/include" "$folder/exports.txt" 2>&1)
    check "$what is noticed" "$text" "$(grep -oF -m 1 "$text" <<<"$said")"
}
notices "a field of another type" "type of 'UNUM32 NumDataBytes' changed" \
    '/typedef struct PDU_RESULT_DATA_ {/,/}/s/UNUM32 NumDataBytes/SNUM32 NumDataBytes/'
notices "a field in another place" "'struct PDU_EVENT_ITEM_' changed" \
    '/typedef struct PDU_EVENT_ITEM_ {/,/}/{/ hCop;/{h;d};/ pCoPTag;/G};/PDU_CHECK_FIELD_(PDU_EVENT_ITEM/d'
notices "a record that grows" "type size changed" \
    's/^} PDU_INFO_DATA;/UNUM32 More; &/; /PDU_CHECK_SIZE_(PDU_INFO_DATA/d'
notices "another parameter" "'function T_PDU_ERROR PDUConnect(UNUM32, UNUM32)' has some" \
    's/PDUConnect(UNUM32 hMod, UNUM32 hCLL)/PDUConnect(UNUM32 hMod, void* hCLL)/'
notices "a new function" "'function T_PDU_ERROR PDUReconnect(UNUM32)'" \
    's/^PDU_API T_PDU_ERROR PDU_CALL PDUConnect(/PDU_API T_PDU_ERROR PDU_CALL PDUReconnect(UNUM32);&/' \
    'PDUReconnect @30'
check "another soname is noticed" "SONAME changed from '$soname' to 'other.so'" \
    "$(differences "$include" "$exports" other.so | grep -o 'SONAME changed from.*')"
exit $((failures > 0))
