#!/usr/bin/env bash
# scenario.sh BUILD_DIR FILE: runs a scenario in a world of its own, against the daemons that its head names. What is
# asked for in it is checked; the first thing that does not happen ends this with status 1 and what did happen.
set -euo pipefail
# shellcheck source=scripts/world.sh
. "$(dirname "$0")/world.sh"

build=$(realpath "${1:?usage: scripts/scenario.sh BUILD_DIR FILE}")
file=${2:?usage: scripts/scenario.sh BUILD_DIR FILE}
daemons=$(sed -n 's/^# daemon: //p' "$file")
[[ -n $daemons ]] || { echo "$file names no daemon" >&2; exit 1; }
PATH=$build/examples:$PATH
export QV_THREAD_TIME_SCALE=10 # for the server and the daemons

set -m # a group of its own for each of the two, so that all of it can be ended
server='' hosts=''
clean_up() {
    local status=$?
    for group in $hosts $server; do
        kill -KILL -- "-$group" 2>/dev/null || true
        wait "$group" 2>/dev/null || true
    done
    remove_world
    exit "$status"
}
make_world "$build"
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

{ cat "$file" && echo && echo quit; } >"$work/script"
"$build/sandbox/bridge-sandbox" -t --script "$work/script" </dev/null >"$work/log" 2>&1 &
server=$!
for ((i = 0; i < 1000; ++i)); do
    [[ ! -S $work/bridge/.server_socket ]] || break
    sleep 0.01
done
"${preload[@]}" sh -c "$daemons" >"$work/daemons" 2>&1 </dev/null &
hosts=$!
if ! wait "$server"; then
    tail -n 50 "$work/log"
    echo "--- ${daemons}"
    tail -n 20 "$work/daemons"
    exit 1
fi
echo "$(grep -cE '^(wait|never|expect|fails|    wait) ' "$file") things happened as they should"
