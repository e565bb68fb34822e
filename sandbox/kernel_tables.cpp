#include "sandbox/kernel_tables.h"

#include <bridge/events.h>

#include <algorithm>
#include <cstddef>

namespace sandbox {

namespace {

// What a check concerns: learned addresses, or the configured ones of a type, 0 for all.
auto kind_of(bool dynamic, uint32_t type) {
    return
        [=](const bri_mac_entry &entry) { return is_dynamic(entry) == dynamic && (type == 0 || entry.type == type); };
}

} // namespace

void send_records(uint32_t type, const MacChanges &records, const Announce &send) {
    constexpr size_t most = BRI_PAYLOAD_MAX / sizeof(bri_mac_msg);
    for (size_t at = 0; at < records.size(); at += most) {
        const size_t count = std::min(most, records.size() - at);
        send(type, {reinterpret_cast<const uint8_t *>(&records[at]), count * sizeof records[at]});
    }
}

void KernelTables::tell(const MacNews &news) const {
    send_records(MAC_EVENT_NOTIFY_ADDR, news.changes, tell_);
    send_records(MAC_EVENT_DYN_MOVE, news.moved, tell_);
    send_records(MAC_EVENT_EXCEED_ADDR_CAPA, news.exceeded, tell_);
}

size_t KernelTables::apply_run(Bytes records) {
    return change([&](MacTable &macs, Microseconds now, MacNews &news) {
        for (; records.size >= sizeof(bri_mac_msg); records = records.from(sizeof(bri_mac_msg)))
            macs.apply(bri::load_at<bri_mac_msg>(records, 0), now, news);
    });
}

void KernelTables::begin_check(bool dynamic, uint32_t type) {
    macs_.begin_check(kind_of(dynamic, type));
}

void KernelTables::end_check(bool dynamic, uint32_t type) {
    change([&](MacTable &macs, Microseconds, MacNews &news) { macs.end_check(kind_of(dynamic, type), news); });
}

MacVlans::Outcome KernelTables::apply(const mvlan_msg &request) {
    const MacVlans::Outcome outcome = hosts_.apply(request);
    if (outcome == MacVlans::Outcome::kDone)
        tell_(MVLAN_EVENT_NOTIFY_ENTRY, bytes_of(request));
    return outcome;
}

void KernelTables::forget(const std::function<bool(uint16_t vid, uint32_t ifx)> &there, bool hosts_too) {
    change([&](MacTable &macs, Microseconds, MacNews &news) {
        macs.remove_if([&](const bri_mac_entry &entry) { return there(entry.bcast_id, entry.ifx); }, news);
    });
    if (!hosts_too)
        return;
    for (mvlan_msg host :
         hosts_.remove_if([&](const mvlan_msg &known) { return there(known.entry.vlan, known.ifx); })) {
        host.entry.type = kMacVlanDelete;
        tell_(MVLAN_EVENT_NOTIFY_ENTRY, bytes_of(host));
    }
}

void KernelTables::clear() {
    macs_.clear();
    hosts_.clear();
}

} // namespace sandbox
