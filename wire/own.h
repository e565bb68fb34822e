// Payloads for which the public headers have no struct: single words, the kernel's framing, and, marked as such, those
// that belong to the server and have a layout of the sandbox's own here.
#pragma once

#include <bridge/base.h>

namespace wire {

// --- Payloads of the interface ---

// BRIDGE_EVEVT_SERVER_STAT.
struct server_stat {
    uint8_t role; // 0: 0 master, else slave
};
// BRIDGE_EVENT_ORI_DATA_REQUEST to the server.
struct oridata_request {
    uint32_t submod; // 0: whose data
};
// MAC_EVENT_NONDYN_CHECK_BEGIN and _END.
struct table_check {
    uint32_t type; // 0: the server's
};
// MAC_EVENT_SET_ROOT_BRIDGE_MODE.
struct root_bridge_mode {
    uint8_t enable; // 0: passed through
};
// VLAN_EVENT_CREATE_PREJ as a reply.
struct vlan_reply {
    uint32_t result; // 0: 0 accepted, else refused
};
// L2TOP_EVENT_INSTANCE_CONFIG.
struct instance_table {
    uint16_t instances[4096]; // 0: instance of each VLAN
};
// The switches of submodule 17; those that only print come without a payload or with one that is not read.
struct debug_switch {
    uint32_t reserved; // 0: not read
    uint32_t value;    // 4: 0 off, else on; seconds in DEBUG_EVENT_MSG_DELAY
};
// RESEARCH_EVENT_SS_ORIGIN_MAC as a reply.
struct origin_mac_total {
    uint32_t total; // 0: addresses
};

// Head of a message to the kernel's family "EF_BRIDGE"; `len` bytes of data follow.
struct ef_bridge_request {
    uint32_t nlmsg_len;   //  0: 20 + nla_len, rounded up to 4
    uint16_t nlmsg_type;  //  4: the family's number
    uint16_t nlmsg_flags; //  6: 1
    uint32_t nlmsg_seq;   //  8: 0
    uint32_t nlmsg_pid;   // 12: process id of the sender
    uint8_t cmd;          // 16: 3
    uint8_t version;      // 17: 1
    uint16_t reserved;    // 18: zero
    uint16_t nla_len;     // 20: 13 + len: one more than the attribute has
    uint16_t nla_type;    // 22: 0
    uint32_t type;        // 24: event type
    uint32_t len;         // 28: bytes of data
};
BRI_STATIC_ASSERT(sizeof(ef_bridge_request) == 32, "the data follows at 32");

// Head of the kernel's answer; the record follows, without type and length.
struct ef_bridge_answer {
    uint32_t nlmsg_len;   //  0: whole message
    uint16_t nlmsg_type;  //  4: the family's number
    uint16_t nlmsg_flags; //  6: the kernel's
    uint32_t nlmsg_seq;   //  8: the request's
    uint32_t nlmsg_pid;   // 12: the asking socket's
    uint8_t cmd;          // 16: the kernel's
    uint8_t version;      // 17: the kernel's
    uint16_t reserved;    // 18: zero
    uint16_t nla_len;     // 20: attribute with its header
    uint16_t nla_type;    // 22: the kernel's
};
BRI_STATIC_ASSERT(sizeof(ef_bridge_answer) == 24, "the record follows at 24");

// --- The sandbox's own ---
//
// What a switch's server sends here is not known: a client gets these payloads as they come. An event whose payload
// stands on one of these says so (Payload::assumed in event.h).

// VLAN_EVENT_INTF_STATE.
struct intf_state {
    uint32_t ifx;   // 0: port
    uint32_t state; // 4: 1 up, 0 down
};
// VLAN_EVENT_SVI_MODIFY_UP_NUM.
struct svi_up_num {
    uint32_t svi_ifx;  // 0: the VLAN's routed interface
    uint16_t vid;      // 4: VLAN
    uint16_t reserved; // 6: zero
    uint32_t up_num;   // 8: member ports that are up
};
// VG_EVENT_POLICY_ENTRY; the other events of a group carry its entry.
struct group_policy {
    uint8_t id;          // 0: VLAN group
    uint8_t exists;      // 1: 1 it has come, 0 it has gone
    uint8_t reserved[2]; // 2: zero
};
// VLAN_EVENT_SUPER_ADD_RANGE_SUB, _DEL_RANGE_SUB and _RANG_DEL_SUB.
struct super_subs {
    uint16_t vid;      // 0: super VLAN
    uint16_t reserved; // 2: zero
    vlanset subs;      // 4: VLANs that have become its sub VLANs, or are no more
};
// VLAN_EVENT_ARPROXY.
struct vlan_arproxy {
    uint16_t vid;      // 0: VLAN
    uint16_t reserved; // 2: zero
    uint32_t proxy;    // 4: 1 on, 0 off
};
// RESEARCH_EVENT_SWPORT_PREJUDGE as a question: may the port change to this mode?
struct swport_prejudge_request {
    uint32_t ifx;  // 0: port
    uint32_t mode; // 4: enum bri_port_mode
};
// MAC_EVENT_SET_AGETIME.
struct mac_agetime {
    uint32_t seconds; // 0: 0: addresses stay
};
// MAC_EVENT_GLOBAL_LEARN.
struct mac_global_learn {
    uint32_t learn_disable; // 0: 0 learning on, 1 off
};

} // namespace wire
