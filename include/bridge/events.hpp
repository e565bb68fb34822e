// Events as types: the code of an event and the record that it carries, tied when a daemon is compiled.
//
// @code
// // The layer's bridge::on<bridge::event::port_pvid> takes this function, as its argument is the event's.
// void on_pvid(const bridge::port_pvid &e);
// static_assert(bridge::takes<decltype(on_pvid), bridge::event::port_pvid>);
// @endcode
//
// Named is every event that brings a host a record of the C headers; the library keeps some of the others to itself.
// Each name stands twice: in `event` for the event, beside it for its record, which is the struct of the C headers.
// What an event gives to a function:
//
//     one record        const R &
//     several records   std::span<const R>, as many as are whole
//     event::raw<CODE>  std::span<const uint8_t> or nothing: any event, above all those without a record of their own
#pragma once

#include <bridge/bridge.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>

namespace bridge {

// One record. `least` is how many bytes a payload must have, for all three.
template <uint32_t Code, class Record> struct event_of_one {
    using record = Record;
    using argument = const Record &;
    static constexpr uint32_t code = Code;
    static constexpr uint16_t least = sizeof(Record);

    static argument argument_of(const void *payload, uint16_t) { return *static_cast<const Record *>(payload); }
};

// Records back to back.
template <uint32_t Code, class Record> struct event_of_many {
    using record = Record;
    using argument = std::span<const Record>;
    static constexpr uint32_t code = Code;
    static constexpr uint16_t least = sizeof(Record);

    static argument argument_of(const void *payload, uint16_t size) {
        return {static_cast<const Record *>(payload), size / sizeof(Record)};
    }
};

// The payload as it stands.
template <uint32_t Code> struct event_of_bytes {
    using record = void;
    using argument = std::span<const uint8_t>;
    static constexpr uint32_t code = Code;
    static constexpr uint16_t least = 0;

    static argument argument_of(const void *payload, uint16_t size) {
        return {static_cast<const uint8_t *>(payload), size};
    }
};

// Events whose record is laid down: ROW(name, code, record).
#define BRIDGE_KNOWN_EVENTS(ROW)                                                                                       \
    ROW(mac_changed, MAC_EVENT_NOTIFY_ADDR, bri_mac_msg)                                                               \
    ROW(mac_nondyn_changed, MAC_EVENT_NOTIFY_NONDYN, bri_mac_msg)                                                      \
    ROW(vlan_created, VLAN_EVENT_CREATE_INDEX, vl_evt_vlan_rec)                                                        \
    ROW(vlan_deleted, VLAN_EVENT_DESTROY_INDEX, vl_evt_vlan_rec)                                                       \
    ROW(vlans_created, VLAN_EVENT_CREATE_RANGE, vl_evt_vlanset_rec)                                                    \
    ROW(vlans_deleted, VLAN_EVENT_DESTROY_RANGE, vl_evt_vlanset_rec)                                                   \
    ROW(vlan_renamed, VLAN_EVENT_RENAME, vl_evt_vlan_rec)                                                              \
    ROW(vlan_mode_set, VLAN_EVENT_MODIFY_VLAN_MODE, vl_evt_vlan_rec)                                                   \
    ROW(vlan_svi, VLAN_EVENT_SVI_CREATE_DESTROY, vl_evt_svi_rec)                                                       \
    ROW(port_created, VLAN_EVENT_CREATE_INTF, vl_evt_intf_rec)                                                         \
    ROW(port_mode_set, VLAN_EVENT_MODIFY_INTF_MODE, vl_evt_intf_mode_rec)                                              \
    ROW(port_pvid, VLAN_EVENT_MODIFY_INTF_PVID, vl_evt_intf_pvid_rec)                                                  \
    ROW(port_allowed, VLAN_EVENT_MODIFY_INTF_ALLOWVL, vl_evt_intf_allow_rec)                                           \
    ROW(port_joined, VLAN_EVENT_ADD_INTF, vl_evt_intf_vlan_rec)                                                        \
    ROW(port_joined_set, VLAN_EVENT_RANGE_ADD_INTF, vl_evt_intf_vlanset_rec)                                           \
    ROW(protocol_changed, L2TOP_EVENT_PROTO_CONFIG, l2top_proto_config)

// Events that the library hands on as the server sends them. Their records are those of the request of the same number,
// or of the event that they undo; a server of one's own may send another, and then event::raw is the way.
#define BRIDGE_ASSUMED_EVENTS(ROW)                                                                                     \
    ROW(mac_flushed, MAC_EVENT_DEL_DYN_ON_VLANMAP, bri_mac_vlanmap_del)                                                \
    ROW(mac_flushed_port, MAC_EVENT_DEL_DYN_ON_INTF_VLANMAP, bri_mac_vlanmap_del)                                      \
    ROW(mac_rolled_back, MAC_EVENT_ROLLBACK_ADDR, bri_mac_msg)                                                         \
    ROW(mac_bypassed, MAC_EVENT_BYPASS_ADDR, bri_mac_msg)                                                              \
    ROW(port_learning, MAC_EVENT_INTF_LEARN, bri_mac_intf_learn)                                                       \
    ROW(vlan_asked, VLAN_EVENT_CREATE_PREJ, vl_evt_vlan_rec)                                                           \
    ROW(vlans_asked, VLAN_EVENT_CREATE_RANGE_PREJ, vlanset)                                                            \
    ROW(port_deleted, VLAN_EVENT_DESTROY_INTF, vl_evt_intf_rec)                                                        \
    ROW(port_left, VLAN_EVENT_DEL_INTF, vl_evt_intf_vlan_rec)                                                          \
    ROW(port_left_set, VLAN_EVENT_RANGE_DEL_INTF, vl_evt_intf_vlanset_rec)                                             \
    ROW(port_joined_dyn, VLAN_EVENT_DYN_MEM_ADD_RANG, vl_port_vlanset_req)                                             \
    ROW(port_left_dyn, VLAN_EVENT_DYN_MEM_DEL_RANG, vl_port_vlanset_req)                                               \
    ROW(port_allow_added, VLAN_EVENT_SP_ADD_ALLOW_VLAN, vl_port_vlanset_req)                                           \
    ROW(port_allow_removed, VLAN_EVENT_SP_RMV_ALLOW_VLAN, vl_port_vlanset_req)                                         \
    ROW(port_sub_ifs_removed, VLAN_EVENT_SP_RMV_SUB_IF_VLAN, vl_port_vlanset_req)                                      \
    ROW(mac_vlan_changed, MVLAN_EVENT_NOTIFY_ENTRY, mvlan_msg)                                                         \
    ROW(mac_vlan_failed, MVLAN_EVENT_ERROR, mvlan_entry)                                                               \
    ROW(group_members, VG_EVENT_MEM_VLAN, vlan_group_entry)                                                            \
    ROW(group_default, VG_EVENT_DEFAULT_VLAN, vlan_group_entry)                                                        \
    ROW(group_mode, VG_EVENT_VLAN_MODE, vlan_group_entry)

namespace event {

#define BRIDGE_EVENT(name, code, record)                                                                               \
    struct name : event_of_one<code, ::record> {};
BRIDGE_KNOWN_EVENTS(BRIDGE_EVENT)
BRIDGE_ASSUMED_EVENTS(BRIDGE_EVENT)
#undef BRIDGE_EVENT

struct mac_moved : event_of_many<MAC_EVENT_DYN_MOVE, ::bri_mac_msg> {};

// The states of ports, as many records as the batch says and has.
struct port_states {
    using record = ::l2top_port_status;
    using argument = std::span<const record>;
    static constexpr uint32_t code = L2TOP_EVENT_PORT_STATUS;
    static constexpr uint16_t least = offsetof(::l2top_port_status_batch, records);

    static argument argument_of(const void *payload, uint16_t size) {
        uint16_t count;
        std::memcpy(&count, payload, sizeof count);
        const size_t there = (size - least) / sizeof(record);
        const auto *first = reinterpret_cast<const record *>(static_cast<const uint8_t *>(payload) + least);
        return {first, count < there ? count : there};
    }
};

// Any event by its code.
template <uint32_t Code> struct raw : event_of_bytes<Code> {};

} // namespace event

#define BRIDGE_RECORD(name, code, record) using name = ::record;
BRIDGE_KNOWN_EVENTS(BRIDGE_RECORD)
BRIDGE_ASSUMED_EVENTS(BRIDGE_RECORD)
#undef BRIDGE_RECORD

// Whether a function can be given what the event carries.
template <class F, class Event>
concept takes = std::is_invocable_v<F &, typename Event::argument> ||
    (std::is_void_v<typename Event::record> &&std::is_invocable_v<F &>);

// Calls a function with what came: a payload of at least Event::least bytes, aligned for the record.
template <class Event, takes<Event> F> decltype(auto) give(F &fn, const void *payload, uint16_t size) {
    if constexpr (std::is_invocable_v<F &, typename Event::argument>)
        return fn(Event::argument_of(payload, size));
    else
        return fn();
}

} // namespace bridge
