#!/usr/bin/env bash
# demo_frames.sh [BUILD_DIR]: two hosts ping each other through a Linux bridge that bridge-sandbox drives, until port_guard
# closes the port. For root, on a kernel whose bridges filter VLANs; `./dev demo --frames` runs it in a lab machine. The
# first step that does not come out as it should ends it with status 1.
set -euo pipefail

build=${1:-$(cd "${0%/*}/.." && pwd)} # of a link to it there
sandbox=$build/sandbox/bridge-sandbox
work=$(mktemp -d)
export TMPDIR=$work VSDID=$((700 + $$ % 100)) LD_LIBRARY_PATH=$build/sandbox
pids=()

clean_up() {
    local status=$? pid
    for pid in "${pids[@]}"; do
        kill -KILL "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
    ip link del demo0 2>/dev/null || true
    ip netns del alice 2>/dev/null || true
    ip netns del bob 2>/dev/null || true
    "$sandbox" clean >/dev/null || true
    rm -rf "$work"
    exit "$status"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

step() { printf '\n%d. %s\n' "$((++number))" "$1"; }
number=0
fail() {
    echo "demo: FAILED: $1"
    tail -n 20 "$work"/*.log
    exit 1
}
indent() { sed 's/^/       /'; }
show() {
    printf '     > %s\n' "$*"
    "$@" | indent
}
ctl() {
    printf '     > %s\n' "$*"
    "$sandbox" ctl "$@" | indent || fail "ctl $*"
}
# within 20 COMMAND...: until it goes well.
within() {
    local tries
    for ((tries = $1 * 5; tries > 0; tries--)); do
        "${@:2}" >/dev/null 2>&1 && return
        sleep 0.2
    done
    fail "in vain: ${*:2}"
}
alice() { ip netns exec alice "$@"; }
ping_bob() { alice ping -c 1 -W 1 10.0.0.2; }
pings() {
    within 20 ping_bob
    printf '     alice pings bob: '
    ping_bob | grep -o 'ttl=.*'
}
is_cut_off() {
    ! ping_bob >/dev/null || fail "a ping came back"
    echo '     alice pings bob: nothing comes back'
}
start_server() {
    "$sandbox" --bridge demo0 </dev/null >>"$work/server.log" 2>&1 &
    server=$!
    pids+=("$server")
    within 20 "$sandbox" ctl port show
}
# add_host NAME DEVICE ADDRESS: a namespace at the other end of a cable. It says nothing by itself.
add_host() {
    ip netns add "$1"
    ip link add "$2" type veth peer name eth0 netns "$1"
    ip netns exec "$1" bash -c 'echo 1 >/proc/sys/net/ipv6/conf/eth0/disable_ipv6'
    ip -n "$1" address add "$3/24" dev eth0
    ip -n "$1" link set eth0 up
}

step "A bridge without ports, two hosts in namespaces of their own, a server that drives the bridge"
ip link add demo0 type bridge
echo 1 >/proc/sys/net/ipv6/conf/demo0/disable_ipv6
ip link set demo0 up
add_host alice port1 10.0.0.1
add_host bob port2 10.0.0.2
start_server

step "Both cables become ports of VLAN 10"
ctl vlan create 10,20
ctl port add 1 access 10 dev port1
ctl port add 2 access 10 dev port2
show bridge vlan show
pings

step "Bob's port goes to VLAN 20, and comes back"
ctl port pvid 2 20
is_cut_off
ctl port pvid 2 10
pings

step "Spanning tree blocks alice's port, and opens it"
ctl stp state 1 all 4
is_cut_off
ctl stp state 1 all 3
pings

step "port_guard lets each port have one address"
LD_PRELOAD=libef_bridge_sim.so "$build/examples/port_guard" -l 1 >"$work/guard.log" 2>&1 &
pids+=($!)
within 20 grep 'in step' "$work/guard.log"
pings
ctl mac show

step "Another host sits down at alice's cable: port_guard closes the port to it"
alice ip link set eth0 address 02:00:00:00:00:66
ping_bob >/dev/null || true
within 20 grep 'one too many' "$work/guard.log"
indent <"$work/guard.log"
is_cut_off
ctl mac find 02:00:00:00:00:66 10
show bash -c 'bridge fdb show br demo0 | grep 02:00:00:00:00:66'

step "A person takes bob's port out of the bridge behind the server's back"
ip link set port2 nomaster
ctl wait port 2 gone
ip link set port2 master demo0
ctl wait port 2 exists
ctl port show

step "At its end the server leaves the bridge as it was"
kill "$server"
wait "$server" || fail "the server's status is $?"
show bridge vlan show
[ -z "$(ip link show master demo0)" ] || fail "the bridge has ports"

printf '\nThe tour is over.\n'
