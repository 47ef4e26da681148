#!/bin/bash
# newer_tree.sh PRESET: builds the products of a copy of the work tree whose version is a newer one, for
# tests of an upgrade. Prints the folder and the version.
set -euo pipefail

root=$(cd "$(dirname "$0")/../.." && pwd)
tree=$root/build/package/newer
log=$root/build/logs/newer-$1.log

mkdir -p "$tree/build" "$root/build/logs"
exec 9>"$tree/.lock" # the tests of both systems use it
flock 9
find "$tree" -mindepth 1 -maxdepth 1 ! -name build ! -name .lock -exec rm -rf {} +
"$root/scripts/copy_tree.sh" "$tree"
ln -sfn "$root/build/deps" "$tree/build/deps"

version=$(sed -n 's/^project(tarvik_dpdu VERSION \([0-9.]*\) .*/\1/p' "$tree/CMakeLists.txt")
newer=${version%.*}.$((${version##*.} + 1))
sed -i "s/^project(tarvik_dpdu VERSION $version /project(tarvik_dpdu VERSION $newer /" "$tree/CMakeLists.txt"
sed -i "0,/^## \[$version\] - \(.*\)/s//## [$newer] - \1\n\n- An upgrade.\n\n&/" "$tree/CHANGELOG.md"

echo "building version $newer for $1" >&2
export SOURCE_DATE_EPOCH=$(("$("$root/scripts/source_date.sh")" + 1))
BUILD_TARGETS=products "$tree/scripts/build.sh" "$1" >"$log" 2>&1 </dev/null || {
    tail -n 20 "$log" >&2
    exit 1
}
# The template of users' configurations is another one, too.
template=$tree/build/$1/descriptions/config.json
grep -q '^$' "$template" || echo >>"$template"
echo "$tree $newer"
