#!/bin/bash
# same_files.sh LINUX-FOLDER WINDOWS-FOLDER: the description files of both builds are the same, and the
# configurations except for their line ends.
set -uo pipefail

linux=$1 windows=$2 failures=0
expect() {
    local what=$1
    shift
    "$@" && echo "ok: $what" && return
    failures=$((failures + 1))
    echo "FAILED: $what"
}
same_text() { diff <(cat "$1") <(tr -d '\r' <"$2"); }

expect "the module description is there" test -s "$windows/tarvik_mdf.xml"
for name in tarvik_mdf.xml tarvik_cdf.xml; do
    expect "$name is the same" cmp "$linux/$name" "$windows/$name"
done
expect "config.json has the same lines" same_text "$linux/config.json" "$windows/config.json"
exit $((failures > 0))
