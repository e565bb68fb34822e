#!/bin/sh
# perf_emulated.sh PROGRAM: the instructions of each path of PROGRAM, a 32-bit big-endian build of perf.cpp, as the
# emulator counts them. For the record: nothing is held against them.
set -eu
program=$1
here=$(dirname "$0")
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
"${CC:-cc}" -shared -fPIC -O2 -o "$directory/count.so" "$here/count_plugin.c"
for part in library layer; do
    LD_BIND_NOW=1 qemu-ppc -L /usr/powerpc-linux-gnu -plugin "$directory/count.so" "$program" "$part" \
        >"$directory/runs" 2>"$directory/counted" || {
        cat "$directory/counted" >&2
        exit 1
    }
    # "path runs" and "counted instructions", in the same order.
    paste -d ' ' "$directory/runs" "$directory/counted" | awk '{ printf "%-20s %12.1f\n", $1, $4 / $2 }'
done
