#!/usr/bin/env bash
# host_cost.sh [BUILD_DIR]: instructions that an event takes from the dispatcher to the host's handler and back, on the
# bare library and through the host layer, and the memory that the layer takes of a host. Needs valgrind and an optimised
# build (./dev bench makes build/release).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=${1:-build/release}
program=$build/bench/host_cost

# All instructions of a run with so many events.
count() {
    valgrind --tool=callgrind --callgrind-out-file=/dev/null "$program" "$1" "$2" 2>&1 |
        awk '/Collected/ { print $4; found = 1 } END { exit !found }'
}
per_event() {
    local few many
    few=$(count "$1" 1000)
    many=$(count "$1" 11000)
    echo $(((many - few) / 10000))
}

bare=$(per_event bare)
for how in layer unaligned; do
    through=$(per_event "$how")
    printf 'an event, %-9s  %4d instructions, bare %4d, more %4d\n' "$how" "$through" "$bare" $((through - bare))
done
none=$("$program" memory 0)
many=$("$program" memory 1024)
printf 'heap                 %5d bytes, and %d for each address of mac_capacity\n' "$none" $(((many - none) / 1024))
size "$build"/host/libbridge_host.so.1 | awk 'NR == 2 { printf "library              %5d bytes of code, %d of data\n", $1, $2 + $3 }'
