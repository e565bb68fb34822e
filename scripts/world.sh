# Sourced by the scripts that run a server and daemons: a world of their own, of which nothing is left.
# shellcheck shell=bash disable=SC2034 # who sources this uses what it sets

# make_world BUILD_DIR: an own directory and an own virtual device, so that nothing meets another server or its shared
# tables; and what a daemon preloads, by its name alone, since a blank in LD_PRELOAD ends a file's name.
make_world() {
    cleaner=$(realpath "$1/sandbox/bridge-sandbox")
    work=$(mktemp -d /tmp/bridge-world.XXXXXX)
    export TMPDIR=$work VSDID=$$
    preload=(env "LD_LIBRARY_PATH=$(realpath "$1/sandbox")" LD_PRELOAD=libef_bridge_sim.so)
}

remove_world() {
    "$cleaner" clean >/dev/null || true
    rm -rf "$work"
}
