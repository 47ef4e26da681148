# For the scripts beside it: each calls `check` and ends with `exit $((failures > 0))`.
set -uo pipefail

objdump=x86_64-w64-mingw32-objdump
failures=0

check() {
    local what=$1 expected=$2 found=$3
    if [ "$expected" = "$found" ]; then
        echo "ok: $what"
        return
    fi
    failures=$((failures + 1))
    echo "FAILED: $what (- expected, + found)"
    diff -u <(echo "$expected") <(echo "$found") | tail -n +3
}

# check_version_resource FILE VERSION KIND: what Windows shows of the file; KIND is 1 for a program, 2 for
# a library.
check_version_resource() {
    local file=$1 version=$2 kind=$3
    text() { strings -el "$file" | grep -A1 "^$1$" | tail -n 1; }
    # File and product version and the kind of file, behind the signature of the fixed part.
    numbers() {
        python3 -c 'import struct, sys
data = open(sys.argv[1], "rb").read()
words = struct.unpack_from("<13I", data, data.index(struct.pack("<I", 0xFEEF04BD)))
halves = [half for word in words[2:6] for half in (word >> 16, word & 0xFFFF)]
print(*halves, words[9])' "$file"
    }
    check "${file##*/}: product version" "$version" "$(text ProductVersion)"
    check "${file##*/}: file version" "$version" "$(text FileVersion)"
    check "${file##*/}: original name" "${file##*/}" "$(text OriginalFilename)"
    check "${file##*/}: version and kind as numbers" \
        "${version//./ } 0 ${version//./ } 0 $kind" "$(numbers)"
}
