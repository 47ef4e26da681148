#!/bin/bash
# check_library.sh EXPORTS-FILE VERSION LIBRARY
# The library exports exactly the names in the file, a DLL with their ordinals, and carries the version.
# A DLL imports DLLs of the system only, so that it runs on a machine without any compiler's runtime.
source "$(dirname "$0")/checks.sh"

exports_file=$1 version=$2 library=$3

system_dlls='advapi32|bcrypt|cfgmgr32|combase|kernel32|msvcrt|ole32|oleaut32|rpcrt4|runtimeobject'
system_dlls+='|setupapi|shell32|user32|version|winhttp|ws2_32'

# NAME @ORDINAL of each.
dll_exports() {
    "$objdump" -p "$library" | awk '
        /^Ordinal Base/ { base = $3 }
        /^\[Ordinal\/Name Pointer\] Table/ { is_table = 1; next }
        /^$/ { is_table = 0 }
        is_table { gsub(/[][]/, ""); print $2 " @" $1 + base }'
}
foreign_imports() {
    "$objdump" -p "$library" | sed -n 's/^\tDLL Name: //p' | grep -viE "^($system_dlls)\.dll$"
}
so_exports() {
    nm -D --defined-only "$library" | awk '{print $3}'
}
# Symbols of the host take the place of those of a shared library, so there are only the C and C++
# runtime and the system's services.
system_libraries='libc|libm|libdl|librt|libpthread|libresolv|ld-linux-x86-64|libgcc_s|libstdc\+\+'
system_libraries+='|libudev'
foreign_libraries() {
    readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | grep -vE "^($system_libraries)\.so"
}
# The oldest system that the library runs on, by the symbol versions that it asks for: README.md names
# the distributions. GLIBCXX and CXXABI are of libstdc++, GCC of libgcc_s, here those of GCC 11.
newest_versions='GLIBC_2.34 GLIBCXX_3.4.29 CXXABI_1.3.13 GCC_7.0.0'
# SYMBOL@VERSION of each symbol that needs more.
too_new() {
    nm -D --undefined-only --with-symbol-versions "$library" |
        awk -v limits="$newest_versions" '
            function number(version, part) {
                split(version, part, /[_.]/)
                return part[2] * 1e6 + part[3] * 1e3 + part[4]
            }
            function family(version) { return substr(version, 1, index(version, "_")) }
            BEGIN {
                count = split(limits, limit, " ")
                for (i = 1; i <= count; ++i) newest[family(limit[i])] = number(limit[i])
            }
            {
                version = $NF
                sub(/.*@/, "", version)
                if (family(version) in newest && number(version) > newest[family(version)]) print $NF
            }'
}
soname() {
    readelf -d "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p'
}

# The function that the loader calls last when it loads the library: the entry of .init_array at the
# highest address, found by what the loader writes there.
last_initializer() {
    local start size last target
    read -r start size < <(readelf -SW "$library" | sed 's/^.*] //' |
        awk '$1 == ".init_array" {print $3, $5}')
    last=$(printf '%016x' $((0x$start + 0x$size - 8)))
    target=$(readelf -rW "$library" | awk -v at="$last" '$1 == at {print $NF}')
    nm -C "$library" | awk -v at="$(printf '%016x' $((0x$target)))" '$1 == at' | cut -d' ' -f3-
}

# Bluetooth's libraries are loaded when it is switched on: the others work without them.
needed_for_bluetooth() {
    readelf -d "$library" | grep NEEDED | grep -E 'sdbus|systemd|dbus'
}

# Thread-local variables that a thread allocates at their first use: the system ends the process if
# memory is out then.
allocated_thread_locals() {
    readelf -rW "$library" | grep -cE 'R_X86_64_(DTPMOD64|TLSDESC)'
}

# What a program prints that has the library from its very start. Not with a sanitizer, whose runtime
# must come first.
printed_when_preloaded() { LD_PRELOAD=$(realpath "$library") /bin/true 2>&1; }
has_sanitizer() { nm -D "$library" | grep -E ' U __(asan|tsan)_' >/dev/null; }

exports=$(grep -v '^#' "$exports_file")
names=$(cut -d ' ' -f 1 <<<"$exports" | sort)
check "there are 29 names to export" 29 "$(echo "$names" | wc -l)"
check "their ordinals" "$(seq -f '@%g' 29)" "$(cut -d ' ' -f 2 <<<"$exports")"
case $library in
    *.dll)
        check "the exported names and ordinals" "$(sort <<<"$exports")" "$(dll_exports | sort)"
        check "imports from outside the system" "" "$(foreign_imports)"
        check_version_resource "$library" "$version" 2
        ;;
    *)
        check "the exported names" "$names" "$(so_exports | sort)"
        check "libraries from outside the system" "" "$(foreign_libraries)"
        check "symbols of newer systems" "" "$(too_new)"
        check "the initializer that is run last" "tarvik::(anonymous namespace)::Attach()" \
            "$(last_initializer)"
        has_sanitizer || check "loading before the program" "[DLL] Detaching the Tarvik D-PDU DLL" \
            "$(printed_when_preloaded)"
        check "libraries that only Bluetooth needs" "" "$(needed_for_bluetooth)"
        check "thread-local variables that need memory later" 0 "$(allocated_thread_locals)"
        check "the soname" "libtarvik_dpdu_x64.so.${version%%.*}" "$(soname)"
        check "the file behind the links" "libtarvik_dpdu_x64.so.$version" \
            "$(basename "$(readlink -f "$library")")"
        ;;
esac
exit $((failures > 0))
