# For the scripts beside it. Sourced with the build folder and the version in build and version; sets
# here, folder (removed at the end) and moved, a prefix that everything was installed into and that was
# moved then.
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source "$here/../exports/checks.sh"

folder=$(mktemp -d "${TMPDIR:-/tmp}/brennix-install.XXXXXX")
clean_up() {
    chmod -R u+w "$folder"
    rm -rf "$folder"
}
trap clean_up EXIT

# install_into PREFIX [OPTION...]
install_into() {
    cmake --install "$build" --prefix "$@" >"$folder/log" 2>&1 && return
    cat "$folder/log"
    echo "FAILED: cmake --install"
    exit 1
}

# The files of a component with their modes, links with their targets; the version as VERSION.
files_of() {
    install_into "$folder/$1" --component "$1"
    (cd "$folder/$1" && find . -type f -printf '%P %m\n' -o -type l -printf '%P -> %l\n') |
        sed "s/${version//./\\.}/VERSION/g; s/\.so\.${version%%.*}\b/.so.MAJOR/g" | LC_ALL=C sort
}

# check_lists SYSTEM: what is installed is in the lists beside this file.
check_lists() {
    local component
    for component in runtime development tools; do
        check "files of the component $component" \
            "$(cat "$here/lists/$1-$component.txt")" "$(files_of $component)"
    done
}

install_into "$folder/prefix"
moved=$folder/elsewhere/tarvik
mkdir -p "$folder/elsewhere"
mv "$folder/prefix" "$moved"
