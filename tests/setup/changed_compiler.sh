#!/bin/bash
# changed_compiler.sh BUILD-SCRIPT: a folder that was configured for another compiler keeps what the
# preset sets.
set -uo pipefail

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir "$folder/scripts"
cp "$1" "$folder/scripts/build.sh"
cd "$folder" || exit 1

cat >CMakeLists.txt <<'LISTS'
cmake_minimum_required(VERSION 3.25)
project(marked LANGUAGES C)
set(MARK "not set" CACHE STRING "")
add_custom_target(show ALL COMMAND ${CMAKE_COMMAND} -E echo "${CMAKE_C_COMPILER} with ${MARK}")
LISTS

# says COMPILER: what a build with that compiler shows.
says() {
    cat >CMakePresets.json <<PRESETS
{
    "version": 6,
    "configurePresets": [{
        "name": "marked", "generator": "Ninja", "binaryDir": "\${sourceDir}/build/marked",
        "cacheVariables": { "CMAKE_C_COMPILER": "$1", "MARK": "the mark" }
    }],
    "buildPresets": [{ "name": "marked", "configurePreset": "marked" }]
}
PRESETS
    scripts/build.sh marked 2>&1 | tee -a /dev/stderr | grep -o '[^/]* with .*' | tail -n 1
}

[ "$(says gcc)" = "gcc with the mark" ] && [ "$(says cc)" = "cc with the mark" ]
