#!/usr/bin/env bash
# dissect.sh FILE: what the packet analyser tells of a recording, a line a packet: its number, client and summary, and of
# what is in its messages the VLANs, ports, addresses and modes; then its expert notes, which say what is wrong.
set -euo pipefail
script=$(dirname "${BASH_SOURCE[0]}")/../../../tools/dissector/bridge.lua
fields=(frame.number bridge.client _ws.col.Info bridge.vlan.vid bridge.vlan.vlans bridge.vlan.ifx bridge.vlan.mode
    bridge.vlan.name bridge.mac.oper bridge.mac.mac bridge.mac.bcast_id bridge.mac.ifx bridge.mac.type _ws.expert.message)
tshark -n -X "lua_script:$script" -r "$1" -T fields -E 'separator=|' "${fields[@]/#/-e}"
