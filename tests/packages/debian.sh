#!/bin/bash
# debian.sh: installs the packages of build/packages in a bare Debian 12, uses them as a normal user, and
# upgrades, removes and purges them. What cannot be done on this machine is skipped, which is said.
set -uo pipefail

root=$(cd "$(dirname "$0")/../.." && pwd)
here=$root/tests/packages
. "$here/bare_debian.sh"
. "$here/steps.sh"

packages=(libtarvik-dpdu-x64-0 libtarvik-dpdu-x64-dev tarvik-dpdu-tools python3-tarvik-dpdu)
private=/usr/lib/x86_64-linux-gnu/tarvik-dpdu
root_file=/etc/pdu_api_root.xml
vehicle=/usr/share/tarvik-dpdu/vehicles/demo.json
vin=WTVDEM0S1M0000001
scratch=$bare_cache/scratch
version=$(sed -n 's/^project(tarvik_dpdu VERSION \([0-9.]*\) .*/\1/p' "$root/CMakeLists.txt")

if [ "${1:-}" != inside ]; then
    ls "$root"/build/packages/libtarvik-dpdu-*.deb >/dev/null 2>&1 ||
        { echo "FAILED: there are no packages; run make package"; exit 1; }
    why=$(why_not_bare)
    [ -z "$why" ] || { echo "skipped: Debian packages: $why"; exit 0; }
    read -r newer_tree newer < <("$here/newer_tree.sh" linux-release)
    [ -n "${newer:-}" ] || { echo "FAILED: a newer version does not build"; exit 1; }
    export newer_tree newer
    mkdir -p "$bare_cache"
    # One at a time: the system has a fixed folder.
    exec 8>"$bare_cache/.lock"
    flock 8
    # What runs in the system ends with the namespace, and what is mounted in it is gone.
    unshare --mount --propagation private --pid --fork --kill-child "$0" inside 8>&-
    code=$?
    remove_bare
    exit $code
fi

# --- packages ---

make_newer() { "$newer_tree/scripts/package_debian.sh" "$scratch/newer"; }

# The same build packed in two folders, of which one is newer and has files that others cannot read.
pack_twice() {
    local tree=$scratch/another/tree SOURCE_DATE_EPOCH
    SOURCE_DATE_EPOCH=$("$root/scripts/source_date.sh") || return
    export SOURCE_DATE_EPOCH
    mkdir -p "$tree/scripts"
    cp "$root"/scripts/{package_debian,package_python,source_date}.sh "$tree/scripts/"
    cp -r "$root/packaging" "$root/python" "$root/CHANGELOG.md" "$tree/"
    find "$tree" -type f -exec touch {} + -exec chmod go-rwx {} +
    "$root/scripts/package_debian.sh" "$scratch/here" &&
        TARVIK_BUILD=${TARVIK_BUILD:-$root/build/linux-release} "$tree/scripts/package_debian.sh" "$scratch/there"
}
hashes() { (cd "$1" && sha256sum -- *.deb); }
same_bytes() { diff <(hashes "$scratch/here") <(hashes "$scratch/there"); }
# All but the Python package, in which there is nothing of others.
each_has_the_bill_of_materials() {
    local package
    for package in "${packages[@]}"; do
        [ "$package" != python3-tarvik-dpdu ] || continue
        dpkg-deb --fsys-tarfile "$root/build/packages/${package}"_*.deb |
            tar -xO "./usr/share/doc/$package/tarvik-dpdu.spdx.json" |
            cmp - "${TARVIK_BUILD:-$root/build/linux-release}/notices/tarvik-dpdu.spdx.json" || return
    done
}
lintian_accepts() { lintian --allow-root --fail-on error,warning "$root"/build/packages/*.deb; }

put_packages() {
    rm -rf "$bare/srv/packages"
    mkdir -p "$bare/srv/packages/these" "$bare/srv/packages/newer"
    cp "$root"/build/packages/*.deb "$bare/srv/packages/these/"
    cp "$scratch"/newer/*.deb "$bare/srv/packages/newer/"
}

# install_packages these|newer [apt option...]: changed configurations are kept, as dpkg proposes.
install_packages() {
    local which=$1
    shift
    in_bare bash -c "cd /srv/packages/$which && apt-get install --yes -o Dpkg::Options::=--force-confold $* ./*.deb"
}
are_installed() {
    local package
    for package in "${packages[@]}"; do
        [ "$(in_bare dpkg-query -W -f '${db:Status-Status} ${Version}' "$package")" = \
            "installed $1" ] || return 1
    done
}
remove_packages() { in_bare apt-get remove --yes "${packages[@]}"; }
# Those that dpkg knows: of the others a removal left nothing.
purge_packages() {
    in_bare apt-get purge --yes \
        $(in_bare dpkg-query -W -f '${Package} ' "${packages[@]}" 2>/dev/null)
}
is_not_installed() { ! in_bare dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null | grep -x installed; }
left_over() {
    list_of_files | grep -iE '^[^ ]*(tarvik|brennix|dpdu|pdu_api)' | grep -v '^./srv/packages'
}
nothing_is_left() { [ "$(list_of_files | wc -l)" -gt 100 ] && ! left_over; }

# --- use ---

loader_finds_library() { in_bare ldconfig -p | grep "libtarvik_dpdu_x64\.so\.0 "; }
only_root_may_change_files() {
    [ -z "$(find "$bare$private" "$bare/etc/tarvik-dpdu" "$bare$root_file" ! -type l \
        \( ! -uid 0 -o ! -gid 0 -o -perm /022 \))" ]
}
user_has_own_configuration() {
    local file=$bare/home/tester/.config/Tarvik/Brennix/config.json
    cmp "$bare/etc/tarvik-dpdu/config.json" "$file" &&
        [ "$(stat -c %u "$file")" = "$(stat -c %u "$bare/home/tester")" ]
}
# New configurations have all transports off, with which the doctor finds fault.
doctor_finds_transports_off() {
    local said
    rm -rf "$bare/home/tester/.config"
    said=$(as_user dpdu doctor)
    [ $? = 1 ] && grep -E '^ok +library .*/libtarvik_dpdu_x64\.so' <<<"$said" &&
        grep -E '^WRONG +transports +all are off' <<<"$said"
}
first_use_makes_configuration() {
    as_user dpdu modules
    user_has_own_configuration
}
enable_serial() {
    sed -i 's/"useSerial": *false/"useSerial": true/' \
        "$bare/home/tester/.config/Tarvik/Brennix/config.json"
    grep '"useSerial": *true' "$bare/home/tester/.config/Tarvik/Brennix/config.json"
}
# beside_dongle COMMAND...: as the user, with a simulated dongle on a serial port.
beside_dongle() { as_user brennix-sim --vehicle "$vehicle" --usb ttyACM0 --strict -- "$@"; }
prints_vin() { "$@" | tee /dev/stderr | grep -w "$vin" >/dev/null; }
client_prints_vin() {
    cc -std=c11 -D_GNU_SOURCE -Wall -Wextra -Werror -I "$root/include" "$here/root_file_client.c" \
        -o "$bare/usr/local/bin/root_file_client" &&
        prints_vin beside_dongle root_file_client $root_file Tarvik
    local code=$?
    rm -f "$bare/usr/local/bin/root_file_client"
    return $code
}
python_prints_vin() {
    cp "$root/examples/read_vin.py" "$bare/srv/" && prints_vin beside_dongle python3 /srv/read_vin.py
}
# is_the_only_one VERSION: of the entries that are ours.
is_the_only_one() {
    [ "$(grep -c '>Tarvik_DPDU_API_x64_' "$bare$root_file")" = 1 ] &&
        grep -F ">Tarvik_DPDU_API_x64_${1//./_}<" "$bare$root_file"
}
# Without a check, as the other vendors' libraries do not exist.
is_listed_once_among_others() {
    local list
    list=$(in_bare dpdu root list) && echo "$list" && is_the_only_one "$1" &&
        [[ $list == *Alpha_1_2_3* && $list == *Beta_9_0_0* && $list == *Tarvik_DPDU_API_x64_* ]]
}
is_listed_once() {
    is_the_only_one "$1" && in_bare dpdu libraries | grep -E '^Tarvik_DPDU_API_x64_.* yes '
}
# Also what the library says itself, with a module to ask about versions.
check_finds_nothing_wrong() {
    local said
    said=$(beside_dongle dpdu root check) && echo "$said" &&
        grep -E '^ok +versions +library ' <<<"$said" &&
        grep -E '^1 library checked: nothing wrong' <<<"$said"
}
check_finds_what_others_lack() {
    local said
    said=$(in_bare dpdu root check)
    [ $? = 1 ] && echo "$said" && ! sed -n '/^Tarvik_/,$p' <<<"$said" | grep ^WRONG &&
        grep '^WRONG .* /opt/alpha/libalpha.so is missing' <<<"$said" &&
        grep '^WRONG .* /opt/beta/mdf.xml is missing' <<<"$said"
}

# --- the root file of others ---

other_vendors() {
    printf '\xEF\xBB\xBF<?xml version="1.0" encoding="UTF-8"?>\r
<!-- maintained by hand, two tabs -->\r
<MVCI_PDU_API_ROOT MVCI_PART2_STANDARD_VERSION="2.2.2">\r
\t\t<MVCI_PDU_API>\r
\t\t\t<SHORT_NAME>Alpha_1_2_3</SHORT_NAME> <!-- the first -->\r
\t\t\t<DESCRIPTION>Alpha &amp; sons</DESCRIPTION>\r
\t\t\t<SUPPLIER_NAME>Alpha</SUPPLIER_NAME>\r
\t\t\t<LIBRARY_FILE URI="file:///opt/alpha/libalpha.so"/>\r
\t\t\t<MODULE_DESCRIPTION_FILE URI="file:///opt/alpha/mdf.xml"/>\r
\t\t\t<CABLE_DESCRIPTION_FILE URI="file:///opt/alpha/cdf.xml"/>\r
\t\t</MVCI_PDU_API>\r
\t\t<MVCI_PDU_API><SHORT_NAME>Beta_9_0_0</SHORT_NAME>\r
<DESCRIPTION/><SUPPLIER_NAME>B\xC3\xA9ta</SUPPLIER_NAME>\r
\t\t\t<LIBRARY_FILE URI="file:///opt/beta/libbeta.so"/>\r
\t\t\t<MODULE_DESCRIPTION_FILE URI="file:///opt/beta/mdf.xml"/>\r
\t\t\t<CABLE_DESCRIPTION_FILE URI="file:///opt/beta/cdf.xml"/></MVCI_PDU_API>\r
\r
</MVCI_PDU_API_ROOT>\r
<!-- the end -->'
}
put_root_file() { cp "$1" "$bare$root_file" && chmod 644 "$bare$root_file"; }
is_as_before() { cmp "$scratch/root_before.xml" "$bare$root_file"; }
# Lines were only added.
others_are_unchanged() {
    ! is_as_before >/dev/null &&
        ! diff "$scratch/root_before.xml" "$bare$root_file" | grep '^[<\\]'
}
no_root_file() { [ ! -e "$bare$root_file" ]; }
says_what_to_do() {
    grep -F "$root_file" "$1" && grep -F "$private/dpdu-root add $private" "$1"
}

# --- what a developer does ---

build_with_cmake() {
    mkdir -p "$bare/home/tester/with_cmake"
    sed -n '/^```c$/,/^```$/p' "$root/README.md" | sed '1d;$d' >"$bare/home/tester/with_cmake/read_vin.c"
    cat >"$bare/home/tester/with_cmake/CMakeLists.txt" <<'TEXT'
cmake_minimum_required(VERSION 3.20)
project(read_vin LANGUAGES C)
find_package(TarvikDpdu 0.1 REQUIRED)
add_executable(read_vin read_vin.c)
target_link_libraries(read_vin PRIVATE Tarvik::dpdu)
TEXT
    in_bare chown -R tester: /home/tester/with_cmake
    as_user cmake -S /home/tester/with_cmake -B /home/tester/with_cmake/build &&
        as_user cmake --build /home/tester/with_cmake/build
}
build_with_pkg_config() {
    as_user bash -c 'cd && cc with_cmake/read_vin.c $(pkg-config --cflags --libs tarvik-dpdu) -o read_vin'
}

# --- the three courses ---

root_file_absent() {
    step "a bare Debian 12 is unpacked" fresh_bare minimal
    put_packages
    step "it has nothing of ours" nothing_is_left

    step "apt-get installs the packages" install_packages these --no-install-recommends
    step "they are installed" are_installed "$version-1"
    step "without libsdbus-c++" is_not_installed libsdbus-c++1
    step "the loader finds the library" loader_finds_library
    step "the root file lists it, and is in order" is_listed_once "$version"
    step "only root may change what applications load" only_root_may_change_files

    step "dpdu doctor finds the library, and all transports off" doctor_finds_transports_off
    step "the first use makes the user's configuration" first_use_makes_configuration
    step "the user enables the serial port" enable_serial
    step "beside a dongle the doctor has no complaint" beside_dongle dpdu doctor
    step "the root file, the library and its descriptions agree" check_finds_nothing_wrong
    step "a program that knows only the root file asks the VIN" client_prints_vin
    step "Python asks the VIN" python_prints_vin
    step "dpdu asks the VIN" prints_vin beside_dongle dpdu vin --ecu 7E0:7E8

    echo '{"useSerial": true, "useCloud": false, "useBle": false, "dummyDevice": false}' \
        >"$bare/etc/tarvik-dpdu/config.json"
    cp "$bare/etc/tarvik-dpdu/config.json" "$scratch/changed.json"
    step "apt-get upgrades the packages" install_packages newer --no-install-recommends
    step "they are upgraded" are_installed "$newer-1"
    step "the root file lists the newer library alone" is_listed_once "$newer"
    step "the administrator's configuration is kept" \
        cmp "$scratch/changed.json" "$bare/etc/tarvik-dpdu/config.json"
    step "the upgraded library asks the VIN" client_prints_vin

    step "apt-get removes the packages" remove_packages
    step "the root file is gone" no_root_file
    step "the user's configuration stays" \
        test -s "$bare/home/tester/.config/Tarvik/Brennix/config.json"
    step "apt-get purges the packages" purge_packages
    step "nothing of ours is left" nothing_is_left
}

# Their dependencies are in the system already, so that all files can be compared.
root_file_of_others() {
    other_vendors >"$scratch/root_before.xml"
    put_root_file "$scratch/root_before.xml"
    list_of_files >"$scratch/files_before"

    step "the packages are installed beside two other vendors" \
        install_packages these --no-install-recommends
    step "the root file lists the library once" is_listed_once_among_others "$version"
    step "the other vendors' lines are unchanged" others_are_unchanged
    step "a check finds what is wrong with the others alone" check_finds_what_others_lack
    step "the packages are upgraded beside two other vendors" \
        install_packages newer --no-install-recommends
    step "the root file lists the newer library once" is_listed_once_among_others "$newer"
    step "the other vendors' lines are unchanged by the upgrade" others_are_unchanged
    step "the unchanged configuration is the newer one" \
        cmp "$newer_tree/build/linux-release/descriptions/config.json" "$bare/etc/tarvik-dpdu/config.json"
    step "the packages are removed" remove_packages
    step "the root file is as before, byte for byte" is_as_before
    step "what an administrator may have changed stays" test -s "$bare/etc/tarvik-dpdu/config.json"
    step "the packages are purged" purge_packages
    step "the root file is still as before" is_as_before
    list_of_files >"$scratch/files_after"
    step "every file of the system is as before" \
        diff "$scratch/files_before" "$scratch/files_after"
}

root_file_damaged() {
    printf '<MVCI_PDU_API_ROOT>\n<MVCI_PDU_API>\n</MVCI_PDU_API_ROOT>\n' >"$scratch/root_before.xml"
    put_root_file "$scratch/root_before.xml"
    install_packages these --no-install-recommends >"$scratch/said" 2>&1
    step "beside a damaged root file the packages are configured" are_installed "$version-1"
    step "apt-get's output names the file and the command for later" says_what_to_do "$scratch/said"
    step "the damaged file is unchanged" is_as_before
    step "no copy of it is made" test ! -e "$bare$root_file.bak"
    rm "$bare$root_file"
    step "the command lists the library when the file is gone" \
        in_bare $private/dpdu-root add $private
    step "the root file is in order then" is_listed_once "$version"
    put_root_file "$scratch/root_before.xml"
    step "beside a damaged root file the packages are purged" purge_packages
    step "the damaged file is still unchanged" is_as_before
    rm -f "$bare$root_file"
    step "nothing of ours is left beside it" nothing_is_left
}

development() {
    step "a Debian 12 with compilers is unpacked" fresh_bare developer
    put_packages
    step "apt-get installs the packages with all they recommend" install_packages these
    step "Bluetooth's library is there" in_bare test -e /usr/lib/x86_64-linux-gnu/libsdbus-c++.so.1
    step "the first use makes the user's configuration there" first_use_makes_configuration
    step "the user enables the serial port there" enable_serial
    step "README's example is built with CMake" build_with_cmake
    step "it asks the VIN" prints_vin beside_dongle /home/tester/with_cmake/build/read_vin
    step "README's example is built with pkg-config" build_with_pkg_config
    step "it asks the VIN too" prints_vin beside_dongle /home/tester/read_vin
    step "the packages are purged there" purge_packages
    step "nothing of ours is left there" nothing_is_left
}

rm -rf "$scratch"
mkdir -p "$scratch"
mount -t proc proc /proc # of this namespace
step "packages of a newer version are made" make_newer
step "the same build is packed in two folders" pack_twice
step "the packages of both are the same bytes" same_bytes
step "lintian has no error and no warning" lintian_accepts
step "each package has the bill of materials" each_has_the_bill_of_materials
make_archive minimal && make_archive developer || exit 1
root_file_absent
root_file_of_others
root_file_damaged
development
leave_bare
end_of_steps
