#!/usr/bin/env bash
# fuzz.sh BUILD_DIR [SECONDS [TARGET]]: runs the fuzz targets one after the other. What they find to be interesting is
# kept below BUILD_DIR; a failing input is printed and stays there too.
set -euo pipefail
build_dir=$1
seconds=${2:-60}
only=${3:-}
found=0
for program in "$build_dir"/fuzz/fuzz_*; do
    name=${program##*/fuzz_}
    [ -z "$only" ] || [ "$only" = "$name" ] || continue
    found=1
    echo "== $name, $seconds s"
    mkdir -p "$build_dir/corpus/$name" "$build_dir/failing/$name"
    seeds=()
    [ ! -d "fuzz/corpus/$name" ] || seeds=("fuzz/corpus/$name")
    "$program" -max_total_time="$seconds" -timeout=10 -max_len=16384 -print_final_stats=1 \
        -artifact_prefix="$build_dir/failing/$name/" "$build_dir/corpus/$name" "${seeds[@]}" \
        2>&1 | grep -vE '^#[0-9]+\s+(NEW|REDUCE)' || exit 1
done
[ $found -eq 1 ] || { echo "no fuzz target${only:+ $only}" >&2; exit 2; }
