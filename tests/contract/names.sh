#!/bin/sh
# names.sh WHAT SOURCE_DIR [LIBRARY NM]: holds one list of the interface's names against another.
set -eu
what=$1
source_dir=$2
here=$source_dir/tests/contract
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export LC_ALL=C

# The headers of the library; bridge/host.h is that of the layer on it.
in_headers() { find "$source_dir/include/bridge" -name '*.h' ! -name host.h -exec "$@" {} +; }
declared() { in_headers awk -v kind="$1" -f "$here/public_names.awk" | sort; }
in_map() { sed -n 's/^ *\([A-Za-z0-9_]*\);.*/\1/p' "$source_dir/cmake/${1:-bridge_client}.map" | sort; }

# defined LIBRARY NM: what it exports.
defined() { "$2" -D --defined-only "$1" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | sort; }
# The agreed names; what the library has beside them stands in a version of its own.
agreed_in_map() {
    sed -n -e '/^BRIDGE_CLIENT_1.1/q' -e 's/^ *\([A-Za-z0-9_]*\);.*/\1/p' "$source_dir/cmake/bridge_client.map" | sort
}

# same FIRST SECOND: lists of more than nothing, line by line the same.
same() {
    if [ ! -s "$work/$1" ]; then
        echo "$1: no names found"
        exit 1
    fi
    if ! diff "$work/$1" "$work/$2" >"$work/difference"; then
        echo "< only in $1, > only in $2:"
        grep '^[<>]' "$work/difference"
        exit 1
    fi
    echo "$(wc -l <"$work/$1") names, the same in $1 and $2"
}

case $what in
headers)
    declared exports >"$work/headers"
    in_map >"$work/map"
    same headers map
    ;;
umbrella)
    in_headers printf '%s\n' | sed 's#.*/include/##' | grep -v '^bridge/bridge.h$' | sort >"$work/headers"
    sed -n 's/^#include <\(.*\)>$/\1/p' "$source_dir/include/bridge/bridge.h" | sort >"$work/umbrella"
    same headers umbrella
    ;;
agreed)
    # The platform's functions are agreed too, but are not the library's.
    sed -n -e 's/^extern .*[ *]\([a-z0-9_]*\)\(\[.*\]\)\{0,1\};.*/\1/p' \
        -e '/^typedef/d' -e 's/^[a-z].*[ *]\([a-z0-9_]*\)(.*);.*/\1/p' "$here/agreed_interface.h" |
        grep -v -e '^qv_' -e '^printk_' | sort >"$work/agreed"
    agreed_in_map >"$work/map"
    same agreed map
    ;;
library)
    defined "$3" "$4" >"$work/library"
    in_map >"$work/map"
    same library map
    ;;
layer)
    awk -v kind=exports -f "$here/public_names.awk" "$source_dir/include/bridge/host.h" | sort >"$work/header"
    defined "$3" "$4" >"$work/library"
    in_map bridge_host >"$work/map"
    same header map
    same library map
    ;;
records)
    declared records >"$work/headers"
    sed -n 's/^RECORD(\([a-z0-9_]*\),.*/\1/p' "$here/records.def" | sort >"$work/table"
    same headers table
    ;;
*)
    echo "what is $what?"
    exit 2
    ;;
esac
