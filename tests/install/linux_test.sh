#!/bin/bash
# linux_test.sh BUILD-FOLDER SOURCE-FOLDER LIBRARY-FOLDER VERSION
# What is installed is complete, works from wherever it is moved, and applications are built with it.
build=$1 source=$2 libraries=$3 version=$4
source "$(dirname "$0")/installed_tree.sh"

private=$moved/$libraries/tarvik-dpdu
library=$private/libtarvik_dpdu_x64.so
dpdu=$moved/bin/dpdu
mkdir "$folder/empty"
# Nothing but the installed files, and a home of its own.
export HOME=$folder/empty TMPDIR=$folder XDG_CONFIG_HOME=$folder/empty
unset DPDU_LIBRARY LD_LIBRARY_PATH

check_lists linux

run_paths() { readelf -d "$@" | grep -E 'RPATH|RUNPATH'; }
check "paths in the files where libraries are looked for" "" "$(run_paths "$library" "$moved"/bin/*)"
soname=libtarvik_dpdu_x64.so.${version%%.*}
check "the link for the loader" "$(realpath "$library")" "$(realpath "$moved/$libraries/$soname")"

protocol="protocol 3000 ISO_15765_3_on_ISO_15765_2"
for program in dpdu brennix-sim brennix-relay; do
    check "$program --version" "$version" \
        "$("$moved/bin/$program" --version | grep -oE '[0-9]+(\.[0-9]+)+')"
done
look_up() { "$@" objects ISO_15765_3_on_ISO_15765_2 | tail -n 1 | xargs; }
check "dpdu finds the library" "$protocol" "$(look_up "$dpdu")"
ln -s "$dpdu" "$folder/link"
check "dpdu finds it through a link to itself" "$protocol" "$(look_up "$folder/link")"

# Applications, outside of the source tree.
cp -r "$here/application" "$folder/application"
# configure BUILD-FOLDER VERSION
configure() {
    cmake -S "$folder/application" -B "$1" -DCMAKE_PREFIX_PATH="$moved" -DWANTED="$2" \
        -DSOURCE="$source/examples/read_vin.c"
}
compile_with_cmake() {
    configure "$folder/application/build" "$version" && cmake --build "$folder/application/build"
}
compile_with_cmake >"$folder/log" 2>&1 || cat "$folder/log"
check "an application loads the library" 3000 \
    "$("$folder/application/build/loading" "$library" 2>/dev/null | head -n 1)"
# The installed simulator, with an installed vehicle.
vin_of() {
    "$moved/bin/brennix-sim" --vehicle "$moved/share/tarvik-dpdu/vehicles/demo.json" \
        --usb ttyACM0 --scratch "$folder/scratch" -- "$source/examples/run_example.sh" "$1" 2>&1 |
        grep '^VIN'
}
check "README's example, built with CMake" "VIN WTVDEM0S1M0000001" \
    "$(vin_of "$folder/application/build/linking")"

export PKG_CONFIG_PATH=$moved/$libraries/pkgconfig
check "the version for pkg-config" "$version" "$(pkg-config --modversion tarvik-dpdu)"
check "the library for programs that load it" "$(realpath "$library")" \
    "$(realpath "$(pkg-config --variable=library tarvik-dpdu)")"
# shellcheck disable=SC2046 # several words
gcc "$source/examples/read_vin.c" $(pkg-config --cflags --libs tarvik-dpdu) -o "$folder/read_vin"
check "what README's example loads, built with pkg-config" "$moved/$libraries/$soname" \
    "$(LD_LIBRARY_PATH=$moved/$libraries ldd "$folder/read_vin" |
        sed -n "s/.*$soname => \(.*\) (.*/\1/p" | xargs -r realpath -s)"

refused() {
    configure "$folder/refused" "$1" 2>&1 | tr -s '\n ' ' ' | grep -o "$2"
}
next=$((${version%%.*} + 1)).0
check "what CMake says to who wants the next major version" "requested version \"$next\"" \
    "$(refused $next 'requested version "[^"]*"')"
mv "$library" "$library.away"
check "what CMake says without the runtime" "the library is not installed" \
    "$(refused "$version" 'the library is not installed')"
mv "$library.away" "$library"

# A user without rights to the installed files.
user=()
if [ "$(id -u)" = 0 ]; then
    user=(setpriv --reuid=65534 --regid=65534 --clear-groups)
    chmod 711 "$folder"
fi
mkdir -m 777 "$folder/user"
chmod -R a-w "$moved"
before=$(find "$private" -printf '%P %s %T@\n')
as_user() { "${user[@]}" env -u XDG_CONFIG_HOME HOME="$folder/user" TMPDIR="$folder/user" "$@"; }
doctor_says() { as_user "$dpdu" doctor | grep -o "$1" | head -n 1; }
copy=$folder/user/.config/Tarvik/Brennix/config.json
advice="'dpdu modules' makes $copy, a copy; change that one"
check "the doctor names the copy to change" "$advice" "$(doctor_says "$advice")"
look_up as_user "$dpdu" >"$folder/log" 2>&1 || cat "$folder/log"
check "the user's own configuration" "$(cat "$private/config.json")" \
    "$(cat "$copy")"
check "the doctor has no more to say about it" "" "$(doctor_says "$advice")"
check "the installed files are unchanged" "$before" "$(find "$private" -printf '%P %s %T@\n')"
exit $((failures > 0))
