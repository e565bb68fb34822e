#!/usr/bin/env bash
# guide.sh BUILD_DIR FILE [world]: types the lines of a guide, which are its blocks marked "sh", one behind the other, with
# the build directory given instead of build/dev. Ends with status 1 at the first line that fails. With "world" they are
# typed beside a server that runs, with the programs on PATH.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/world.sh
. scripts/world.sh

build=$(realpath "${1:?usage: scripts/guide.sh BUILD_DIR FILE [world]}")
file=${2:?usage: scripts/guide.sh BUILD_DIR FILE [world]}

# Short, and without a blank, as PATH and the scenarios' daemons would not mind but the guide's own words might.
make_world "$build"
ln -s "$build" "$work/build"
clean_up() {
    local status=$?
    jobs -p | xargs -r kill -KILL 2>/dev/null || true
    wait 2>/dev/null || true
    remove_world
    exit "$status"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

server=
if [ "${3:-}" = world ]; then
    export PATH=$work/build/sandbox:$work/build/tools:$PATH LD_LIBRARY_PATH=$work/build/sandbox
    bridge-sandbox --fresh </dev/null >"$work/server.log" &
    server=$!
    until bridge-sandbox ctl vlan create 5 2>/dev/null; do sleep 0.1; done
    bridge-sandbox ctl port add 3 access 5
fi

lines=$(awk '/^```/ { inside = $0 == "```sh"; next } inside' "$file")
lines=${lines//\$PWD\/build\/dev/$work/build}
lines=${lines//build\/dev/$work/build}
while IFS= read -r line; do
    printf '%s\n' "$line"
    eval "$line" || { echo "guide: FAILED: $line" >&2; exit 1; }
done <<<"$lines"
[ -z "$server" ] || bridge-sandbox ctl quit
wait
