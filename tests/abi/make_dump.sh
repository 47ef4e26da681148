#!/bin/bash
# make_dump.sh INCLUDE-FOLDER EXPORTS-FILE SONAME: prints what a program that was compiled with the headers
# relies on, in the form of abidw: the exported functions with their types, and all records.
#
# The library itself is no use: it is compiled without debug information, and most records are only
# reached through untyped pointers. So the functions are defined once more, empty, from the headers'
# declarations; where the library's definitions differ from these, it does not compile.
set -euo pipefail

include=$(realpath "$1") exports=$(realpath "$2") soname=$3
for tool in abidw gcc; do
    command -v $tool >/dev/null || {
        echo "$0: the program '$tool' is missing; run scripts/setup.sh test" >&2
        exit 1
    }
done
folder=$(mktemp -d "${TMPDIR:-/tmp}/brennix-abi.XXXXXX")
trap 'rm -rf "$folder"' EXIT
cd "$folder" # the dump has the path of what was compiled

# Freestanding: the types of the C library, which differ from version to version, stay outside.
compiler=(gcc -std=gnu2x -ffreestanding -I "$include")
echo '#include <dpdu_api.h>' >declarations.c
"${compiler[@]}" -fsyntax-only -aux-info prototypes declarations.c
names=$(sed -n 's/^\([A-Za-z]\w*\) @.*/\1/p' "$exports")
{
    cat declarations.c
    for name in $names; do
        sed -n "s|^/\* .*/dpdu_api.h:.* \*/ extern \(.* $name (.*)\);\$|\1 { return 0; }|p" prototypes
    done
} >functions.c
printf '{ global: %s; local: *; };\n' "${names//$'\n'/; }" >functions.map

# Without the first option the compiler leaves out records that the functions do not mention.
"${compiler[@]}" -fno-eliminate-unused-debug-types -O0 -g -fPIC -shared -nostdlib \
    -Wl,--version-script=functions.map -Wl,-soname,"$soname" functions.c -o library.so
abidw --load-all-types --no-show-locs --no-corpus-path --no-comp-dir-path --no-elf-needed \
    --no-parameter-names library.so
