# shellcheck shell=bash
# Sourced by ./dev: how far builds are, on a terminal. In a pipe or a file nothing is said.

clear_line=''
[ ! -t 1 ] || clear_line=$'\r\033[K'

# show_progress LOG...: the last step in the log of each build, once a second, in one line.
show_progress() {
    local log step line
    while sleep 1 && kill -0 $$ 2>/dev/null; do
        line=''
        for log in "$@"; do
            step=$(tail -c 4000 "$log" 2>/dev/null | sed -n 's/^\[\([0-9]*\/[0-9]*\)\].*/\1/p' | tail -1)
            line+="  $(basename "$log" .log) ${step:--}"
        done
        printf '%s%s' "$clear_line" "$line"
    done
}

# with_progress LOG... -- COMMAND...
with_progress() {
    local logs=() watcher='' status=0
    while [ "$1" != -- ]; do
        logs+=("$1")
        shift
    done
    shift
    if [ -n "$clear_line" ]; then
        show_progress "${logs[@]}" &
        watcher=$!
    fi
    "$@" || status=$?
    if [ -n "$watcher" ]; then
        kill $watcher
        wait $watcher 2>/dev/null || true
        printf '%s' "$clear_line"
    fi
    return $status
}
