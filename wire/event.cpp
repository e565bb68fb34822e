#include "wire/event.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace wire {

namespace {

constexpr Payload no{};
constexpr Payload empty{Shape::kNone};
constexpr Payload opaque{Shape::kOpaque};
template <class T> Payload one_of() {
    return one(record_of<T>());
}
template <class T> Payload run() {
    return run_of(record_of<T>());
}
template <class T> Payload assumed() {
    return {Shape::kRecord, &record_of<T>(), true};
}
template <class T> Payload assumed_run() {
    Payload payload = run<T>();
    payload.assumed = true;
    return payload;
}

// NOLINTBEGIN(cppcoreguidelines-macro-usage): an event's identifier is its name
#define EVENT(type, to_client, to_server)                                                                              \
    Event {                                                                                                            \
        type, #type, to_client, to_server, no, no, false                                                               \
    }
#define EVENT_AND_LOCAL(type, to_client, to_server)                                                                    \
    Event {                                                                                                            \
        type, #type, to_client, to_server, no, no, true                                                                \
    }
#define EVENT_AND_KERNEL(type, to_client, to_server, to_kernel, from_kernel)                                           \
    Event {                                                                                                            \
        type, #type, to_client, to_server, to_kernel, from_kernel, false                                               \
    }
// NOLINTEND(cppcoreguidelines-macro-usage)

// Rising by type. To the client, to the server; to the kernel and its answer. What the library neither builds nor reads
// is opaque.
std::vector<Event> table() { // NOLINT(readability-function-size)
    return {
        // client management
        EVENT(BRIDGE_EVENT_REG_MSG, no, one_of<bri_reg_msg>()),
        EVENT(BRIDGE_EVENT_ORI_DATA_OVER, no, empty),
        EVENT(BRIDGE_EVENT_BKUP_DATA_BEGIN, empty, no),
        EVENT(BRIDGE_EVENT_BKUP_DATA_END, empty, no),
        EVENT_AND_LOCAL(BRIDGE_EVENT_SYNC_DATA_BEGIN, empty, no),
        EVENT_AND_LOCAL(BRIDGE_EVENT_SYNC_DATA_END, empty, no),
        EVENT(BRIDGE_EVENT_ORI_DATA_REQUEST, empty, one_of<oridata_request>()),
        EVENT(BRIDGE_EVEVT_SERVER_STAT, one_of<server_stat>(), no),
        EVENT_AND_LOCAL(BRIDGE_EVENT_KERNEL_DATA_REQ, no, no),
        EVENT(BRIDGE_EVENT_SWITCHOVER_BEGIN, empty, no),
        EVENT_AND_LOCAL(BRIDGE_EVENT_SWITCHOVER_END, empty, no),
        EVENT(BRIDGE_EVEVT_MS_ROLE_STAT, opaque, no),
        EVENT(BRIDGE_EVEVT_CLI_FLUSH_OVER, opaque, no),
        EVENT(BRIDGE_EVEVT_MS_BATCH_SYNC_OVER, opaque, no),
        EVENT(BRIDGE_EVEVT_EF_BATCH_PROC_OVER, opaque, no),
        EVENT(BRIDGE_EVEVT_MS_NTF_BKUP_OVER, opaque, no),
        // MAC addresses
        EVENT_AND_LOCAL(MAC_EVENT_SYNC_DATA_BEGIN, empty, no),
        EVENT_AND_LOCAL(MAC_EVENT_SYNC_DATA_END, empty, no),
        EVENT(MAC_EVENT_SYNC_ADDR, opaque, no),
        EVENT(MAC_EVENT_SYNC_NONDYN, opaque, no),
        EVENT(MAC_EVENT_NOTIFY_ADDR, run<bri_mac_msg>(), one_of<bri_mac_msg>()),
        EVENT(MAC_EVENT_NOTIFY_NONDYN, run<bri_mac_msg>(), no),
        EVENT(MAC_EVENT_SET_AGETIME, assumed<mac_agetime>(), no),
        EVENT(MAC_EVENT_SET_AGETIME_RANGE, assumed<bri_mac_age_range>(), one_of<bri_mac_age_range>()),
        EVENT(MAC_EVENT_DYN_FLUSH, opaque, no),
        EVENT(MAC_EVENT_DYN_MOVE, assumed_run<bri_mac_msg>(), no),
        EVENT(MAC_EVENT_DEL_DYN_ON_VLANMAP, assumed<bri_mac_vlanmap_del>(), one_of<bri_mac_vlanmap_del>()),
        EVENT(MAC_EVENT_DEL_DYN_ON_INTF_VLANMAP, assumed<bri_mac_vlanmap_del>(), one_of<bri_mac_vlanmap_del>()),
        EVENT(MAC_EVENT_INTF_LEARN, assumed<bri_mac_intf_learn>(), one_of<bri_mac_intf_learn>()),
        EVENT(MAC_EVENT_GLOBAL_LEARN, assumed<mac_global_learn>(), no),
        EVENT(MAC_EVENT_SET_AVAILABLE_MAC, one_of<bri_mac_available>(), one_of<bri_mac_available>()),
        EVENT(MAC_EVENT_ROLLBACK_ADDR, assumed<bri_mac_msg>(), one_of<bri_mac_msg>()),
        EVENT(MAC_EVENT_BYPASS_ADDR, assumed<bri_mac_msg>(), one_of<bri_mac_msg>()),
        EVENT_AND_KERNEL(MAC_EVENT_SS_NOTIFY_ADDR, opaque, no, run<bri_mac_msg>(), no),
        EVENT_AND_KERNEL(MAC_EVENT_DYN_CHECK_BEGIN, opaque, no, empty, no),
        EVENT_AND_KERNEL(MAC_EVENT_DYN_CHECK_END, opaque, no, empty, no),
        EVENT(MAC_EVENT_NONDYN_CHECK_BEGIN, opaque, one_of<table_check>()),
        EVENT(MAC_EVENT_NONDYN_CHECK_END, opaque, one_of<table_check>()),
        EVENT(MAC_EVENT_MIB_GET_FIRST, opaque, no),
        EVENT(MAC_EVENT_MIB_GET_NEXT, opaque, no),
        EVENT(MAC_EVENT_QUERY_MAC_SHOW, opaque, no),
        EVENT(MAC_EVENT_QUERY_MAC_COUNT, opaque, no),
        EVENT(MAC_EVENT_QUERY_TYPES_COUNT, opaque, no),
        EVENT(MAC_EVENT_SERVER_FIND_FIRST, opaque, no),
        EVENT(MAC_EVENT_SERVER_FIND_NEXT, opaque, no),
        EVENT_AND_KERNEL(MAC_EVENT_CLIENT_FIND_FIRST, opaque, no, one_of<bri_mac_find_first>(),
                         one_of<bri_mac_find_first>()),
        EVENT_AND_KERNEL(MAC_EVENT_CLIENT_FIND_NEXT, opaque, no, one_of<bri_mac_find_next>(),
                         one_of<bri_mac_find_next>()),
        EVENT(MAC_EVENT_EXCEED_ADDR_CAPA, assumed_run<bri_mac_msg>(), no),
        EVENT(MAC_EVENT_NONDYN_SYNC_REQUEST, opaque, no),
        EVENT(MAC_EVENT_ADDR_SYNC_REQUEST, opaque, no),
        EVENT(MAC_EVENT_SET_ROOT_BRIDGE_MODE, opaque, one_of<root_bridge_mode>()),
        EVENT(MAC_EVENT_BACKUP_REQ, opaque, no),
        // VLAN
        EVENT_AND_LOCAL(VLAN_EVENT_SYNC_DATA_BEGIN, empty, no),
        EVENT_AND_LOCAL(VLAN_EVENT_SYNC_DATA_END, empty, no),
        EVENT_AND_LOCAL(VLAN_EVENT_CREATE_INDEX, one_of<vl_evt_vlan_rec>(), one_of<vl_evt_vlan_rec>()),
        EVENT_AND_LOCAL(VLAN_EVENT_DESTROY_INDEX, one_of<vl_evt_vlan_rec>(), one_of<vl_evt_vlan_rec>()),
        EVENT_AND_LOCAL(VLAN_EVENT_CREATE_RANGE, one_of<vl_evt_vlanset_rec>(), no),
        EVENT(VLAN_EVENT_DESTROY_RANGE, one_of<vl_evt_vlanset_rec>(), one_of<vl_evt_vlanset_rec>()),
        EVENT(VLAN_EVENT_DESTROY_ROLLBACK, opaque, no),
        EVENT_AND_LOCAL(VLAN_EVENT_RENAME, one_of<vl_evt_vlan_rec>(), no),
        EVENT_AND_LOCAL(VLAN_EVENT_MODIFY_VLAN_MODE, one_of<vl_evt_vlan_rec>(), no),
        EVENT(VLAN_EVENT_MODE_RANGE, opaque, no),
        EVENT(VLAN_EVENT_DEFAULT_RANGE, opaque, no),
        EVENT(VLAN_EVENT_CREATE_PREJ, assumed<vl_evt_vlan_rec>(), one_of<vlan_reply>()),
        EVENT(VLAN_EVENT_CREATE_RANGE_PREJ, assumed<vlanset>(), one_of<vl_vlanset_reply>()),
        EVENT_AND_LOCAL(VLAN_EVENT_CREATE_INTF, one_of<vl_evt_intf_rec>(), no),
        EVENT(VLAN_EVENT_DESTROY_INTF, assumed<vl_evt_intf_rec>(), no),
        EVENT(VLAN_EVENT_DEFAULT_INTF, opaque, no),
        EVENT(VLAN_EVENT_INTF_STATE, assumed<intf_state>(), no),
        EVENT_AND_LOCAL(VLAN_EVENT_ADD_INTF, one_of<vl_evt_intf_vlan_rec>(), no),
        EVENT_AND_LOCAL(VLAN_EVENT_RANGE_ADD_INTF, one_of<vl_evt_intf_vlanset_rec>(), no),
        EVENT(VLAN_EVENT_DEL_INTF, assumed<vl_evt_intf_vlan_rec>(), no),
        EVENT(VLAN_EVENT_RANGE_DEL_INTF, assumed<vl_evt_intf_vlanset_rec>(), no),
        EVENT(VLAN_EVENT_MODIFY_TAG, opaque, no),
        EVENT_AND_LOCAL(VLAN_EVENT_MODIFY_INTF_MODE, one_of<vl_evt_intf_mode_rec>(), no),
        EVENT(VLAN_EVENT_INTF_NO_MODE, opaque, no),
        EVENT_AND_LOCAL(VLAN_EVENT_MODIFY_INTF_PVID, one_of<vl_evt_intf_pvid_rec>(), one_of<vl_evt_intf_pvid_rec>()),
        EVENT_AND_LOCAL(VLAN_EVENT_MODIFY_INTF_ALLOWVL, one_of<vl_evt_intf_allow_rec>(), no),
        EVENT_AND_LOCAL(VLAN_EVENT_SVI_CREATE_DESTROY, one_of<vl_evt_svi_rec>(), no),
        EVENT(VLAN_EVENT_SVI_MODIFY_UP_NUM, assumed<svi_up_num>(), no),
        EVENT(VLAN_EVENT_SET_ADD_DYN_INTF, assumed<vl_dyn_member_req>(), one_of<vl_dyn_member_req>()),
        EVENT(VLAN_EVENT_SET_DEL_DYN_INTF, assumed<vl_dyn_member_req>(), one_of<vl_dyn_member_req>()),
        EVENT(VLAN_EVENT_DYN_MEM_ADD_RANG, assumed<vl_port_vlanset_req>(), one_of<vl_port_vlanset_req>()),
        EVENT(VLAN_EVENT_DYN_MEM_DEL_RANG, assumed<vl_port_vlanset_req>(), one_of<vl_port_vlanset_req>()),
        EVENT(VLAN_EVENT_SP_ADD_ALLOW_VLAN, assumed<vl_port_vlanset_req>(), one_of<vl_port_vlanset_req>()),
        EVENT(VLAN_EVENT_SP_RMV_ALLOW_VLAN, assumed<vl_port_vlanset_req>(), one_of<vl_port_vlanset_req>()),
        EVENT(VLAN_EVENT_SET_VSWPT_NUM, opaque, one_of<vl_vswpt_req>()),
        EVENT(VLAN_EVENT_SP_RMV_SUB_IF_VLAN, assumed<vl_port_vlanset_req>(), one_of<vl_port_vlanset_req>()),
        // MAC-based VLAN
        EVENT(MVLAN_EVENT_SYNC_DATA_BEGIN, empty, no),
        EVENT(MVLAN_EVENT_SYNC_DATA_END, empty, no),
        EVENT_AND_KERNEL(MVLAN_EVENT_NOTIFY_ENTRY, assumed<mvlan_msg>(), one_of<mvlan_msg>(), one_of<mvlan_msg>(),
                         one_of<mvlan_msg>()),
        EVENT(MVLAN_EVENT_ERROR, assumed<mvlan_entry>(), one_of<mvlan_entry>()),
        // layer-2 topology
        EVENT_AND_LOCAL(L2TOP_EVENT_SYNC_DATA_BEGIN, empty, no),
        EVENT_AND_LOCAL(L2TOP_EVENT_SYNC_DATA_END, empty, no),
        EVENT_AND_LOCAL(L2TOP_EVENT_INSTANCE_CONFIG, one_of<instance_table>(), one_of<instance_table>()),
        EVENT_AND_LOCAL(L2TOP_EVENT_PORT_STATUS, one_of<l2top_port_status_batch>(), one_of<l2top_port_status_batch>()),
        EVENT_AND_LOCAL(L2TOP_EVENT_PROTO_CONFIG, one_of<l2top_proto_config>(), one_of<l2top_proto_config>()),
        // VLAN groups
        EVENT(VG_EVENT_POLICY_ENTRY, assumed<group_policy>(), no),
        EVENT(VG_EVENT_MEM_VLAN, assumed<vlan_group_entry>(), no),
        EVENT(VG_EVENT_DEFAULT_VLAN, assumed<vlan_group_entry>(), no),
        EVENT(VG_EVENT_VLAN_MODE, assumed<vlan_group_entry>(), no),
        EVENT(VG_EVENT_DHCP_VLAN_STATUS, opaque, no),
        EVENT(VG_EVENT_MAC_VLAN_CHANGE, opaque, no),
        EVENT(VG_EVENT_GET_VLAN_BY_VGID, opaque, no),
        EVENT(VG_EVENT_SYNC_DATA_BEGIN, empty, no),
        EVENT(VG_EVENT_SYNC_DATA_END, empty, no),
        // port map
        EVENT(BRI_EVT_CFG_PORTMAP, opaque, no),
        EVENT(BRI_EVT_PORTMAP_SYNC_BEGIN, empty, no),
        EVENT(BRI_EVT_PORTMAP_SYNC_END, empty, no),
        // super VLAN
        EVENT(VLAN_EVENT_SUPER_CREATE, assumed<vl_evt_vlan_rec>(), no),
        EVENT(VLAN_EVENT_SUPER_DELETE, assumed<vl_evt_vlan_rec>(), no),
        EVENT(VLAN_EVENT_SUPER_CREATE_RANGE, assumed<vl_evt_vlanset_rec>(), no),
        EVENT(VLAN_EVENT_SUPER_DELETE_RANGE, assumed<vl_evt_vlanset_rec>(), no),
        EVENT(VLAN_EVENT_SUPER_RANG_DEL_SUB, assumed<super_subs>(), no),
        EVENT(VLAN_EVENT_SUPER_ADD_RANGE_SUB, assumed<super_subs>(), no),
        EVENT(VLAN_EVENT_SUPER_DEL_RANGE_SUB, assumed<super_subs>(), no),
        EVENT(VLAN_EVENT_ARPROXY, assumed<vlan_arproxy>(), no),
        EVENT(VLAN_EVENT_SUB_IP, opaque, no),
        // remote port mirroring VLAN
        EVENT(RSPAN_EVENT_VLAN_CREATE, opaque, no),
        EVENT(RSPAN_EVENT_VLAN_DELETE, opaque, no),
        EVENT(RSPAN_EVENT_CREATE_RANGE, opaque, no),
        EVENT(RSPAN_EVENT_DELETE_RANGE, opaque, no),
        // layer-2 IP address management
        EVENT(L2_IPAM_EVENT_SYNC_DATA_BEGIN, empty, no),
        EVENT(L2_IPAM_EVENT_SYNC_DATA_END, empty, no),
        EVENT(L2_IPAM_ADD_VLANLST, opaque, no),
        EVENT(L2_IPAM_DEL_VLANLST, opaque, no),
        EVENT(L2_IPAM_EVT_GLOBAL_CFG, opaque, no),
        // debug: switches and prints of a client process
        EVENT(DEBUG_EVENT_VLAN, one_of<debug_switch>(), no),
        EVENT(DEBUG_EVENT_MAC, one_of<bri_mac_filter>(), no),
        EVENT(DEBUG_EVENT_MSG, one_of<debug_switch>(), no),
        EVENT(DEBUG_EVENT_QINQ, one_of<debug_switch>(), no),
        EVENT(DEBUG_EVENT_VMAP, one_of<debug_switch>(), no),
        EVENT(DEBUG_EVENT_MSG_DELAY, one_of<debug_switch>(), no),
        EVENT(DEBUG_EVENT_PVLAN, one_of<debug_switch>(), no),
        EVENT(DEBUG_EVENT_SHOW_FLAGS, empty, no),
        EVENT(DEBUG_EVENT_SHOW_VLAN, empty, no),
        EVENT(DEBUG_EVENT_SHOW_MAC_STATISTIC, empty, no),
        EVENT(DEBUG_EVENT_SHOW_CACHE, empty, no),
        EVENT(DEBUG_EVENT_SHOW_SWPORT, empty, no),
        EVENT(DEBUG_EVENT_SHOW_DELAY, empty, no),
        // research: questions of the server to one client
        EVENT(RESEARCH_EVENT_FAILED, no, empty),
        EVENT(RESEARCH_EVENT_SWPORT_PREJUDGE, assumed<swport_prejudge_request>(), one_of<bri_swport_prejudge_reply>()),
        EVENT(RESEARCH_EVENT_SS_ORIGIN_MAC, empty, one_of<origin_mac_total>()),
    };
}

uint32_t number_in(std::string_view text, bool &good) {
    const int base = text.starts_with("0x") || text.starts_with("0X") ? 16 : 10;
    const char *first = text.data() + (base == 16 ? 2 : 0);
    const char *end = text.data() + text.size();
    uint32_t value = 0;
    const auto [stopped, error] = std::from_chars(first, end, value, base);
    good = error == std::errc{} && stopped == end && first != end;
    return value;
}

} // namespace

const Payload &Event::payload(Direction direction) const {
    switch (direction) {
    case Direction::kToClient:
        return to_client;
    case Direction::kToServer:
        return to_server;
    case Direction::kToKernel:
        return to_kernel;
    case Direction::kFromKernel:
        break;
    }
    return from_kernel;
}

const std::vector<Event> &all_events() {
    static const std::vector<Event> all = table();
    return all;
}

const Event *find_event(uint32_t type) {
    const auto &all = all_events();
    const auto found = std::lower_bound(all.begin(), all.end(), type,
                                        [](const Event &event, uint32_t wanted) { return event.type < wanted; });
    return found != all.end() && found->type == type ? &*found : nullptr;
}

const Event *find_event(std::string_view name_or_number) {
    for (const Event &event : all_events())
        if (event.name == name_or_number)
            return &event;
    bool good = false;
    const uint32_t type = number_in(name_or_number, good);
    return good ? find_event(type) : nullptr;
}

std::string event_name(uint32_t type) {
    const Event *event = find_event(type);
    return event != nullptr ? event->name : std::to_string(type);
}

uint32_t parse_event(std::string_view name_or_number) {
    if (const Event *event = find_event(name_or_number))
        return event->type;
    bool good = false;
    const uint32_t type = number_in(name_or_number, good);
    if (!good)
        throw std::invalid_argument("no such event: " + std::string(name_or_number));
    return type;
}

Payload payload_of(uint32_t type, Direction direction) {
    const Event *event = find_event(type);
    return event != nullptr ? event->payload(direction) : opaque;
}

} // namespace wire
