#!/bin/bash
# Checks the format of every source file of the repository, runs clang-tidy on those that are compiled
# on Linux, cppcheck on the library for both systems, and GCC's analyser on the library, and compiles
# the DLL and its tools without precompiled headers, so that each of their files includes what it uses.
# Files of a test or tool are read together, as they are compiled: reading the headers of GoogleTest and
# the standard library takes longer than reading the files.
set -uo pipefail

cd "$(dirname "$0")/.."
worst=0

mapfile -t files < <(git ls-files '*.cpp' '*.h' '*.c')
clang-format --dry-run --Werror "${files[@]}" || worst=1

mkdir -p build/logs
cmake --preset lint >build/logs/configure-lint.log || exit 1
scripts/tidy.py build/lint || worst=1

# What it finds wrongly is in scripts/cppcheck/suppressions.txt.
cppcheck --quiet --error-exitcode=1 -j "${JOBS:-2}" --language=c++ --std=c++20 --platform=unix64 \
    --enable=warning,performance,portability --inline-suppr \
    --suppressions-list=scripts/cppcheck/suppressions.txt -I scripts/cppcheck -I include -I src \
    src || worst=1

# A finding is an error, and the others are still looked for. Files that have not changed are not read
# again.
cmake --preset analyzer >build/logs/configure-analyzer.log || exit 1
cmake --build --preset analyzer --target tarvik_dpdu_core -j "${JOBS:-2}" -- -k 0 || worst=1

BUILD_TARGETS="tarvik_dpdu dpdu" scripts/build.sh lint-windows || worst=1

exit $worst
