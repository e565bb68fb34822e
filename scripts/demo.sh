#!/usr/bin/env bash
# demo.sh BUILD_DIR: a tour of a switch on a workstation. The switch is driven with "bridge-sandbox ctl"; every step is
# checked, in the server's records or in what a daemon prints, and the first one that does not happen in time ends the
# tour with status 1.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/world.sh
. scripts/world.sh

build=${1:?usage: scripts/demo.sh BUILD_DIR}
patience=20 # seconds for what a daemon prints

sandbox=$build/sandbox/bridge-sandbox
for file in "$sandbox" "$build/sandbox/libef_bridge_sim.so" "$build"/examples/{vlan_guard,vlan_follow,mac_table}; do
    [[ -e $file ]] || { echo "demo: $file is missing; build first" >&2; exit 1; }
done

# The clocks of the server, the kernel and the daemons run ten times as fast as the wall's.
make_world "$build"
export QV_THREAD_TIME_SCALE=10
declare -A pids=()

clean_up() {
    local status=$? name
    for name in "${!pids[@]}"; do
        kill -KILL "${pids[$name]}" 2>/dev/null || true
        wait "${pids[$name]}" 2>/dev/null || true
    done
    remove_world
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

# What has happened since a step began counts for its waits, if a server was there.
step() {
    printf '\n%d. %s\n' "$((++number))" "$1"
    "$sandbox" ctl mark step >/dev/null 2>&1 || true
}
number=0
indent() { cut -c -150 | sed 's/^/       /'; }

# ctl COMMAND: has the server run it, and shows both the command and what it answers.
ctl() {
    local answer
    printf '     > %s\n' "$*"
    answer=$("$sandbox" ctl "$@" 2>&1) || fail "ctl $*: $answer"
    indent <<<"$answer"
}
refused() {
    local answer
    printf '     > %s\n' "$*"
    ! answer=$("$sandbox" ctl "$@" 2>&1) || fail "ctl $* was not refused"
    indent <<<"$answer"
}

# sees NAME TEXT [TIMES]: waits until the output of NAME holds the text, and shows its last such line.
sees() {
    local log=$work/$1.log text=$2 times=${3:-1} end=$((SECONDS + patience))
    while (($(grep -cF -- "$text" "$log" || true) < times)); do
        ((SECONDS < end)) || fail "$1 did not print \"$text\""
        sleep 0.05
    done
    printf '       %s\n' "$(grep -F -- "$text" "$log" | tail -n 1)"
}

# start NAME COMMAND...: its output goes to a log. A daemon finds the kernel's bridge module by the preloaded library.
start() {
    local name=$1
    shift
    : >"$work/$name.log" # there before the process is, for sees
    "$@" >"$work/$name.log" 2>&1 </dev/null &
    pids[$name]=$!
}
start_daemon() {
    local name=$1 program=$2
    shift 2
    start "$name" "${preload[@]}" "$build/examples/$program" -n "$name" "$@"
}
# ends NAME SIGNAL STATUS: sends the signal and checks how the process ended.
ends() {
    local name=$1 pid=${pids[$1]} status=0
    kill -"$2" "$pid"
    wait "$pid" 2>/dev/null || status=$?
    unset "pids[$name]"
    ((status == $3)) || fail "$name ended with status $status instead of $3"
}

echo "A switch on a workstation: a bridge server, the kernel's bridge module, and daemons that link the library."

step "The kernel's bridge module starts, then the server. The switch has eight ports."
start module "$sandbox" kernel
sees module "listening at"
start server1 "$sandbox" --script scripts/demo.switch
sees server1 "listening at $work/bridge/.server_socket"
ctl wait port 8 exists
ctl port show

step "Two daemons connect: one has a say in which VLANs are created, the other keeps port 3 in all of them."
start_daemon guard vlan_guard -r 25
start_daemon follow vlan_follow -i 3
ctl expect event BRIDGE_EVEVT_SERVER_STAT role=master to guard 'then' event BRIDGE_EVENT_BKUP_DATA_END to guard since step
ctl wait clients registered is 2
ctl clients

step "Somebody wants VLAN 25. The first daemon is asked and refuses, so there is none."
refused vlan create 25
ctl wait vlan 25 gone

step "VLAN 10 it accepts. The second daemon is told and asks for its port to become a member."
ctl vlan create 10
ctl expect request VLAN_EVENT_CREATE_PREJ result=0 from guard 'then' event VLAN_EVENT_CREATE_INDEX vid=10 to follow \
    'then' request VLAN_EVENT_SET_ADD_DYN_INTF vid=10 from follow since step
ctl wait vlan 10 members has 3
ctl vlan show

step "A frame comes in on port 4: its address is learned. A third daemon starts and looks it up in the kernel."
ctl traffic 02:00:00:00:00:05 10 4
start_daemon table mac_table -m 02:00:00:00:00:01 -v 10 -i 5
sees table "table:   entry 02:00:00:00:00:05, VLAN 10, port 4, dynamic"
sees table "table: in the kernel's table: 02:00:00:00:00:01, VLAN 10, port 5, static"

step "No other frame comes from there: after a while the address has aged, and the daemon is told."
ctl mac age 10
ctl wait event MAC_EVENT_NOTIFY_ADDR oper=del mac=02:00:00:00:00:05 to table since step
sees table "table: deleted 02:00:00:00:00:05, VLAN 10, port 4, dynamic"
ctl mac show

step "A link fails. What was learned there goes with it."
ctl mac age 300
ctl traffic 02:00:00:00:00:06 10 4
ctl port down 4
ctl wait port 4 link is down
ctl wait vlan 10 up_mem is 2 # of the ports 3, 4 and 5
ctl wait event MAC_EVENT_NOTIFY_ADDR oper=del mac=02:00:00:00:00:06 to table since step
ctl port up 4

step "The switch becomes the slave of another: the daemons follow, but do nothing. Then it takes over."
ends guard TERM 0 # a slave is asked nothing
ctl role slave
ctl vlan create 20
ctl never request VLAN_EVENT_SET_ADD_DYN_INTF from follow for 3
ctl switchover
ctl wait request VLAN_EVENT_SET_ADD_DYN_INTF vid=20 from follow since step
ctl wait vlan 20 members has 3

step "The server is killed (kill -9). The daemons keep running and connect to the next one by themselves."
ends server1 KILL 137
start server2 "$sandbox"
sees server2 "listening at $work/bridge/.server_socket"
ctl wait client follow registered
ctl wait clients registered is 2

step "The tables have outlived it, and so has the kernel's module. Everything goes on."
ctl mac find 02:00:00:00:00:01 10
ctl wait vlan 20 members has 3
ctl vlan create 30
ctl wait request VLAN_EVENT_SET_ADD_DYN_INTF vid=30 from follow since step

step "Everybody ends when asked to."
for name in follow table server2 module; do
    ends $name TERM 0
done
[[ ! -e $work/bridge/.server_socket ]] || fail "the server left its socket"

printf '\nAll %d steps happened, in %d seconds.\n' "$number" "$SECONDS"
