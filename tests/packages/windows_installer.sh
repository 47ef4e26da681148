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
other_folder=$drive/OtherTools/Tarvik
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
# Root writes to read-only files too, which no user of Windows does.
touch "$scratch/read_only"
chmod a-w "$scratch/read_only"
if [ "$(id -u)" = 0 ] && [ -w "$scratch/read_only" ]; then
    exec setpriv --bounding-set=-dac_override --inh-caps=-dac_override "$0" "$@"
fi
if [ "${1:-}" != client ]; then
    exec 8>"$scratch/.lock" # one at a time: the prefix has a fixed folder
    flock 8
    trap '"$root/scripts/stop-wine.sh"' EXIT
    read -r newer_tree newer < <("$root/tests/packages/newer_tree.sh" windows-release 8>&-)
    [ -n "${newer:-}" ] || { echo "FAILED: a newer version does not build"; exit 1; }
    newer_name=Tarvik_DPDU_API_x64_${newer//./_}
    newer_setup=$scratch/newer/tarvik-dpdu-$newer-win64-setup.exe
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
# Waits until the command succeeds, at most 30 s.
await() {
    local turns=0
    until "$@" >/dev/null; do
        [ $((++turns)) -lt 300 ] || return 1
        sleep 0.1
    done
}
# processes_with FILE TEXT: those of this prefix with the text in this file of /proc; fails without any.
processes_with() {
    local file found=1
    for file in $(grep -lsF -- "$2" /proc/[0-9]*/"$1"); do
        grep -qszFx "WINEPREFIX=$TARVIK_WINEPREFIX" "${file%/*}/environ" && echo "${file%/*}" && found=0
    done
    return $found
}
uninstaller_has_ended() { ! processes_with cmdline '~nsu'; }
# The uninstaller goes on in a copy of itself, in a folder ~nsu…, after its first process has ended. If
# run-wine.sh starts it again because Wine's server has crashed, the first start may have removed it.
uninstall() {
    windows "C:\\${1//\//\\}\\uninstall.exe" /S || is_gone "$drive/$1/uninstall.exe" || return
    await uninstaller_has_ended
}

# --- programs ---

build_client() {
    x86_64-w64-mingw32-gcc-posix -Wall -Wextra -Werror -static -I "$root/include" \
        "$root/tests/packages/root_file_client.c" -o "$scratch/root_file_client.exe" -ladvapi32
}
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
vendor_is_used() { installed_dpdu objects HI --vendor "$name" | grep -E 'pin-type +0 +HI'; }
libraries_are_listed() { installed_dpdu libraries | grep -E "^$name +Tarvik +yes +C:/Tarvik/"; }

# check_finds_nothing [NAME]: of the machine's only library, or of this one.
check_finds_nothing() {
    local said
    said=$(installed_dpdu root check "$@" --wait 0) || { echo "exit code $?: $said"; return 1; }
    grep -x '1 library checked: nothing wrong.*' <<<"$said"
}

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
    [[ $(stat -c %A "$1") == d???????[^w]? ]] || { stat -c %A "$1"; return 1; }
}
registered() {
    value_is "$uninstall_key" DisplayVersion "$1" && value_is "$uninstall_key" Publisher Tarvik &&
        value_is "$uninstall_key" InstallLocation 'C:\Tarvik\Brennix'
}
no_root_file() { is_gone "${usual_root_file%/*}" && has_no_key 'HKLM\SOFTWARE\D-PDU API'; }
# Wine closes a new folder to others by itself, unlike one that was there.
put_open_folders() {
    mkdir -p "$folder"
    chmod 777 "$drive/Tarvik" "$folder"
}
# path_of_user_configuration: %APPDATA%\Tarvik\Brennix\config.json, as a path of Linux.
path_of_user_configuration() {
    local folder
    folder=$(windows cmd /c 'echo %APPDATA%' | tr -d '\r')
    folder=${folder#C:}
    echo "$drive${folder//\\//}/Tarvik/Brennix/config.json"
}
# What Windows keeps a user from writing is read-only here.
first_use_copies_configuration() {
    local code
    is_gone "$user_config" || return
    chmod a-w "$folder/bin/config.json"
    installed_dpdu modules --wait 0
    cmp "$folder/bin/config.json" "$user_config"
    code=$?
    chmod u+w "$folder/bin/config.json"
    return $code
}
change_user_configuration() {
    sed -i 's/"enableCopTrace":true/"enableCopTrace":false/' "$user_config" &&
        ! cmp -s "$folder/bin/config.json" "$user_config" && cp "$user_config" "$scratch/user.json"
}
user_configuration_is_as_before() { cmp "$user_config" "$scratch/user.json"; }

step "an empty prefix" fresh_prefix
step "the test client is built" build_client
step "an older Windows is refused" ends_with 3 windows "$setup" /S
step "nothing was installed there" is_gone "$drive/Tarvik"
step "Windows 10" use_windows_10
user_config=$(path_of_user_configuration)
step "folders that every user writes to" put_open_folders
step "a silent installation" windows "$setup" /S
[ -s "$folder/bin/dpdu.exe" ] || end_of_steps # everything else would fail for that
step "the registry names the usual root file" value_is 'HKLM\SOFTWARE\D-PDU API' 'Root File' \
    'C:\Program Files\D-PDU API\pdu_api_root_x64.xml'
step "the root file names the installed files" lists_the_files
step "installed programs show it" registered "$version"
step "users do not write to the folder any more" users_do_not_write "$folder"
step "nor to the one around it" users_do_not_write "$drive/Tarvik"
step "a client that knows only the registry asks a VIN" client_asks_vin
step "dpdu uses the library by its name" vendor_is_used
step "dpdu lists it" libraries_are_listed
step "dpdu finds the library beside it" installed_dpdu objects HI
step "dpdu root check finds nothing wrong" check_finds_nothing
step "the first use copies the configuration for the user" first_use_copies_configuration
step "the user changes it" change_user_configuration
step "it is removed" uninstall Tarvik/Brennix
step "no file is left" is_gone "$drive/Tarvik"
step "the user's configuration stays" user_configuration_is_as_before
step "the root file, its folder and its key are gone" no_root_file
step "installed programs do not show it" has_no_key "$uninstall_key"
step "no key is left" has_no_key 'HKLM\Software\Tarvik'

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
# only_ours_is_new NAME: what is left without the lines of this entry is the file of before.
only_ours_is_new() {
    has_text "$vendors" ">$1<" &&
        diff <(sed "/<MVCI_PDU_API>\r$/{N;/$1/{:a;N;/<\/MVCI_PDU_API>\r$/!ba;d}}" "$vendors") \
            "$scratch/vendors.xml"
}
vendors_are_as_before() { cmp "$vendors" "$scratch/vendors.xml"; }
make_newer() { "$newer_tree/scripts/package_windows.sh" "$scratch/newer"; }
dpdu_is_newer() { installed_dpdu --version | grep -Fx "dpdu $newer"; }
change_config() { sed -i 's/"useBle":false/"useBle":true/' "$folder/bin/config.json"; }
config_is_changed() { has_text "$folder/bin/config.json" '"useBle":true'; }
config_is_newer() {
    local template=$newer_tree/build/windows-release/descriptions/config.json
    cmp "$template" "$folder/bin/config.json" && ! cmp -s "$template" "$scratch/config.json"
}
only_config_is_left() {
    local left
    left=$(find "$drive/Tarvik" -type f)
    [ "$left" = "$folder/bin/config.json" ] || { echo "$left"; return 1; }
}
# Prints what an installation changes.
installed_state() {
    find "$drive/Tarvik" "$vendors" -exec ls -ld --time-style=full-iso {} + -type f -exec sha256sum {} +
    windows reg query "$uninstall_key" /reg:64
    windows reg query 'HKLM\Software\Tarvik' /s /reg:64
}
# changes_nothing COMMAND...
changes_nothing() {
    local before after
    before=$(installed_state)
    "$@" || return
    after=$(installed_state)
    diff <(echo "$before") <(echo "$after")
}
# The library stays loaded until run-wine.sh, which must not be the child of a shell then, is ended.
hold_library() {
    "$root/scripts/run-wine.sh" "C:\\Tarvik\\Brennix\\bin\\dpdu.exe" modules --wait 600 \
        >/dev/null 2>&1 8>&- &
    holder=$!
    await is_held
}
is_held() { processes_with maps tarvik_dpdu_x64.dll; }
is_not_held() { ! is_held; }
refuses_while_used() {
    local code
    hold_library || { echo "the library was not loaded"; return 1; }
    ends_with 5 windows "$newer_setup" /S
    code=$?
    kill "$holder"
    wait "$holder" 2>/dev/null
    await is_not_held && return $code
}
refuses_another_folder() {
    ends_with 8 windows "$newer_setup" /S '/D=C:\OtherTools\Tarvik' && is_gone "$other_folder"
}
# It does not remove itself.
uninstall_and_wait() {
    windows 'C:\Tarvik\Brennix\uninstall.exe' /S '_?=C:\Tarvik\Brennix' && [ -e "$folder/uninstall.exe" ]
}
uninstall_left_over() { uninstall_and_wait && uninstall Tarvik/Brennix && only_config_is_left; }
other_folder_is_registered() {
    value_is "$uninstall_key" InstallLocation 'C:\OtherTools\Tarvik' &&
        value_is 'HKLM\Software\Tarvik\D-PDU' Folder 'C:\OtherTools\Tarvik' &&
        only_ours_is_new "$name" && has_text "$vendors" "C:/OtherTools/Tarvik/bin/tarvik_dpdu_x64.dll"
}
refuses_a_foreign_folder() {
    mkdir -p "$drive/Foreign"
    touch "$drive/Foreign/other.dll"
    ends_with 7 windows "$setup" /S '/D=C:\Foreign' && [ "$(ls "$drive/Foreign")" = other.dll ]
}

step "a prefix with two other vendors' libraries" put_vendors
step "a silent installation there" windows "$setup" /S
step "the vendors' entries keep every byte" only_ours_is_new "$name"
step "the registry still names their file" value_is 'HKLM\SOFTWARE\D-PDU API' 'Root File' \
    'C:\Vendors\roots.xml'
step "dpdu root check finds nothing wrong with it" check_finds_nothing "$name"
cp "$folder/bin/config.json" "$scratch/config.json"
step "a newer installer" make_newer
step "it refuses another folder and changes nothing" changes_nothing refuses_another_folder
step "it refuses to replace a library in use and changes nothing" changes_nothing refuses_while_used
step "it installs when the library is not in use" windows "$newer_setup" /S
step "installed programs show the newer version" registered "$newer"
step "dpdu is the newer one" dpdu_is_newer
step "the newer entry is in the place of the older" only_ours_is_new "$newer_name"
step "dpdu root check finds nothing wrong with the newer one" check_finds_nothing "$newer_name"
step "the configuration that nobody changed is the newer one" config_is_newer
step "the user's configuration is as before" user_configuration_is_as_before
step "somebody changes the configuration beside the library" change_config
step "another upgrade, back to the older version" windows "$setup" /S
step "the changed configuration is there" config_is_changed
step "it is removed from there" uninstall Tarvik/Brennix
step "the vendors' file is as before" vendors_are_as_before
step "the changed configuration stays" config_is_changed
step "no other file is left" only_config_is_left
step "the user's configuration stays as well" user_configuration_is_as_before
step "it is installed beside the changed configuration" windows "$setup" /S
step "the changed configuration is still there" config_is_changed
step "it is removed by an uninstaller that waits" uninstall_and_wait
step "the changed configuration stays again" config_is_changed
step "a folder with files of others is refused" refuses_a_foreign_folder
step "another folder, after the removal from the first" windows "$setup" /S '/D=C:\OtherTools\Tarvik'
step "the files are there" test -s "$other_folder/bin/tarvik_dpdu_x64.dll"
step "the uninstaller that was left in the first folder removes itself" uninstall_left_over
step "programs and root file still have the other folder" other_folder_is_registered
step "it is removed from that folder" uninstall "OtherTools/Tarvik"
step "nothing is left of it" is_gone "$other_folder"
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
