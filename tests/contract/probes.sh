#!/bin/sh
# probes.sh LIBRARY SOURCE_DIR yes|no: the probes of the built library are those that base/probes.h lists, or none; the
# scripts use no others.
set -eu
library=$1
source_dir=$2
wanted=$3

# The names in the table of the header's comment: four blanks and a word behind the slashes.
listed=$(sed -nE 's|^//     ([a-z_]+)( .*)?$|\1|p' "$source_dir/base/probes.h" | sort)
[ -n "$listed" ]
built=$(readelf -n "$library" | awk '/Provider: bridge_client/ { ours = 1 } /Name:/ && ours { print $2; ours = 0 }' | sort -u)
[ "$wanted" = yes ] || listed=
if [ "$built" != "$listed" ]; then
    printf 'listed:\n%s\nbuilt:\n%s\n' "$listed" "$built"
    exit 1
fi
[ "$wanted" = yes ] || exit 0

for script in "$source_dir"/tools/probes/*.bt; do
    used=$(sed -nE 's/^usdt:\*:bridge_client:([a-z_]+)$/\1/p' "$script")
    [ -n "$used" ]
    unknown=$(echo "$used" | grep -vxF "$listed" || true)
    [ -z "$unknown" ] || { echo "$script: no such probe: $unknown"; exit 1; }
done
