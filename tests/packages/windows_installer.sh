#!/bin/bash
# windows_installer.sh: installs what is in build/packages under Wine, in a prefix of its own, uses it,
# upgrades it and removes it. Exit codes of the installer are listed in packaging/windows/README.txt.
set -uo pipefail

root=$(cd "$(dirname "$0")/../.." && pwd)
. "$root/tests/packages/steps.sh"

scratch=$root/build/package/wine
export TARVIK_WINEPREFIX=$scratch/prefix TARVIK_RUN_LIMIT=90
drive=$TARVIK_WINEPREFIX/drive_c
folder=$drive/Tarvik/Brennix
usual_root_file="$drive/Program Files/D-PDU API/pdu_api_root_x64.xml"
uninstall_key='HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\TarvikDPDU'
vin=WTVDEM0S1M0000001

setup=$(ls "$root"/build/packages/tarvik-dpdu-*-win64-setup.exe 2>/dev/null) &&
    zip=$(ls "$root"/build/packages/tarvik-dpdu-*-win64.zip) ||
    { echo "FAILED: there is no installer; run make package"; exit 1; }
version=$(basename "$setup" -win64-setup.exe)
version=${version#tarvik-dpdu-}
name=Tarvik_DPDU_API_x64_${version//./_}

mkdir -p "$scratch"
if [ "${1:-}" != client ]; then
    exec 8>"$scratch/.lock" # one at a time: the prefix has a fixed folder
    flock 8
    trap '"$root/scripts/stop-wine.sh"' EXIT
fi

if [ "${1:-}" != client ]; then
    read -r newer_tree newer < <("$root/tests/packages/newer_tree.sh" windows-release)
    [ -n "${newer:-}" ] || { echo "FAILED: a newer version does not build"; exit 1; }
    newer_name=Tarvik_DPDU_API_x64_${newer//./_}
fi

windows() { "$root/scripts/run-wine.sh" "$@" 8>&-; }
fresh_prefix() {
    "$root/scripts/stop-wine.sh"
    rm -rf "$TARVIK_WINEPREFIX"
    windows
}
use_windows_10() { windows winecfg /v win10; }
# ends_with CODE COMMAND...
ends_with() {
    local wanted=$1 code
    shift
    "$@"
    code=$?
    [ $code = "$wanted" ] || { echo "exit code $code, not $wanted"; return 1; }
}
value_of() { windows reg query "$1" /v "$2" /reg:64 | tr -d '\r' | sed -n "s/^ *$2 *REG_[A-Z]* *//p"; }
value_is() {
    local value
    value=$(value_of "$1" "$2")
    [ "$value" = "$3" ] || { echo "$2 is '$value'"; return 1; }
}
has_no_key() { ! windows reg query "$1" /reg:64 >/dev/null 2>&1; }
has_text() { grep -F -- "$2" "$1"; }
is_gone() { [ ! -e "$1" ] || { find "$1"; return 1; }; }
# The uninstaller goes on in a copy of itself after its first process has ended.
uninstall() {
    local wait=0
    windows "C:\\${1//\//\\}\\uninstall.exe" /S || return
    until [ ! -e "$drive/$1/uninstall.exe" ] || [ $((++wait)) = 300 ]; do sleep 0.1; done
    "$root/scripts/stop-wine.sh" # its last process writes the registry
    windows
}

# --- programs ---

# compile NAME [option...]
compile() {
    x86_64-w64-mingw32-gcc-posix -Wall -Wextra -Werror -static -I "$root/include" \
        "$root/tests/packages/$1.c" -o "$scratch/$1.exe" "${@:2}"
}
build_programs() { compile root_file_client -ladvapi32 && compile run_read_only -municode; }
# Inside run_with_dongle.sh: the user's configuration is that of the launcher.
client_session() {
    local config=${BRENNIX_SIM_SCRATCH#Z:}
    config=${config//\\//}/config/Tarvik/Brennix
    mkdir -p "$config"
    sed 's/"useSerial": *false/"useSerial": true/' "$folder/bin/config.json" >"$config/config.json"
    windows "$scratch/root_file_client.exe" registry Tarvik_
}
if [ "${1:-}" = client ]; then
    client_session
    exit
fi
client_asks_vin() {
    "$root/tests/fixtures/run_with_dongle.sh" wine --tools "$root/build/linux-release" \
        --helper "$root/build/windows-release/wine_port.exe" --strict -- "$0" client 8>&- |
        tr -d '\r' | tee /dev/stderr | grep -qx "VIN $vin"
}
installed_dpdu() { windows "C:\\Tarvik\\Brennix\\bin\\dpdu.exe" "$@" | tr -d '\r'; }
user_config() { find "$drive/users" -path '*/Tarvik/Brennix/config.json'; }
first_use_makes_configuration() {
    [ -z "$(user_config)" ] || { user_config; return 1; }
    # Finds none, as every transport is off.
    ends_with 1 windows "$scratch/run_read_only.exe" 'C:\Tarvik\Brennix\bin\config.json' \
        'C:\Tarvik\Brennix\bin\dpdu.exe' modules --wait 0 &&
        cmp "$folder/bin/config.json" "$(user_config)"
}
change_user_configuration() {
    sed -i 's/"showDebug":false/"showDebug":true/' "$(user_config)" &&
        ! cmp -s "$folder/bin/config.json" "$(user_config)" && cp "$(user_config)" "$scratch/user_config.json"
}
user_configuration_stays() { cmp "$scratch/user_config.json" "$(user_config)"; }
check_finds_nothing_wrong() {
    installed_dpdu root check "$name" | tee /dev/stderr | grep '^1 library checked: nothing wrong'
}
vendor_is_used() { installed_dpdu objects HI --vendor "$name" | grep -E 'pin-type +0 +HI'; }
libraries_are_listed() { installed_dpdu libraries | grep -E "^$name +Tarvik +yes +C:/Tarvik/"; }

# --- an empty machine ---

lists_the_files() {
    local uri="URI=\"file:///C:/Tarvik/Brennix/bin"
    has_text "$usual_root_file" "<SHORT_NAME>$name</SHORT_NAME>" &&
        has_text "$usual_root_file" "<LIBRARY_FILE $uri/tarvik_dpdu_x64.dll\"/>" &&
        has_text "$usual_root_file" "<MODULE_DESCRIPTION_FILE $uri/tarvik_mdf.xml\"/>" &&
        has_text "$usual_root_file" "<CABLE_DESCRIPTION_FILE $uri/tarvik_cdf.xml\"/>"
}
# Wine shows the rights as those of Linux: what users may do as the rights of all others.
users_do_not_write() {
    [[ $(stat -c %A "$1") == d???????-? ]] || { stat -c %A "$1"; return 1; }
}
# As a user might make them beforehand, to change later what is in them.
make_open_folders() { mkdir -p "$folder" && chmod 777 "$drive/Tarvik" "$folder"; }
registered() {
    value_is "$uninstall_key" DisplayVersion "$1" && value_is "$uninstall_key" Publisher Tarvik &&
        value_is "$uninstall_key" InstallLocation 'C:\Tarvik\Brennix'
}
no_root_file() {
    is_gone "${usual_root_file%/*}" && has_no_key 'HKLM\SOFTWARE\D-PDU API'
}

step "an empty prefix" fresh_prefix
step "the test programs are built" build_programs
step "an older Windows is refused" ends_with 3 windows "$setup" /S
step "nothing was installed there" is_gone "$drive/Tarvik"
step "Windows 10" use_windows_10
step "somebody has made its folders, which everybody may write to" make_open_folders
step "a silent installation" windows "$setup" /S
[ -s "$folder/bin/dpdu.exe" ] || end_of_steps # everything else would fail for that
step "the registry names the usual root file" value_is 'HKLM\SOFTWARE\D-PDU API' 'Root File' \
    'C:\Program Files\D-PDU API\pdu_api_root_x64.xml'
step "the root file names the installed files" lists_the_files
step "installed programs show it" registered "$version"
step "users do not write to the folder" users_do_not_write "$folder"
step "nor to the one around it" users_do_not_write "$drive/Tarvik"
step "a client that knows only the registry asks a VIN" client_asks_vin
step "dpdu uses the library by its name" vendor_is_used
step "dpdu lists it" libraries_are_listed
step "dpdu finds the library beside it" installed_dpdu objects HI
step "the root file, the library and its descriptions agree" check_finds_nothing_wrong
step "the first use makes the user's configuration" first_use_makes_configuration
step "the user changes it" change_user_configuration
step "it is removed" uninstall Tarvik/Brennix
step "no file is left" is_gone "$drive/Tarvik"
step "the root file and its key are gone" no_root_file
step "installed programs do not show it" has_no_key "$uninstall_key"
step "no key is left" has_no_key 'HKLM\Software\Tarvik'
step "the user's configuration is as the user left it" user_configuration_stays

# --- a machine with libraries of others ---

vendors=$drive/Vendors/roots.xml
put_vendors() {
    mkdir -p "$drive/Vendors"
    printf '%s\r\n' '<?xml version="1.0" encoding="UTF-8"?>' '<!-- shared by two -->' \
        '<MVCI_PDU_API_ROOT MVCI_PART2_STANDARD_VERSION="2.2.0">' \
        "	<MVCI_PDU_API><SHORT_NAME>First_1_0_0</SHORT_NAME></MVCI_PDU_API>" \
        "	<MVCI_PDU_API>" "		<SHORT_NAME>Second_2_0_0</SHORT_NAME>" "	</MVCI_PDU_API>" \
        '</MVCI_PDU_API_ROOT>' >"$vendors"
    cp "$vendors" "$scratch/vendors.xml"
    windows reg add 'HKLM\SOFTWARE\D-PDU API' /v 'Root File' /d 'C:\Vendors\roots.xml' /reg:64 /f
}
# only_is_new NAME: the file has one entry of ours, and without its lines it is the file of before.
only_is_new() {
    [ "$(grep -c ">Tarvik_" "$vendors")" = 1 ] && has_text "$vendors" ">$1<" &&
        diff <(sed "/<MVCI_PDU_API>\r$/{N;/$1/{:a;N;/<\/MVCI_PDU_API>\r$/!ba;d}}" "$vendors") \
            "$scratch/vendors.xml"
}
vendors_are_as_before() { cmp "$vendors" "$scratch/vendors.xml"; }
make_newer() { "$newer_tree/scripts/package_windows.sh" "$scratch/newer"; }
newer_setup=$scratch/newer/tarvik-dpdu-$newer-win64-setup.exe
change_config() { sed -i 's/"useBle": *false/"useBle": true/' "$folder/bin/config.json"; }
config_is_changed() { has_text "$folder/bin/config.json" '"useBle": true'; }
# A program that has it loaded until it is ended. Not by the function above, which would be a process
# around it.
hold_library() {
    "$root/scripts/run-wine.sh" "C:\\Tarvik\\Brennix\\bin\\dpdu.exe" modules --wait 600 8>&- >/dev/null 2>&1 &
    holder=$!
    await is_held
}
is_free() { ! is_held; }
is_held() { grep -qsF "$folder/bin/tarvik_dpdu_x64.dll" /proc/[0-9]*/maps; }
# Waits until the command succeeds, at most 30 s.
await() {
    local turns=0
    until "$@" >/dev/null; do
        [ $((++turns)) -lt 300 ] || return 1
        sleep 0.1
    done
}
refuses_while_used() {
    local code
    hold_library || { echo "the library was not loaded"; return 1; }
    ends_with 5 windows "$newer_setup" /S
    code=$?
    kill "$holder"
    wait "$holder" 2>/dev/null
    await is_free
    return $code
}
refuses_a_foreign_folder() {
    mkdir -p "$drive/Foreign"
    touch "$drive/Foreign/other.dll"
    ends_with 7 windows "$setup" /S '/D=C:\Foreign' && [ "$(ls "$drive/Foreign")" = other.dll ]
}

refuses_another_folder() { ends_with 8 windows "$newer_setup" /S '/D=C:\Other' && is_gone "$drive/Other"; }
config_is_that_of() { cmp "$1/build/windows-release/descriptions/config.json" "$folder/bin/config.json"; }

step "a prefix with two other vendors' libraries" put_vendors
step "a silent installation there" windows "$setup" /S
step "the vendors' entries keep every byte" only_is_new "$name"
step "ours is as it should be beside them" check_finds_nothing_wrong
step "the registry still names their file" value_is 'HKLM\SOFTWARE\D-PDU API' 'Root File' \
    'C:\Vendors\roots.xml'
step "a newer installer" make_newer
step "it refuses another folder than that of before" refuses_another_folder
step "it refuses to replace a library in use" refuses_while_used
step "nothing was changed by that" registered "$version"
step "it installs when the library is not in use" windows "$newer_setup" /S
step "installed programs show the newer version" registered "$newer"
step "the newer entry takes the place of the older" only_is_new "$newer_name"
step "the unchanged configuration is the newer one" config_is_that_of "$newer_tree"
step "somebody changes the configuration beside the library" change_config
step "it is installed again" windows "$newer_setup" /S
step "the changed configuration is there" config_is_changed
step "it is removed from there" uninstall Tarvik/Brennix
step "the vendors' file is as before" vendors_are_as_before
step "the changed configuration stays" config_is_changed
step "it is installed beside that again" windows "$setup" /S
step "the changed configuration is still there" config_is_changed
step "it is removed once more" uninstall Tarvik/Brennix
step "a folder with files of others is refused" refuses_a_foreign_folder
step "another folder" windows "$setup" /S '/D=C:\OtherTools\Tarvik'
step "the files are there" test -s "$drive/OtherTools/Tarvik/bin/tarvik_dpdu_x64.dll"
step "it is removed from that folder" uninstall "OtherTools/Tarvik"
step "nothing is left of it" is_gone "$drive/OtherTools/Tarvik"
step "the vendors' file is as before again" vendors_are_as_before

# --- the zip ---

unpacked="$drive/Zip grüßt 山田"
unpack() { mkdir -p "$unpacked" && python3 -m zipfile -e "$zip" "$unpacked"; }
zip_runs() {
    windows "$unpacked/tarvik-dpdu-$version-win64/bin/dpdu.exe" objects HI | grep -E 'pin-type +0 +HI'
}
step "the zip is unpacked" unpack
step "its dpdu uses the library beside it" zip_runs

end_of_steps
