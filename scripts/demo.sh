#!/usr/bin/env bash
# demo.sh BUILD_DIR: three host daemons and a bridge server that dies. Every step is checked in what the processes print;
# the first one that does not happen in time ends the demo with status 1.
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:?usage: scripts/demo.sh BUILD_DIR}
patience=15 # seconds for one step

sandbox=$build/sandbox/bridge-sandbox
port_watch=$build/examples/port_watch
mac_table=$build/examples/mac_table
kernel=$build/sandbox/libef_bridge_sim.so
for file in "$sandbox" "$port_watch" "$mac_table" "$kernel"; do
    [[ -e $file ]] || { echo "demo: $file is missing; build first" >&2; exit 1; }
done

# An own directory and an own virtual device, so that nothing meets another server or its shared tables.
work=$(mktemp -d /tmp/bridge-demo.XXXXXX)
export TMPDIR=$work VSDID=$$
declare -A pids=()

clean_up() {
    local status=$? name base key
    for name in "${!pids[@]}"; do
        kill -KILL "${pids[$name]}" 2>/dev/null || true
        wait "${pids[$name]}" 2>/dev/null || true
    done
    for base in 0x11110001 0x22220001 0x33330001 0x5A5B7C3D; do # the keys of the shared tables
        key=$((base + VSDID))
        ipcrm --shmem-key "$key" >/dev/null 2>&1 || true
        ipcrm --semaphore-key "$key" >/dev/null 2>&1 || true
    done
    rm -rf "$work"
    exit "$status"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

fail() {
    echo
    echo "demo: FAILED: $1"
    for log in "$work"/*.log; do
        echo "--- ${log##*/}"
        tail -n 30 "$log"
    done
    exit 1
}

step() { printf '\n%d. %s\n' "$((++number))" "$1"; }
number=0

# sees NAME TEXT [TIMES]: waits until the output of NAME holds the text, and shows its last such line.
sees() {
    local log=$work/$1.log text=$2 times=${3:-1} end=$((SECONDS + patience))
    while (($(grep -cF -- "$text" "$log" || true) < times)); do
        ((SECONDS < end)) || fail "$1 did not print \"$text\""
        sleep 0.05
    done
    printf '     %-9s| %s\n' "$1" "$(grep -F -- "$text" "$log" | tail -n 1)"
}
never_saw() { ! grep -qF -- "$2" "$work/$1.log" || fail "$1 printed \"$2\""; }

# The server takes its commands from a pipe that this script holds open.
start_server() {
    [[ -p $work/commands ]] || mkfifo "$work/commands"
    exec {commands}<>"$work/commands"
    : >"$work/$1.log" # there before the process is, for sees
    "$sandbox" <"$work/commands" >"$work/$1.log" 2>&1 &
    pids[$1]=$!
    sees "$1" "listening at $work/bridge/.server_socket"
}
tell() { echo "$1" >&"$commands"; }

# start_host NAME PROGRAM [OPTION...]
start_host() {
    local name=$1 program=$2
    shift 2
    : >"$work/$name.log"
    # By its name alone: a blank in LD_PRELOAD ends a file's name.
    LD_LIBRARY_PATH=$(realpath "${kernel%/*}") LD_PRELOAD=${kernel##*/} "$program" -n "$name" "$@" >"$work/$name.log" 2>&1 </dev/null &
    pids[$name]=$!
}

# ends NAME SIGNAL STATUS: sends the signal and checks how the process ended.
ends() {
    local name=$1 pid=${pids[$1]} status=0
    kill -"$2" "$pid"
    wait "$pid" 2>/dev/null || status=$?
    unset "pids[$name]"
    ((status == $3)) || fail "$name ended with status $status instead of $3"
}

echo "Three host daemons, linked against the shared library, and a bridge server for workstations."

step "The server starts and listens. It gets a port."
start_server server1
tell "port add 1 access 1"

step "Two hosts connect over the local socket and register their events."
start_host ports "$port_watch" -p 0 -e 132 -e 407 -e 409
start_host asker "$port_watch" -p 500 -e 132 -e 409
sees server1 "(ports): registered, pid ${pids[ports]}, 4 event types, fresh"
sees server1 "(asker): registered, pid ${pids[asker]}, 3 event types, fresh"

step "The server tells them their role and that its data is complete; their handlers are called."
for host in ports asker; do
    sees $host "$host: event BRIDGE_EVENT_BKUP_DATA_END(132), 0 bytes"
    sees $host "$host: state: registered, master, data synchronised"
done

step "The server announces a port's mode. Only the host that registered this event gets it."
tell "event VLAN_EVENT_MODIFY_INTF_MODE 00000003 00000002"
sees server1 "event VLAN_EVENT_MODIFY_INTF_MODE(407): to 1 clients"
sees ports "ports: event VLAN_EVENT_MODIFY_INTF_MODE(407), 8 bytes: 00 00 00 03 00 00 00 02"

step "A host sends requests on a timer. The server answers with the event of the same number, to both."
sees asker "asker: request VLAN_EVENT_MODIFY_INTF_PVID(409), port 1, VLAN 2"
sees server1 "(asker): sent VLAN_EVENT_MODIFY_INTF_PVID(409), 8 bytes" 2
for host in asker ports; do # the first such event came from the port table, with the data
    sees $host "$host: event VLAN_EVENT_MODIFY_INTF_PVID(409), 8 bytes" 3
done

step "A third host walks the kernel's table of MAC addresses, has one added, is told so and finds it in the kernel."
tell "mac add 02:00:00:00:00:05 1 1"
start_host table "$mac_table" -m 02:00:00:00:00:01 -v 1 -i 1
sees table "table:   entry 02:00:00:00:00:05, VLAN 1, port 1, dynamic" 2
sees table "table: added 02:00:00:00:00:01, VLAN 1, port 1, static"
sees table "table: in the kernel's table: 02:00:00:00:00:01, VLAN 1, port 1, static"
ends table TERM 0

step "The server is killed (kill -9). The hosts notice and keep running."
ends server1 KILL 137
for host in ports asker; do
    sees $host "$host: state: not connected, master, data synchronised"
    kill -0 "${pids[$host]}" || fail "$host has ended"
done

step "A new server starts. The hosts connect again by themselves and register again."
start_server server2
sees server2 "(ports): registered, pid ${pids[ports]}, 4 event types, fresh"
sees server2 "(asker): registered, pid ${pids[asker]}, 3 event types, fresh"
for host in ports asker; do
    sees $host "$host: connected" 2
    sees $host "$host: event BRIDGE_EVENT_BKUP_DATA_END(132), 0 bytes" 2
done

step "Events and requests flow again."
tell "event VLAN_EVENT_MODIFY_INTF_MODE 00000004 00000001"
sees ports "ports: event VLAN_EVENT_MODIFY_INTF_MODE(407), 8 bytes: 00 00 00 04 00 00 00 01"
sees server2 "(asker): sent VLAN_EVENT_MODIFY_INTF_PVID(409), 8 bytes"
never_saw asker "VLAN_EVENT_MODIFY_INTF_MODE"

step "Everybody ends when asked to."
for name in ports asker server2; do
    ends $name TERM 0
done
sees ports "ports: ended"
sees asker "asker: ended"
[[ ! -e $work/bridge/.server_socket ]] || fail "the server left its socket"

printf '\nAll %d steps happened, in %d seconds.\n' "$number" "$SECONDS"
