#!/bin/sh
# typed_cost.sh PROGRAM VALGRIND: what an event costs a daemon that is written in C++, beside the same in C, in instructions.
# Fails when it is more than a twentieth above. What is done once falls out between two lengths of the run.
set -eu
program=$1
valgrind=$2
few=2000
many=12000
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# instructions FORM EVENTS
instructions() {
    "$valgrind" --tool=callgrind --callgrind-out-file=/dev/null "$program" "$1" "$2" >"$work/$1.$2" 2>"$work/log"
    sed -n 's/.*Collected : \([0-9]*\).*/\1/p' "$work/log"
}

c=$((($(instructions c $many) - $(instructions c $few)) / (many - few)))
cpp=$((($(instructions cpp $many) - $(instructions cpp $few)) / (many - few)))
if ! cmp "$work/c.$many" "$work/cpp.$many"; then
    echo "the two do not do the same"
    exit 1
fi
echo "two events: $c instructions in C, $cpp in C++"
[ "$c" -gt 0 ] && [ $((cpp * 100)) -le $((c * 105)) ]
