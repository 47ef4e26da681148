#!/bin/bash
# viewer/test.sh: checks the types of the report's page and runs the unit tests of its modules.
set -euo pipefail
cd "$(dirname "$0")"
tsc -p .
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
NODE_PATH=/usr/share/nodejs esbuild tests/page.test.ts --bundle --platform=node --format=cjs \
    --log-level=warning --outfile="$scratch/page.test.cjs"
node --test "$scratch/page.test.cjs"
