#!/bin/bash
# Ends the Wine server of the project's prefix, and with it every program that still runs there.
set -u

root=$(cd "$(dirname "$0")/.." && pwd)
export WINEPREFIX=${TARVIK_WINEPREFIX:-$root/build/wine/prefix}
[ -d "$WINEPREFIX" ] && command -v wineserver >/dev/null || exit 0
wineserver -k >/dev/null 2>&1
wineserver -w >/dev/null 2>&1
exit 0
