#!/bin/bash
# windows_test.sh BUILD-FOLDER SOURCE-FOLDER VERSION
# What is installed is complete, works from wherever it is moved, and programs are linked with both
# import libraries.
build=$1 source=$2 version=$3
source "$(dirname "$0")/installed_tree.sh"

wine() { "$source/scripts/run-wine.sh" "$@"; }

check_lists windows
check "dpdu --version" "$version" \
    "$(wine "$moved/bin/dpdu.exe" --version | grep -oE '[0-9]+(\.[0-9]+)+')"
check "dpdu finds the library" "protocol 3000 ISO_15765_3_on_ISO_15765_2" \
    "$(wine "$moved/bin/dpdu.exe" objects ISO_15765_3_on_ISO_15765_2 | tr -d '\r' | tail -n 1 | xargs)"

# Microsoft's linker has no C runtime here, and no import library of the system.
link_as_microsoft() {
    printf 'LIBRARY kernel32.dll\nEXPORTS\n    ExitProcess\n' >"$folder/kernel32.def"
    x86_64-w64-mingw32-gcc-posix -ffreestanding -O1 -c -Dmain=Unused -I "$moved/include" \
        "$here/application/no_runtime.c" -o "$folder/no_runtime.obj" &&
        llvm-dlltool -m i386:x86-64 -d "$folder/kernel32.def" -l "$folder/kernel32.lib" &&
        lld-link /entry:Start /subsystem:console /nodefaultlib /out:"$moved/bin/microsoft.exe" \
            "$folder/no_runtime.obj" "$moved/lib/tarvik_dpdu_x64.lib" "$folder/kernel32.lib"
}
link_with_mingw() {
    cp -r "$here/application" "$folder/application"
    cmake -S "$folder/application" -B "$folder/application/build" -DCMAKE_SYSTEM_NAME=Windows \
        -DCMAKE_C_COMPILER=x86_64-w64-mingw32-gcc-posix -DCMAKE_PREFIX_PATH="$moved" \
        -DWANTED="$version" -DSOURCE="$here/application/no_runtime.c" &&
        cmake --build "$folder/application/build" &&
        cp "$folder/application/build/linking.exe" "$moved/bin/mingw.exe"
}
for linker in microsoft mingw; do
    link=link_with_mingw
    [ $linker = mingw ] || link=link_as_microsoft
    $link >"$folder/log" 2>&1 || cat "$folder/log"
    wine "$moved/bin/$linker.exe"
    check "exit code of a program with the import library for $linker" 42 $?
done
check "the definition has the ordinals" "$(grep -v '^#' "$source/cmake/exports.txt")" \
    "$(sed -n 's/^ *\(PDU.*\)/\1/p' "$moved/lib/tarvik_dpdu_x64.def")"
exit $((failures > 0))
