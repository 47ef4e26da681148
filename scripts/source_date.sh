#!/bin/bash
# Prints the time that packages carry, in seconds since 1970: SOURCE_DATE_EPOCH if it is set, else the
# time of the last commit, and in a tree without history the date of the newest entry in CHANGELOG.md.
set -euo pipefail

cd "$(dirname "$0")/.."

changelog_date() { sed -n 's/^## \[[^]]*\] - \([0-9-]*\)$/\1/p' CHANGELOG.md | head -n 1; }

if [ -n "${SOURCE_DATE_EPOCH:-}" ]; then
    echo "$SOURCE_DATE_EPOCH"
elif ! { [ -e .git ] && git log -1 --format=%ct 2>/dev/null; }; then
    date=$(changelog_date)
    [ -n "$date" ] || {
        echo "source_date: no commit, and no dated entry in CHANGELOG.md; set SOURCE_DATE_EPOCH" >&2
        exit 1
    }
    date -u -d "$date" +%s
fi
