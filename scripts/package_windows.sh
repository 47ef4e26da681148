#!/bin/bash
# scripts/package_windows.sh [FOLDER]: makes the installer and the zip for Windows of what
# build/windows-release has built, without compiling anything, and leaves them in FOLDER
# (build/packages). TARVIK_BUILD_WINDOWS names another build folder.
#
# The same build and the same SOURCE_DATE_EPOCH (scripts/source_date.sh) give the same bytes in any
# folder.
set -euo pipefail

cd "$(dirname "$0")/.."
root=$PWD
build=${TARVIK_BUILD_WINDOWS:-$root/build/windows-release}
output=$(realpath -m "${1:-build/packages}")
stage=$root/build/package/windows
log=$root/build/logs/package-windows.log
umask 022
export LC_ALL=C.UTF-8 TZ=UTC

fail() {
    echo "package_windows: $*" >&2
    exit 1
}

# logged COMMAND...: its output is shown only if it fails.
logged() {
    "$@" >>"$log" 2>&1 </dev/null || {
        tail -n 20 "$log" >&2
        fail "$1 failed; see $log"
    }
}

version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt" 2>/dev/null) || true
[ -n "$version" ] || fail "build/windows-release is not built; run make package"
SOURCE_DATE_EPOCH=$(scripts/source_date.sh)
export SOURCE_DATE_EPOCH
name=tarvik-dpdu-$version-win64
tree=$stage/$name

rm -rf "$stage"
mkdir -p "$stage/lists" "$output" "$(dirname "$log")"
: >"$log"
logged cmake --install "$build" --prefix "$tree"
find "$tree" -name '*.debug' -delete # for developers of the library, who build it themselves
x86_64-w64-mingw32-strip "$tree/bin/dpdu.exe"
sed "s/@VERSION@/$version/; s/$/\r/" packaging/windows/README.txt >"$tree/README.txt"
find "$tree" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +

# "product" or "development", for the installer's sections.
section_of() {
    case $1 in
        include/* | lib/*) echo development ;;
        bin/config.json) ;; # kept if it was changed: installer.nsi
        *) echo product ;;
    esac
}

windows_path() { tr / '\\' <<<"$1"; }

# The files of the tree as commands of NSIS.
(cd "$tree" && find . -type f -printf '%P\n' | LC_ALL=C sort) | while read -r file; do
    section=$(section_of "$file")
    folder='$INSTDIR'
    [[ $file != */* ]] || folder+="\\$(windows_path "${file%/*}")"
    if [ -n "$section" ]; then
        printf 'SetOutPath "%s"\nFile "%s"\n' "$folder" "$tree/$file" \
            >>"$stage/lists/install_$section.nsh"
        printf 'Delete "$INSTDIR\\%s"\n' "$(windows_path "$file")" >>"$stage/lists/uninstall.nsh"
    fi
done
(cd "$tree" && find . -mindepth 1 -type d -printf '%P\n' | LC_ALL=C sort -r) | while read -r folder; do
    printf 'RMDir "$INSTDIR\\%s"\n' "$(windows_path "$folder")"
done >>"$stage/lists/uninstall.nsh"

rm -f "$output"/tarvik-dpdu-*-win64*
logged makensis -NOCD -V2 -WX -DVERSION="$version" -DSTAGE="$tree" -DLISTS="$stage/lists" \
    -DOUTPUT="$output/$name-setup.exe" packaging/windows/installer.nsi
# Not by a program of the system: those also store when a file was read, and who owns it.
python3 - "$tree" "$output/$name.zip" <<'PYTHON'
import os, sys, time, zipfile
from pathlib import Path

tree, target = Path(sys.argv[1]), sys.argv[2]
moment = time.gmtime(int(os.environ["SOURCE_DATE_EPOCH"]))[:6]
with zipfile.ZipFile(target, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as archive:
    for path in sorted(path for path in tree.rglob("*") if path.is_file()):
        entry = zipfile.ZipInfo(path.relative_to(tree.parent).as_posix(), moment)
        entry.compress_type, entry.create_system = zipfile.ZIP_DEFLATED, 0
        archive.writestr(entry, path.read_bytes())
PYTHON
ls "$output/$name"*
