// What clients ask for about addresses.
#include "sandbox/bridge.h"
#include "sandbox/request.h"
#include "sandbox/vlan_sets.h"

#include <bridge/events.h>

namespace sandbox {

namespace {

constexpr size_t kAny = BRI_PAYLOAD_MAX;

// A cut record at the end is passed over.
void take_records(Bridge &bridge, const Connection &, Bytes payload) {
    std::vector<bri_mac_msg> records;
    for (; payload.size >= sizeof(bri_mac_msg); payload = payload.from(sizeof(bri_mac_msg)))
        records.push_back(load<bri_mac_msg>(payload));
    bridge.addresses().apply(records);
}

void take_host(Bridge &bridge, const Connection &, Bytes payload) {
    bridge.addresses().apply(load<mvlan_msg>(payload));
}

// What a client could not do goes out of the table again.
void take_host_error(Bridge &bridge, const Connection &, Bytes payload) {
    mvlan_msg request{0, load<mvlan_entry>(payload)};
    if (request.entry.type != kMacVlanAdd)
        return;
    request.entry.type = kMacVlanDelete;
    bridge.addresses().apply(request);
}

void flush_vlans(Bridge &bridge, const Connection &, Bytes payload) {
    const auto request = load<bri_mac_vlanmap_del>(payload);
    bridge.addresses().flush(request.vlans, request.ifx);
}

// On the port that the payload names, or on all.
void flush_all(Bridge &bridge, const Connection &, Bytes payload) {
    bridge.addresses().flush(all_vlans(), load<uint32_t>(payload));
}

void switch_port_learning(Bridge &bridge, const Connection &, Bytes payload) {
    const auto request = load<bri_mac_intf_learn>(payload);
    bridge.addresses().set_port_learning(request.ifx, request.learn_disable == 0);
}

void set_age_range(Bridge &bridge, const Connection &, Bytes payload) {
    bridge.addresses().set_age_range(load<bri_mac_age_range>(payload));
}

void set_room(Bridge &bridge, const Connection &, Bytes payload) {
    bridge.addresses().set_room(load<bri_mac_available>(payload));
}

template <bool Begins> void check(Bridge &bridge, const Connection &, Bytes payload) {
    bridge.addresses().check_configured(Begins, load<uint32_t>(payload));
}

// A setting is announced by whoever sets it; the others that are echoed are events of their own.
constexpr Request kMacRequests[] = {
    {MAC_EVENT_NOTIFY_ADDR, 0, kAny, take_records},
    {MAC_EVENT_ROLLBACK_ADDR, 0, kAny, take_records, true},
    {MAC_EVENT_BYPASS_ADDR, 0, kAny, take_records, true},
    {MAC_EVENT_DYN_FLUSH, 0, kAny, flush_all, true},
    {MAC_EVENT_DEL_DYN_ON_VLANMAP, sizeof(bri_mac_vlanmap_del), kAny, flush_vlans, true},
    {MAC_EVENT_DEL_DYN_ON_INTF_VLANMAP, sizeof(bri_mac_vlanmap_del), kAny, flush_vlans, true},
    {MAC_EVENT_INTF_LEARN, sizeof(bri_mac_intf_learn), kAny, switch_port_learning},
    {MAC_EVENT_SET_AGETIME_RANGE, sizeof(bri_mac_age_range), kAny, set_age_range},
    {MAC_EVENT_SET_AVAILABLE_MAC, sizeof(bri_mac_available), kAny, set_room},
    {MAC_EVENT_NONDYN_CHECK_BEGIN, 0, kAny, check<true>},
    {MAC_EVENT_NONDYN_CHECK_END, 0, kAny, check<false>},
    {MVLAN_EVENT_NOTIFY_ENTRY, sizeof(mvlan_msg), kAny, take_host},
    {MVLAN_EVENT_ERROR, sizeof(mvlan_entry), kAny, take_host_error, true},
};

} // namespace

Requests mac_requests() {
    return kMacRequests;
}

} // namespace sandbox
