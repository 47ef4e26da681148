#!/bin/bash
# scripts/package_debian.sh [FOLDER]: makes the Debian packages of what build/linux-release has built,
# without compiling anything, and leaves them in FOLDER (build/packages). TARVIK_BUILD names another
# build folder.
#
# PACKAGE_REVISION is the Debian revision (1). The version is the project's. The same build and the same
# SOURCE_DATE_EPOCH (scripts/source_date.sh) give the same bytes in any folder.
set -euo pipefail

cd "$(dirname "$0")/.."
root=$PWD
build=${TARVIK_BUILD:-$root/build/linux-release}
output=$(realpath -m "${1:-build/packages}")
stage=$root/build/package/debian
log=$root/build/logs/package-debian.log
umask 022
export LC_ALL=C.UTF-8 TZ=UTC TARVIK_BUILD=$build
export DPKG_DEB_THREADS_MAX=1 # else what xz makes depends on the number of processors
unset DEB_BUILD_OPTIONS DEB_BUILD_PROFILES DH_VERBOSE DH_OPTIONS MAKEFLAGS

fail() {
    echo "package_debian: $*" >&2
    exit 1
}

version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt" 2>/dev/null) || true
[ -n "$version" ] || fail "build/linux-release is not built; run make package"
SOURCE_DATE_EPOCH=$(scripts/source_date.sh)
export SOURCE_DATE_EPOCH

rm -rf "$stage"
mkdir -p "$stage/tarvik-dpdu" "$output" "$(dirname "$log")"
cp -r packaging/debian "$stage/tarvik-dpdu/debian"
cp CHANGELOG.md "$stage/tarvik-dpdu/debian/"
packaging/debian/changelog.py CHANGELOG.md "$version" "${PACKAGE_REVISION:-1}" \
    >"$stage/tarvik-dpdu/debian/changelog"

TARVIK_WHEEL=$(scripts/package_python.sh "$stage")
export TARVIK_WHEEL
(cd "$stage/tarvik-dpdu" && dpkg-buildpackage --build=binary --no-sign) >"$log" 2>&1 </dev/null || {
    tail -n 20 "$log" >&2
    fail "making the packages failed; see $log"
}

rm -f "$output"/{lib,python3-,}tarvik-dpdu*_*.deb
cp "$stage"/*.deb "$output/"
ls "$output"/{lib,python3-,}tarvik-dpdu*.deb
