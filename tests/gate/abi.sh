#!/bin/sh
# abi.sh BASELINE LIBRARY SOURCE_DIR [update]: holds the library's binary interface (exported names, records, arguments)
# against the accepted one. Status 1 with the differences when it is another, 77 without the tools. `update` accepts it.
set -eu
baseline=$1 library=$2 source=$3 action=${4:-check}
command -v abidiff >/dev/null || {
    echo "NOT TESTED: no abidiff on this machine (abigail-tools)"
    exit 77
}

if [ "$action" = update ]; then
    abidw --exported-interfaces-only --no-show-locs --no-corpus-path --no-comp-dir-path --drop-private-types \
        --headers-dir "$source/include" "$library" | sed "s# path='$source/# path='#" >"$baseline"
    exit 0
fi
[ -s "$baseline" ] || {
    echo "there is no accepted interface for this target: ${baseline##*/}"
    exit 1
}
status=0
abidiff --drop-private-types --headers-dir2 "$source/include" --no-show-locs "$baseline" "$library" || status=$?
[ $status -ne 0 ] || {
    echo "the interface is the accepted one"
    exit 0
}
if [ $((status & 8)) -ne 0 ]; then
    echo "Above: programs that were built against the accepted interface break. That takes a new SOVERSION."
elif [ $((status & 4)) -ne 0 ]; then
    echo "Above: the interface is another one than the accepted. When that is meant, say so in CHANGELOG.md, then"
    echo "    ./dev abi --accept"
else
    echo "abidiff could not compare them (status $status)"
fi
exit 1
