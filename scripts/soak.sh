#!/usr/bin/env bash
# soak.sh BUILD_DIR MINUTES: repeats the tests in random order until time is up or one fails.
set -euo pipefail
build_dir=$1
end=$((SECONDS + $2 * 60))
rounds=0
while [ $SECONDS -lt $end ] || [ $rounds -eq 0 ]; do
    rounds=$((rounds + 1))
    if ! ctest --test-dir "$build_dir" -j "$(nproc)" --schedule-random --output-on-failure >"$build_dir/soak.log" 2>&1; then
        grep -vE ' Passed |^ +Start ' "$build_dir/soak.log" | tail -80
        echo "round $rounds failed after $SECONDS s"
        exit 1
    fi
done
echo "$rounds rounds in $SECONDS s, the last one:"
grep 'tests passed' "$build_dir/soak.log"
