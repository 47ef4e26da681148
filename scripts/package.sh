#!/bin/bash
# scripts/package.sh: makes all packages of what is built, in build/packages, and lists them.
set -euo pipefail

cd "$(dirname "$0")/.."
SOURCE_DATE_EPOCH=$(scripts/source_date.sh)
export SOURCE_DATE_EPOCH

rm -rf build/packages
for system in python debian windows; do
    scripts/package_$system.sh >/dev/null
done

cd build/packages
for file in *; do
    printf '%9d  %s  %s\n' "$(stat -c %s "$file")" "$(sha256sum "$file" | cut -d' ' -f1)" "$file"
done
