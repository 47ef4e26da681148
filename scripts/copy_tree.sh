#!/bin/bash
# scripts/copy_tree.sh FOLDER: copies what is in the work tree, also if it is not committed, but nothing
# that was built. Files keep their times, so that a build in the folder compiles only what has changed.
set -euo pipefail

target=$(realpath -m "$1")
cd "$(dirname "$0")/.."
mkdir -p "$target"
git ls-files -z --cached --others --exclude-standard | while IFS= read -r -d '' file; do
    [ ! -e "$file" ] || printf '%s\0' "$file"
done | tar --null -T - -c | tar -x -C "$target"
