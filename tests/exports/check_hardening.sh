#!/bin/bash
# check_hardening.sh LIBRARY PROGRAM ARCHIVE...
# Read from the files themselves: the library and a program have what the linker can add against
# attacks, and each object of the archives what the compiler can.
source "$(dirname "$0")/checks.sh"

library=$1 program=$2
shift 2

# uses ARCHIVE SYMBOL-PATTERN: its objects refer to such a symbol.
uses() { nm "$1" 2>/dev/null | grep -E " U ($2)$" >/dev/null && echo yes || echo no; }

# Of a library or a program for Linux.
writable_code() { readelf -lW "$1" | awk '/^ *(LOAD|GNU_STACK)/ && /RWE/'; }
has_relro() { readelf -lW "$1" | grep -c GNU_RELRO; }
binds_now() { readelf -dW "$1" | grep -E 'FLAGS_1' | grep -c NOW; }
text_relocations() { readelf -dW "$1" | grep -c TEXTREL; }
is_position_independent() { readelf -hW "$1" | sed -n 's/ *Type: *\(DYN\).*/\1/p'; }
separate_code() { readelf -lW "$1" | awk '$1 == "LOAD" && / R +E /' | wc -l; }
objects_without_cet() {
    local objects marked
    objects=$(ar t "$1" | wc -l)
    marked=$(readelf -nW "$1" 2>/dev/null | grep -c 'x86 feature: IBT, SHSTK')
    echo $((objects - marked))
}

characteristics() {
    "$objdump" -p "$1" | sed -n '/^DllCharacteristics/,/^Size/s/^\t*\([A-Z_]*\)$/\1/p' | sort | xargs
}
has_relocations() { "$objdump" -h "$1" | grep -c ' \.reloc '; }

for file in "$library" "$program"; do
    name=${file##*/}
    case $library in
        *.dll)
            check "$name: what the loader may do" "DYNAMIC_BASE HIGH_ENTROPY_VA NX_COMPAT" \
                "$(characteristics "$file")"
            check "$name: relocations, to be loaded anywhere" 1 "$(has_relocations "$file")"
            ;;
        *)
            check "$name: memory that is code and writable" "" "$(writable_code "$file")"
            check "$name: code in a segment of its own" 1 "$(separate_code "$file")"
            check "$name: tables that are read-only after loading" 1 "$(has_relro "$file")"
            check "$name: all functions looked up when loaded" 1 "$(binds_now "$file")"
            check "$name: relocations in code" 0 "$(text_relocations "$file")"
            check "$name: can be loaded anywhere" DYN "$(is_position_independent "$file")"
            ;;
    esac
done
for archive in "$@"; do
    name=${archive##*/}
    check "$name: stack protector" yes "$(uses "$archive" __stack_chk_fail)"
    case $library in
        *.dll) ;;
        *)
            check "$name: objects without branch and return protection" 0 \
                "$(objects_without_cet "$archive")"
            check "$name: functions that check sizes" yes \
                "$(uses "$archive" '__(v?snprintf|memcpy|strcat|memset)_chk')"
            ;;
    esac
done
exit $((failures > 0))
