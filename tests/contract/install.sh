#!/bin/sh
# install.sh BUILD_DIR SOURCE_DIR CC CMAKE GENERATOR: installs into a directory of its own, builds the host daemon of README.md
# there, once by pkg-config and once by CMake, and runs it against the installed server.
set -eu
build_dir=$1
source_dir=$2
cc=$3
cmake=$4
generator=$5 # the one that made BUILD_DIR is there; CMake's own choice may not be
work=$(mktemp -d)
server=
daemon=
# shellcheck source=tests/contract/tables.sh
. "$(dirname "$0")/tables.sh"
finish() {
    # shellcheck disable=SC2086 # no process, no argument
    [ -z "$server$daemon" ] || kill $server $daemon 2>/dev/null || true
    remove_tables # of the server and the daemons
    rm -rf "$work"
}
trap finish EXIT

# Where somebody else's things are already, which stay.
prefix=$work/tree
mkdir -p "$prefix/bin" "$prefix/share/man/man1" "$prefix/lib/empty"
touch "$prefix/bin/somebody_else" "$prefix/share/man/man1/somebody_else.1"
tree_of() { (cd "$1" && find . | LC_ALL=C sort); }
tree_of "$prefix" >"$work/before"
PATH=$(dirname "$cmake"):$PATH
"$source_dir/scripts/install.sh" install "$prefix" "$build_dir" >"$work/install.log"
awk '/^```c$/ { on = 1; next } /^```$/ { on = 0 } on' "$source_dir/README.md" >"$work/port_log.c"
[ -s "$work/port_log.c" ]

# The linker sees only the installed tree, through the installed description.
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name bridge_client.pc)")
export PKG_CONFIG_PATH
libdir=$(pkg-config --variable=libdir bridge_client)
# shellcheck disable=SC2046 # several words are wanted
"$cc" -std=c11 -Wall -Wextra -Werror "$work/port_log.c" $(pkg-config --cflags --libs bridge_client) -o "$work/port_log"
echo "pkg-config: built with version $(pkg-config --modversion bridge_client)"

# shellcheck disable=SC2046
"$cc" -static "$work/port_log.c" $(pkg-config --static --cflags --libs bridge_client) -o "$work/port_log_archives"

# A daemon on the layer, which starts, and stops because nobody answers.
cat >"$work/on_layer.c" <<'TEXT'
#include <bridge/host.h>
#include <qv_thread.h>
#include <stdio.h>
static struct qv_thread_master *loop;
static void on_stopped(const struct bridge_host_left *left, void *context) {
    (void)context;
    printf("stopped, %d left\n", (int)left->requests);
    qv_thread_master_stop(loop);
}
int main(void) {
    loop = qv_thread_master_create();
    const struct bridge_host_config config = {.size = sizeof config, .name = "on_layer", .master = loop, .stop_ms = 10};
    if (bridge_host_start(&config) != 0 || bridge_host_stop(on_stopped) != 0)
        return 1;
    return qv_thread_master_run(loop) == 0 ? 0 : 1;
}
TEXT
# shellcheck disable=SC2046
"$cc" -std=c11 -Wall -Wextra -Werror "$work/on_layer.c" $(pkg-config --cflags --libs bridge-host) -o "$work/on_layer"
# shellcheck disable=SC2046
"$cc" -static "$work/on_layer.c" $(pkg-config --static --cflags --libs bridge-host) -o "$work/on_layer_archives"

mkdir "$work/cmake"
cat >"$work/cmake/CMakeLists.txt" <<TEXT
cmake_minimum_required(VERSION 3.25)
project(port_log C)
find_package(bridge_client 1.0 REQUIRED)
foreach(kind bridge_client bridge_client_static)
  add_executable(port_log_\${kind} ../port_log.c)
  target_link_libraries(port_log_\${kind} PRIVATE bridge::\${kind} bridge::qv-thread)
endforeach()
foreach(kind bridge_host bridge_host_static)
  add_executable(on_layer_\${kind} ../on_layer.c)
  target_link_libraries(on_layer_\${kind} PRIVATE bridge::\${kind} bridge::qv-thread)
endforeach()
TEXT
"$cmake" -G "$generator" -S "$work/cmake" -B "$work/cmake/build" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_C_COMPILER="$cc" >"$work/cmake.log"
"$cmake" --build "$work/cmake/build" >>"$work/cmake.log"
echo "CMake: built against the shared and the static library"

# waits_for TEXT FILE
waits_for() {
    tries=0
    until grep -q "$1" "$2" 2>/dev/null; do
        tries=$((tries + 1))
        if [ $tries -gt 200 ]; then
            echo "no \"$1\" in:"
            cat "$2"
            exit 1
        fi
        sleep 0.1
    done
}

# answers PROGRAM: connects and gets its own request back as an event.
answers() {
    TMPDIR=$work LD_LIBRARY_PATH=$libdir LD_PRELOAD=libef_bridge_sim.so "$1" >"$work/output" 2>&1 &
    daemon=$!
    waits_for '^connected$' "$work/output"
    waits_for '^port 1 is now in VLAN 10$' "$work/output"
    kill "$daemon"
    wait "$daemon" 2>/dev/null || true
    daemon=
    echo "$(basename "$1"): connected, asked and got its event"
}

for program in "$work/on_layer" "$work/on_layer_archives" "$work/cmake/build/on_layer_bridge_host" "$work/cmake/build/on_layer_bridge_host_static"; do
    TMPDIR=$work LD_LIBRARY_PATH=$libdir "$program" >"$work/output"
    waits_for '^stopped, 0 left$' "$work/output"
    echo "$(basename "$program"): started and stopped the layer"
done

mkfifo "$work/commands"
echo "port add 1 access 1" >"$work/switch"
"$prefix/bin/bridge-sandbox" --tmpdir "$work" --script "$work/switch" <"$work/commands" >"$work/server.log" 2>&1 &
server=$!
exec 3>"$work/commands"
waits_for listening "$work/server.log"
answers "$work/port_log"
TMPDIR=$work "$work/port_log_archives" >"$work/output" 2>&1 & # which nothing can be preloaded to, so it reads no events
daemon=$!
waits_for '^connected$' "$work/output"
kill "$daemon"
wait "$daemon" 2>/dev/null || true
daemon=
echo "port_log_archives: connected, without any shared library"
answers "$work/cmake/build/port_log_bridge_client_static"
"$prefix/bin/bridge-inspect" ports --port 1 >"$work/ports"
waits_for '^1 *access ' "$work/ports"
echo "bridge-inspect: shows the port"
TMPDIR=$work LD_LIBRARY_PATH=$libdir LD_PRELOAD=libef_bridge_sim.so "$prefix/bin/bridge-monitor" --count 1 vlan >"$work/events"
waits_for '^VLAN_EVENT_' "$work/events"
echo "bridge-monitor: shows an event"
for program in "$prefix"/bin/bridge-*; do
    test -s "$prefix/share/bash-completion/completions/$(basename "$program")"
done
echo "completion: installed for each program"

# The first hour's guide, with its words typed behind the installed tree.
mkdir "$work/start"
awk -v into="$work/start" -f "$source_dir/docs/recipes.awk" "$source_dir/docs/start.md"
awk '/^```/ { inside = $0 == "```sh"; next } inside' "$source_dir/docs/start.md" | sed "s#PREFIX#$prefix#g" >"$work/start.sh"
(cd "$work/start" && unset CMAKE_GENERATOR && TMPDIR=$work sh -ex ../start.sh) >"$work/start.log" 2>&1 || {
    cat "$work/start.log"
    echo "docs/start.md: what it types does not go well"
    exit 1
}
echo "docs/start.md: typed from its first to its last line"

for name in bridge_maddr_add_static bri_vlanset_next bridge_host_start bridge_mac_client; do
    grep -q "^$name .- [^ ]" "$prefix/share/man/man3/$name.3"
done
echo "manual: $(find "$prefix/share/man/man3" -name '*.3' | wc -l) pages"

# Away again, what an earlier install has left first; the kit's modules have been compiled meanwhile.
python_dir="$prefix/share/bridge_client/python"
mkdir "$python_dir/__pycache__"
touch "$python_dir/__pycache__/bridge_testkit.cpython-311.pyc" "$prefix/lib/of_an_earlier_version"
echo lib/of_an_earlier_version >>"$prefix/share/bridge_client/installed"
"$source_dir/scripts/install.sh" install "$prefix" "$build_dir" >>"$work/install.log"
if [ -e "$prefix/lib/of_an_earlier_version" ]; then
    echo "what an earlier version had is still there"
    exit 1
fi
"$source_dir/scripts/install.sh" uninstall "$prefix"
tree_of "$prefix" | diff "$work/before" -
"$source_dir/scripts/install.sh" install "$work/new tree" "$build_dir" >>"$work/install.log"
"$source_dir/scripts/install.sh" uninstall "$work/new tree"
[ ! -e "$work/new tree" ]
echo "uninstall: nothing of it is left, and what was there before is"
