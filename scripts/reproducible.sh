#!/bin/bash
# scripts/reproducible.sh: builds this tree twice, from nothing, and shows whether both builds made the same
# bytes. The two differ in folder, time, number of compilers at once, time zone, language and the rights of
# new files. They lie in build/reproducible and stay, for a look at what differs (diffoscope).
#
# Shows the SHA-256 of every product and package. Exit code 1: some differ.
set -euo pipefail

cd "$(dirname "$0")/.."
root=$PWD
places=("$root/build/reproducible/first" "$root/build/reproducible/second-with-a-longer-name")
SOURCE_DATE_EPOCH=$(scripts/source_date.sh)
export SOURCE_DATE_EPOCH
unset MAKEFLAGS MFLAGS MAKEOVERRIDES

# build FOLDER: as a user would.
build() {
    echo "== building in ${1#"$root"/}"
    rm -rf "$1"
    scripts/copy_tree.sh "$1"
    make -C "$1" package >"$1.log" 2>&1 </dev/null || {
        tail -n 20 "$1.log" >&2
        echo "reproducible: the build failed; see ${1#"$root"/}.log" >&2
        exit 1
    }
}

# What is in the packages, and the packages.
products() {
    (
        cd "$1"
        find build/linux-release build/windows-release -maxdepth 1 -type f \
            \( -name '*.so' -o -name '*.so.*' -o -name '*.dll' -o -name '*.exe' -o -name '*.a' \
            -o -name '*.lib' -o -perm -u+x \)
        find build/linux-release/descriptions build/windows-release/descriptions build/packages -type f
    ) | LC_ALL=C sort
}

hash_of() { [ ! -f "$1" ] || sha256sum <"$1" | cut -d' ' -f1; }

(
    umask 022
    export TZ=UTC LC_ALL=C
    build "${places[0]}"
)
(
    umask 077
    export TZ=Pacific/Chatham LC_ALL=C.UTF-8 CMAKE_BUILD_PARALLEL_LEVEL=3
    build "${places[1]}"
)

different=0 count=0
while IFS= read -r file; do
    hash=$(hash_of "${places[0]}/$file") other=$(hash_of "${places[1]}/$file")
    count=$((count + 1))
    if [ "$hash" = "$other" ]; then
        echo "same       $hash  $file"
    else
        echo "DIFFERENT  ${hash:-is not there}  $file"
        echo "           ${other:-is not there}"
        different=$((different + 1))
    fi
done < <({ products "${places[0]}" && products "${places[1]}"; } | LC_ALL=C sort -u)

if [ "$different" = 0 ] && [ "$count" -gt 0 ]; then
    echo "reproducible: both builds made the same $count files"
else
    echo "reproducible: $different of $count files differ; diffoscope shows how" >&2
    exit 1
fi
