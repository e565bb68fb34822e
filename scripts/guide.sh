#!/usr/bin/env bash
# guide.sh BUILD_DIR FILE: types the lines of a guide, which are its blocks marked "sh", one behind the other, with the
# build directory given instead of build/dev. Ends with status 1 at the first line that fails.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/world.sh
. scripts/world.sh

build=$(realpath "${1:?usage: scripts/guide.sh BUILD_DIR FILE}")
file=${2:?usage: scripts/guide.sh BUILD_DIR FILE}

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

lines=$(awk '/^```/ { inside = $0 == "```sh"; next } inside' "$file")
lines=${lines//\$PWD\/build\/dev/$work/build}
lines=${lines//build\/dev/$work/build}
while IFS= read -r line; do
    printf '%s\n' "$line"
    eval "$line" || { echo "guide: FAILED: $line" >&2; exit 1; }
done <<<"$lines"
wait
