#!/bin/sh
# sizes.sh BUDGET TARGET SIZE READELF LIBRARY... [--update]: what each library, without its debugging information, takes
# of a process, in bytes (relocations: how many the dynamic linker works off), held against the figures of BUDGET for
# TARGET. 5 % more are allowed, and 128 KiB of code in any case.
set -eu
budget=$1 target=$2 size=$3 readelf=$4
shift 4
status=0
for library; do
    [ "$library" != --update ] || continue
    name=$(basename "$library" | sed 's/\.so.*//')
    text=$("$size" -A "$library" | awk '$1 == ".text" { print $2 }')
    # Strings, tables for a debugger's stack, symbols: what is loaded and never written, beside the code.
    constants=$("$size" "$library" | awk -v text="$text" 'NR == 2 { print $1 - text }')
    data=$("$size" "$library" | awk 'NR == 2 { print $2 + $3 }')
    relocations=$("$readelf" -rW "$library" | grep -c '^[0-9a-f]')
    for part in text:"$text" constants:"$constants" data:"$data" relocations:"$relocations"; do
        echo "$target $name ${part%:*} ${part#*:}"
    done
done >"${TMPDIR:-/tmp}/sizes.$$"
trap 'rm -f "${TMPDIR:-/tmp}/sizes.$$"' EXIT
eval "last=\${$#}"
# shellcheck disable=SC2154 # set by eval
if [ "$last" = --update ]; then
    { grep -v "^$target " "$budget" 2>/dev/null || true; cat "${TMPDIR:-/tmp}/sizes.$$"; } >"$budget.new"
    mv "$budget.new" "$budget"
    exit 0
fi
awk '
    /^#/ { next }
    FILENAME == ARGV[1] { allowed[$1 " " $2 " " $3] = $4; next }
    {
        key = $1 " " $2 " " $3
        limit = int(allowed[key] * 1.05)
        if ($3 == "text" && limit > 131072)
            limit = 131072
        word = key in allowed ? ($4 <= limit ? "" : "  TOO MUCH") : "  NO FIGURE"
        printf "%-40s %8d, allowed %8d%s\n", key, $4, limit, word
        wrong += word != ""
    }
    END { exit wrong > 0 }
' "$budget" "${TMPDIR:-/tmp}/sizes.$$" || status=1
[ $status -eq 0 ] || echo "When it is meant, say why in the commit that changes ${budget##*/}: ./dev sizes --accept"
exit $status
