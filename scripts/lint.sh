#!/usr/bin/env bash
# Formatting, clang-tidy, a clang build with warnings as errors, shell scripts. Runs all of them; fails if one does.
# shellcheck disable=SC2317 # the steps are functions that are called by name
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit
jobs=$(nproc)
failed=0

# step NAME COMMAND...
step() {
    local name=$1 log=build/lint/${1// /_}.log start=$SECONDS
    shift
    if "$@" >"$log" 2>&1; then
        echo "ok      $name ($((SECONDS - start)) s)"
    else
        echo "FAILED  $name"
        grep -E 'error|warning|In .* line' "$log" | sort -u | head -60 || tail -20 "$log"
        failed=1
    fi
}

formatted() {
    git ls-files '*.h' '*.c' '*.cpp' ':!tests/contract/agreed_interface.h' | xargs -P "$jobs" -n 8 \
        clang-format --dry-run -Werror
}

clang_build() {
    cmake --preset clang && cmake --build --preset clang
}

# One file a run: the analyzer carries its idea of variable arguments over from one file to the next.
tidy() {
    git ls-files 'client/*.cpp' 'shared/*.cpp' 'vlan/*.cpp' 'l2/*.cpp' 'platform/*.cpp' 'sandbox/*.cpp' \
        'tools/*.cpp' | xargs -P "$jobs" -n 1 clang-tidy --quiet -p build/clang
}

scripts() {
    git ls-files dev .ci/run '*.sh' | xargs shellcheck -x
}

mkdir -p build/lint
step "clang-format" formatted
step "clang build" clang_build
step "clang-tidy" tidy
step "shell scripts" scripts
exit $failed
