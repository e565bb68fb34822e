#include "sandbox/addresses.h"

#include "sandbox/vlan_sets.h"

#include <bridge/events.h>

#include <algorithm>
#include <cstddef>

namespace sandbox {

namespace {

constexpr size_t kRecordsPerMessage = BRI_PAYLOAD_MAX / sizeof(bri_mac_msg);

// What a check concerns: learned addresses, or the configured ones of a type, 0 for all.
auto kind_of(bool dynamic, uint32_t type) {
    return
        [=](const bri_mac_entry &entry) { return is_dynamic(entry) == dynamic && (type == 0 || entry.type == type); };
}

void send_records(const MacChanges &records, const Announce &send) {
    for (size_t at = 0; at < records.size(); at += kRecordsPerMessage) {
        const size_t count = std::min(kRecordsPerMessage, records.size() - at);
        send(MAC_EVENT_NOTIFY_ADDR, {reinterpret_cast<const uint8_t *>(&records[at]), count * sizeof records[at]});
    }
}

} // namespace

size_t Addresses::announce(const MacChanges &changes) const {
    send_records(changes, announce_);
    return changes.size();
}

size_t Addresses::apply(const bri_mac_msg &record) {
    return announce(macs_.apply(record));
}

size_t Addresses::apply_run(Bytes records) {
    MacChanges changes;
    for (; records.size >= sizeof(bri_mac_msg); records = records.from(sizeof(bri_mac_msg))) {
        const MacChanges more = macs_.apply(bri::load_at<bri_mac_msg>(records, 0));
        changes.insert(changes.end(), more.begin(), more.end());
    }
    return announce(changes);
}

void Addresses::begin_check(bool dynamic, uint32_t type) {
    macs_.begin_check(kind_of(dynamic, type));
}

void Addresses::end_check(bool dynamic, uint32_t type) {
    announce(macs_.end_check(kind_of(dynamic, type)));
}

bool Addresses::apply(const mvlan_msg &request) {
    if (!hosts_.apply(request))
        return false;
    announce_(MVLAN_EVENT_NOTIFY_ENTRY, bytes_of(request));
    return true;
}

void Addresses::replay(uint32_t submodule, const Announce &send) const {
    if (submodule == BRI_SUBMOD_MAC) {
        MacChanges all;
        macs_.for_each([&](const bri_mac_entry &entry) { all.push_back({0, BRI_MAC_ADD, entry}); });
        send_records(all, send);
    } else if (submodule == BRI_SUBMOD_MVLAN) {
        for (const mvlan_msg &entry : hosts_.entries())
            send(MVLAN_EVENT_NOTIFY_ENTRY, bytes_of(entry));
    }
}

void Addresses::clear() {
    macs_.clear();
    hosts_.clear();
}

void Addresses::delete_dynamic(const bri_mac_vlanmap_del &request) {
    announce(macs_.remove_if([&](const bri_mac_entry &entry) {
        return is_dynamic(entry) && entry.bcast_id <= BRI_VID_MAX && holds(request.vlans, entry.bcast_id) &&
               (request.ifx == 0 || request.ifx == entry.ifx);
    }));
}

} // namespace sandbox
