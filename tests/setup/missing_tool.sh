#!/bin/bash
# missing_tool.sh SETUP-SCRIPT: with ninja hidden, set-up fails with one line that names it.
set -uo pipefail

setup=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

for program in /bin/* /usr/bin/* /usr/sbin/*; do
    [ "${program##*/}" = ninja ] || ln -sf "$program" "$folder/"
done

said=$(PATH=$folder "$setup" linux 2>&1)
code=$?
echo "$said"
[ $code = 1 ] && [ "$(echo "$said" | wc -l)" = 1 ] && [[ $said == *"'ninja'"* ]]
