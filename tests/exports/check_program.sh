#!/bin/bash
# check_program.sh VERSION PROGRAM: a program for Windows carries the version.
source "$(dirname "$0")/checks.sh"
check_version_resource "$2" "$1" 1
exit $((failures > 0))
