#!/bin/bash
# same_files.sh LINUX-FOLDER WINDOWS-FOLDER: the description files of both builds are the same, and the
# configurations except for their line ends.
source "$(dirname "$0")/../exports/checks.sh"

linux=$1 windows=$2
for name in tarvik_mdf.xml tarvik_cdf.xml; do
    check "$name has content" yes "$([ -s "$windows/$name" ] && echo yes)"
    check "$name is the same" "" "$(cmp "$linux/$name" "$windows/$name" 2>&1)"
done
check "config.json has the same lines" "$(cat "$linux/config.json")" \
    "$(tr -d '\r' <"$windows/config.json")"
exit $((failures > 0))
