#!/usr/bin/env bash
# first_hour.sh [--test]: what a newcomer does on a machine with nothing on it, as README.md says it, and the minutes of each
# step. Made for `./dev fresh`, whose root it changes: it installs packages. The tests, which take the longest, only with
# --test.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
origin=$PWD
clone='/root/first hour'
prefix=/root/tree
times=$(mktemp)

step() {
    local name=$1 start=$SECONDS
    shift
    printf '\n== %s\n' "$name"
    "$@"
    printf '%6.1f  %s\n' "$(awk "BEGIN { print ($SECONDS - $start) / 60 }")" "$name" >>"$times"
}

# A machine of one's own has git, and what its user likes to build with.
get_clone() {
    apt-get update -q
    apt-get install -y -q --no-install-recommends git make python3-pytest
    git clone -q "$origin" "$clone"
    cd "$clone"
}

# The README's block in C, and what it says to type for it, until the daemon sees its own request come back.
run_readme_daemon() {
    local folder=/root/daemon typist
    mkdir $folder
    awk '/^```c$/ { on = 1; next } /^```$/ { on = 0 } on' README.md >$folder/port_log.c
    awk '/^```/ { on = !on; next } on && /PREFIX|>switch$/' README.md | sed "s#PREFIX#$prefix#g" >$folder/typed
    (cd $folder && exec setsid sh -ex typed) >$folder/output 2>&1 &
    typist=$!
    for _ in {1..100}; do
        ! grep -q '^port 1 is now in VLAN 10$' $folder/output || break
        sleep 0.1
    done
    kill -- -$typist
    cat $folder/output
    grep -q '^port 1 is now in VLAN 10$' $folder/output
}

try_kit() {
    cmake -S kit/example -B build/example -DCMAKE_PREFIX_PATH=$prefix
    cmake --build build/example
    ctest --test-dir build/example --output-on-failure
}

step 'git, make, pytest and a clone' get_clone
step './dev demo' ./dev demo
[ "${1:-}" != --test ] || step './dev test' ./dev test
step "./dev install" ./dev install $prefix
step "the README's daemon" run_readme_daemon
step "the kit's example project" try_kit
step './dev package --here' ./dev package --here
printf '\nMinutes on %s processors:\n' "$(nproc)"
cat "$times"
awk '{ sum += $1 } END { printf "%6.1f  in all\n", sum }' "$times"
