// What clients ask for about addresses.
#include "sandbox/bridge.h"
#include "sandbox/request.h"

#include <bridge/events.h>

namespace sandbox {

namespace {

constexpr size_t kAny = BRI_PAYLOAD_MAX;

void take_records(Bridge &bridge, const Connection &, Bytes payload) {
    bridge.addresses().apply_run(payload);
}

void take_host(Bridge &bridge, const Connection &, Bytes payload) {
    bridge.addresses().apply(load<mvlan_msg>(payload));
}

void delete_on_vlans(Bridge &bridge, const Connection &, Bytes payload) {
    bridge.addresses().delete_dynamic(load<bri_mac_vlanmap_del>(payload));
}

void begin_check(Bridge &bridge, const Connection &, Bytes payload) {
    bridge.addresses().begin_check(false, load<uint32_t>(payload));
}

void end_check(Bridge &bridge, const Connection &, Bytes payload) {
    bridge.addresses().end_check(false, load<uint32_t>(payload));
}

constexpr Request kRequests[] = {
    {MAC_EVENT_NOTIFY_ADDR, 0, kAny, take_records},
    {MVLAN_EVENT_NOTIFY_ENTRY, sizeof(mvlan_msg), kAny, take_host},
    {MAC_EVENT_ROLLBACK_ADDR, 0, kAny, take_records, true},
    {MAC_EVENT_BYPASS_ADDR, 0, kAny, take_records, true},
    {MAC_EVENT_DEL_DYN_ON_VLANMAP, sizeof(bri_mac_vlanmap_del), kAny, delete_on_vlans, true},
    {MAC_EVENT_DEL_DYN_ON_INTF_VLANMAP, sizeof(bri_mac_vlanmap_del), kAny, delete_on_vlans, true},
    {MAC_EVENT_NONDYN_CHECK_BEGIN, 0, kAny, begin_check, true},
    {MAC_EVENT_NONDYN_CHECK_END, 0, kAny, end_check, true},
};

} // namespace

Requests mac_requests() {
    return kRequests;
}

} // namespace sandbox
