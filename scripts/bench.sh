#!/usr/bin/env bash
# bench.sh [--before COMMIT] [--plot | --document] [arguments of the program]: builds what is measured, optimised, into
# build/: this tree, the library without its log lines, and the library of an earlier commit; then runs the benchmark.
# --plot draws the curves of docs/performance.md anew instead, --document writes its table, with the column "before".
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# The library before its paths were made fast.
before=9ad216c
plot='' document='' arguments=()
while [ $# -gt 0 ]; do
    case $1 in
    --plot) plot=yes ;;
    --document) document=yes ;;
    --before)
        before=${2:?--before COMMIT}
        shift
        ;;
    *) arguments+=("$1") ;;
    esac
    shift
done
libraries=(bridge_client bridge_host qv-thread qv_syslog)

# build_tree SOURCE BUILD TARGETS... [-- configure arguments]
build_tree() {
    local source=$1 build=$2 targets=()
    shift 2
    while [ $# -gt 0 ] && [ "$1" != -- ]; do
        targets+=("$1")
        shift
    done
    [ $# -eq 0 ] || shift
    echo "Building $build (log: $build.log)" >&2
    mkdir -p "$build"
    if ! { cmake -S "$source" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBRIDGE_TESTS=OFF "$@" &&
        cmake --build "$build" --target "${targets[@]}"; } >"$build.log" 2>&1; then
        tail -40 "$build.log" >&2
        return 1
    fi
}

targets=(bench)
[ -z "$plot" ] || targets+=(bench_load bridge-sandbox)
build_tree . build/release "${targets[@]}" -- -DBRIDGE_BENCH=ON
program=build/release/bench/bench
if [ -n "$plot" ]; then
    "$program" --growth build/growth.json --server build/release/sandbox/bridge-sandbox \
        --load build/release/bench/bench_load ${arguments+"${arguments[@]}"}
    exec python3 bench/plot.py build/growth.json docs/performance
fi

trees=()
build_tree . build/silent "${libraries[@]}" -- -DCMAKE_CXX_FLAGS=-DBRI_WITHOUT_LINES
trees+=(--silent build/silent)
if git rev-parse -q --verify "$before^{commit}" >/dev/null 2>&1; then
    tree=build/before-$before
    if [ ! -d "$tree/source" ]; then
        mkdir -p "$tree/source"
        git archive "$before" | tar -x -C "$tree/source"
    fi
    build_tree "$tree/source" "$tree/build" "${libraries[@]}"
    trees+=(--before "$tree/build")
else
    echo "No commit $before here: nothing is held against the library before." >&2
fi
if [ -n "$document" ]; then
    "$program" "${trees[@]}" --json ${arguments+"${arguments[@]}"} >build/now.json || true # misses stand in the table
    tree=$PWD/build/before-$before/build
    LD_LIBRARY_PATH=$tree/client:$tree/platform:$tree/host \
        "$program" --json --rounds 3 ${arguments+"${arguments[@]}"} >build/then.json || true
    exec python3 bench/table.py build/now.json build/then.json docs/performance.md
fi
exec "$program" "${trees[@]}" ${arguments+"${arguments[@]}"}
