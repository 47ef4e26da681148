#!/bin/bash
# Installs missing packages and builds the libraries that Debian does not offer in the form we need.
# Quick when nothing is missing, so the make targets always call it.
#
#   scripts/setup.sh [linux] [windows] [clang] [test] [package] [lint] [coverage]
#                                                                 (default: linux windows)
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
deps=$root/build/deps
logs=$root/build/logs
export LC_ALL=C DEBIAN_FRONTEND=noninteractive

# Raise it when a recipe below changes, so that cached libraries are built again.
recipe=3
# As TARVIK_HARDENING in cmake/TarvikTargets.cmake. On Windows these libraries are built without.
linux_hardening="-fstack-protector-strong -fstack-clash-protection -fcf-protection=full
    -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2"
json_c_patch=$root/scripts/patches/json-c-0.16-memory.patch

linux_packages="gcc g++ make cmake ninja-build pkg-config patch dpkg-dev util-linux
    libudev-dev libboost-dev umockdev libumockdev-dev libcli11-dev nlohmann-json3-dev libssl-dev
    libexpat1-dev libedit-dev zlib1g-dev esbuild node-d3-array
    libsdbus-c++-dev dbus-daemon libgtest-dev libgmock-dev libbenchmark-dev zsh groff-base
    python3 python3-cryptography-vectors locales"
linux_tools="gcc g++ cmake ctest ninja esbuild pkg-config patch dpkg-source flock umockdev-run
    dbus-daemon zsh groff python3"
windows_packages="g++-mingw-w64-x86-64-posix mingw-w64-tools wine wine64 googletest
    libcli11-dev nlohmann-json3-dev libz-mingw-w64-dev xvfb lld llvm"
windows_tools="x86_64-w64-mingw32-g++-posix x86_64-w64-mingw32-windres wine wineserver Xvfb ld.lld
    lld-link llvm-dlltool"
# For the sanitizers and the fuzz targets; llvm-symbolizer makes functions and lines of addresses.
clang_packages="clang libclang-rt-14-dev llvm"
clang_tools="clang clang++ llvm-symbolizer"
# For tests alone; the second group also for tests of the packages in a bare system.
test_packages="abigail-tools chromium chromium-driver mypy node-typescript nodejs python3-can
    python3-jsonschema python3-selenium python3-setuptools python3-wheel tshark udev"
test_tools="abidw abidiff chromedriver chromium mypy node tsc tshark udevadm"
package_packages="debhelper dh-python python3-setuptools python3-wheel nsis lintian debootstrap"
package_tools="dh dpkg-buildpackage makensis lintian debootstrap"
lint_packages="clang-format clang-tidy cppcheck git"
lint_tools="clang-format clang-tidy cppcheck git"
coverage_packages="gcovr"
coverage_tools="gcov gcovr"

say() { echo "setup: $*"; }

fail() {
    echo "setup: $*" >&2
    exit 1
}

# What the system is, by its os-release file, if it is not Debian 12.
other_system() {
    local file=${TARVIK_OS_RELEASE:-/etc/os-release} id version name
    field() { sed -n "s/^$1=//p" "$file" 2>/dev/null | tr -d "\"'" | head -n 1; }
    id=$(field ID) version=$(field VERSION_ID) name=$(field PRETTY_NAME)
    [ "$id $version" = "debian 12" ] || echo "${name:-${id:-an unknown system}}"
}

is_installed() {
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# Runs a command with its output in a log. A failure is one line that names the log.
logged() {
    local log=$logs/$1.log what=$2
    shift 2
    "$@" >"$log" 2>&1 </dev/null || fail "$what failed; see $log"
}

install_packages() {
    local missing=() package as_root=()
    command -v dpkg-query >/dev/null && command -v apt-get >/dev/null ||
        fail "apt-get is missing from this Debian 12, and these packages are needed:" $*
    for package in "$@"; do
        is_installed "$package" || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0

    if [ "$(id -u)" != 0 ]; then
        command -v sudo >/dev/null ||
            fail "packages are missing and neither root nor sudo is at hand; as root: apt-get install ${missing[*]}"
        as_root=(sudo env DEBIAN_FRONTEND=noninteractive)
    fi
    say "installing ${#missing[@]} Debian packages: ${missing[*]}"
    logged apt-update "apt-get update" "${as_root[@]}" apt-get update
    logged apt-install "installing ${missing[*]}" \
        "${as_root[@]}" apt-get install --yes --no-install-recommends "${missing[@]}"
}

require_tools() {
    local tool
    for tool in "$@"; do
        command -v "$tool" >/dev/null ||
            fail "the program '$tool' is not on the PATH though its Debian package is installed; put its folder on the PATH or reinstall the package"
    done
}

# Source packages are looked up in lists of our own, made from the Debian mirrors that the machine
# already uses. The machine's own package lists are not changed.
apt_private() {
    local program=apt-get
    [ "$1" != showsrc ] || program=apt-cache
    $program -o Dir::Etc::sourcelist="$deps/source/sources.list" -o Dir::Etc::sourceparts=- \
        -o Dir::State::lists="$deps/source/lists" -o Dir::Cache::pkgcache= \
        -o Dir::Cache::srcpkgcache= -o APT::Sandbox::User=root "$@"
}

write_source_list() {
    [ -z "${source_list_ready:-}" ] || return 0
    local keyring=/usr/share/keyrings/debian-archive-keyring.gpg option="" as_root=()
    [ ! -r $keyring ] || option="[signed-by=$keyring] "
    mirrors() {
        apt-get indextargets --format '$(REPO_URI) $(RELEASE) $(COMPONENT) $(ORIGIN)' \
            'Created-By: Packages' | awk '$3 == "main" && $4 == "Debian" {print $1, $2}' | sort -u
    }
    if [ -z "$(mirrors)" ]; then
        [ "$(id -u)" = 0 ] || as_root=(sudo)
        logged apt-update "apt-get update" "${as_root[@]}" apt-get update
    fi
    mkdir -p "$deps/source/lists/partial"
    mirrors | while read -r uri release; do
        echo "deb-src $option$uri $release main"
    done >"$deps/source/sources.list"
    [ -s "$deps/source/sources.list" ] ||
        fail "no Debian mirror is configured for apt, so the source packages of json-c and mbedTLS cannot be fetched; add one to /etc/apt/sources.list"
    logged apt-update-sources "reading the source package lists" apt_private update
    source_list_ready=1
}

# The versions of a source package, newest first.
source_versions() {
    apt_private showsrc --only-source "$1" 2>/dev/null | sed -n 's/^Version: //p' | sort -Vru
}

# fetch_source PACKAGE UPSTREAM-VERSION: leaves the patched source in $deps/source/PACKAGE.
fetch_source() {
    local package=$1 version=$2 folder offered
    [ ! -d "$deps/source/$package" ] || return 0
    write_source_list
    say "fetching the Debian source package $package"
    rm -rf "$deps/source/$package.new"
    mkdir -p "$deps/source/$package.new"
    download() (cd "$deps/source/$package.new" && apt_private source "$package=$1")
    # Newest first: some mirrors list security updates whose sources they do not have.
    for offered in $(source_versions "$package"); do
        ! download "$offered" >"$logs/source-$package.log" 2>&1 </dev/null || break
        say "the mirror does not have $package $offered"
        rm -rf "$deps/source/$package.new"/*
    done
    folder=$(find "$deps/source/$package.new" -mindepth 1 -maxdepth 1 -type d)
    case ${folder##*/} in
        "") fail "fetching the Debian source package $package failed; see $logs/source-$package.log" ;;
        "$package-$version"*) mv "$folder" "$deps/source/$package" ;;
        *) fail "$package $version of Debian 12 is needed, but apt offers ${folder##*/}; look at the releases in /etc/apt/sources.list" ;;
    esac
    rm -rf "$deps/source/$package.new"
}

# build_library SYSTEM NAME SOURCE-FOLDER cmake-option...: installs below $deps/SYSTEM.
build_library() {
    local system=$1 name=$2 source=$3 tools=(-DCMAKE_C_FLAGS="${linux_hardening//$'\n'/ }")
    shift 3
    [ "$system" != windows ] || tools=(-DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-x86_64.cmake")
    say "building $name for $system"
    rm -rf "$deps/build/$system-$name"
    logged "$system-$name-configure" "configuring $name for $system" \
        cmake -S "$source" -B "$deps/build/$system-$name" -G Ninja "${tools[@]}" \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_POSITION_INDEPENDENT_CODE=ON \
        -DCMAKE_C_VISIBILITY_PRESET=hidden -DBUILD_SHARED_LIBS=OFF \
        -DCMAKE_INSTALL_PREFIX="$deps/$system" -DCMAKE_INSTALL_LIBDIR=lib -Wno-dev "$@"
    logged "$system-$name-build" "building $name for $system" cmake --build "$deps/build/$system-$name"
    logged "$system-$name-install" "installing $name for $system" \
        cmake --install "$deps/build/$system-$name"
    rm -rf "$deps/build/$system-$name"
}

# The source is patched in a copy, so that a changed patch applies to it too. Without arc4random, which
# would need glibc 2.36, it takes its seed from getrandom.
build_json_c() {
    local source=$deps/build/json-c-source
    fetch_source json-c 0.16
    rm -rf "$source"
    mkdir -p "$deps/build"
    cp -r "$deps/source/json-c" "$source"
    logged patch-json-c "patching json-c" patch --batch -p1 -d "$source" -i "$json_c_patch"
    build_library "$1" json-c "$source" \
        -DBUILD_STATIC_LIBS=ON -DBUILD_TESTING=OFF -DBUILD_APPS=OFF -DDISABLE_WERROR=ON \
        -DDISABLE_EXTRA_LIBS=ON -DDISABLE_THREAD_LOCAL_STORAGE=ON -DHAVE_ARC4RANDOM=OFF
    rm -rf "$source"
}

# The cloud channel needs its own allocator, which Debian's binary does not accept.
build_mbedtls() {
    fetch_source mbedtls 2.28
    sed -i 's|^//#define MBEDTLS_PLATFORM_MEMORY$|#define MBEDTLS_PLATFORM_MEMORY|' \
        "$deps/source/mbedtls/include/mbedtls/config.h"
    grep -q '^#define MBEDTLS_PLATFORM_MEMORY$' "$deps/source/mbedtls/include/mbedtls/config.h" ||
        fail "mbedTLS's config.h does not offer MBEDTLS_PLATFORM_MEMORY, unlike Debian 12's; remove $deps/source/mbedtls and run this again"
    build_library "$1" mbedtls "$deps/source/mbedtls" \
        -DENABLE_PROGRAMS=OFF -DENABLE_TESTING=OFF -DUSE_STATIC_MBEDTLS_LIBRARY=ON \
        -DUSE_SHARED_MBEDTLS_LIBRARY=OFF -DMBEDTLS_FATAL_WARNINGS=OFF -DINSTALL_MBEDTLS_HEADERS=ON
}

# For the client. Debian's patches ask for the value of XML_DTD, which CMake defines without one.
build_expat() {
    fetch_source expat 2.5
    sed -i 's|^#cmakedefine XML_DTD$|#cmakedefine XML_DTD 1|' \
        "$deps/source/expat/expat/expat_config.h.cmake"
    build_library windows expat "$deps/source/expat/expat" \
        -DEXPAT_BUILD_TOOLS=OFF -DEXPAT_BUILD_EXAMPLES=OFF -DEXPAT_BUILD_TESTS=OFF \
        -DEXPAT_BUILD_DOCS=OFF -DEXPAT_BUILD_PKGCONFIG=OFF -DEXPAT_SHARED_LIBS=OFF
}

build_googletest() {
    build_library windows googletest /usr/src/googletest
}

# Headers need no building, only a place where the cross compiler finds them.
link_headers() {
    mkdir -p "$deps/windows/include"
    ln -sfn /usr/include/CLI "$deps/windows/include/CLI"
    ln -sfn /usr/include/nlohmann "$deps/windows/include/nlohmann"
}

# ensure SYSTEM NAME COMPILER BUILD-COMMAND...: builds unless the stamp shows that it was built, with
# the patch that it has now.
ensure() {
    local system=$1 name=$2 stamp=$deps/$1/$2.stamp key
    key="recipe $recipe, $3 $("$3" -dumpfullversion)"
    [ "$name" != json-c ] || key+=", patch $(sha256sum <"$json_c_patch" | cut -c 1-16)"
    shift 3
    [ "$(cat "$stamp" 2>/dev/null)" != "$key" ] || return 0
    "$@"
    echo "$key" >"$stamp"
}

other=$(other_system)
[ -z "$other" ] || fail "this is $other, but the set-up installs packages of Debian 12 (bookworm) only: build in a container or chroot of Debian 12, for instance with: docker run --rm -it -v '$root':/src -w /src debian:12 bash -c 'apt-get update && apt-get install -y make && make build'; what it builds also runs on other systems, see README.md"

groups=${*:-linux windows}
packages="" tools=""
for group in $groups; do
    case $group in
        linux) packages+=" $linux_packages" tools+=" $linux_tools" ;;
        windows) packages+=" $linux_packages $windows_packages" tools+=" $linux_tools $windows_tools" ;;
        clang) packages+=" $linux_packages $clang_packages" tools+=" $linux_tools $clang_tools" ;;
        test) packages+=" $linux_packages $test_packages" tools+=" $linux_tools $test_tools" ;;
        package) packages+=" $linux_packages $package_packages" tools+=" $linux_tools $package_tools" ;;
        lint) packages+=" $linux_packages $lint_packages" tools+=" $linux_tools $lint_tools" ;;
        coverage) packages+=" $linux_packages $coverage_packages" tools+=" $linux_tools $coverage_tools" ;;
        *) fail "unknown group '$group'; known: linux windows clang test package lint coverage" ;;
    esac
done

mkdir -p "$deps" "$logs"
install_packages $(printf '%s\n' $packages | sort -u)
require_tools $tools

# One set-up at a time: two would build in the same folders.
exec 9>"$deps/.lock"
flock 9

ensure linux json-c gcc build_json_c linux
ensure linux mbedtls gcc build_mbedtls linux
case " $groups " in
    *" windows "*)
        cross=x86_64-w64-mingw32-g++-posix
        ensure windows json-c $cross build_json_c windows
        ensure windows mbedtls $cross build_mbedtls windows
        ensure windows googletest $cross build_googletest
        ensure windows expat $cross build_expat
        link_headers
        ;;
esac
