#include "sandbox/addresses.h"

#include "sandbox/ports.h"
#include "sandbox/vlan_sets.h"

#include <bridge/events.h>
#include <bridge/port_db.h>
#include <bridge/vlan_db.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace sandbox {

namespace {

template <class Record> Bytes run_of(const std::vector<Record> &records) {
    return {reinterpret_cast<const uint8_t *>(records.data()), records.size() * sizeof(Record)};
}

template <class Record> std::vector<Record> records_of(Bytes run) {
    std::vector<Record> records(run.size / sizeof(Record));
    if (!records.empty())
        std::memcpy(records.data(), run.data, records.size() * sizeof(Record));
    return records;
}

// The types that somebody configures on a port.
bool needs_a_port(uint32_t type) {
    return type != BRI_MAC_TYPE_DYNAMIC && type != BRI_MAC_TYPE_FILTER && type != BRI_MAC_TYPE_LOCAL;
}

// Deletes what the fields select.
bri_mac_msg deletion(uint8_t field, uint32_t ifx, uint32_t type) {
    bri_mac_msg record{};
    record.oper = BRI_MAC_DEL;
    record.entry.field = field;
    record.entry.ifx = ifx;
    record.entry.type = type;
    return record;
}

// Domains that are no VLAN included.
vlanset everything() {
    vlanset all;
    std::memset(&all, 0xFF, sizeof all);
    return all;
}

} // namespace

std::string misplaced(uint16_t vid, uint32_t ifx) {
    const auto index = static_cast<int32_t>(ifx);
    if (vid != 0 && vl_exist(vid, 0) == 0)
        return "no VLAN " + std::to_string(vid);
    if (ifx != 0 && (ifx >= BRI_PORT_SLOTS || swport_check_exist(index) == 0))
        return "no port " + std::to_string(ifx);
    if (vid != 0 && ifx != 0 && vl_is_vlan_member(vid, index) == 0)
        return "port " + std::to_string(ifx) + " is not a member of VLAN " + std::to_string(vid);
    return "";
}

std::string Addresses::refusal(const bri_mac_entry &frame) const {
    if (frame.ifx == 0 || frame.bcast_id == 0)
        return frame.ifx == 0 ? "no port 0" : "no VLAN 0";
    std::string reason = misplaced_(frame.bcast_id, frame.ifx);
    if (reason.empty() && link_is_down(frame.ifx))
        reason = "port " + std::to_string(frame.ifx) + " is down";
    return reason;
}

KernelResult Addresses::ask(uint32_t type, Bytes data) {
    return kernel_(type, data);
}

template <class Record> void Addresses::set(uint32_t type, const Record &record) {
    ask(type, bytes_of(record));
    announce_(type, bytes_of(record));
}

void Addresses::check(const bri_mac_msg &record) const {
    const bri_mac_entry &entry = record.entry;
    if (record.oper != BRI_MAC_ADD || is_dynamic(entry))
        return;
    if (needs_a_port(entry.type) && ((entry.field & BRI_MAC_FIELD_IFX) == 0 || entry.ifx == 0))
        throw std::invalid_argument("a configured address needs a port");
    const std::string reason =
        entry.bcast_id == 0 ? "no VLAN 0" : misplaced_(entry.bcast_id, needs_a_port(entry.type) ? entry.ifx : 0);
    if (!reason.empty())
        throw std::invalid_argument(reason);
}

uint32_t Addresses::apply(const std::vector<bri_mac_msg> &records) {
    std::vector<bri_mac_msg> taken;
    std::string reason;
    for (const bri_mac_msg &record : records)
        try {
            check(record);
            taken.push_back(record);
        } catch (const std::invalid_argument &error) {
            reason = error.what();
        }
    const uint32_t changed = ask_count(MAC_EVENT_NOTIFY_ADDR, run_of(taken));
    if (!reason.empty())
        throw std::invalid_argument(reason);
    return changed;
}

uint32_t Addresses::flush(const vlanset &vlans, uint32_t ifx) {
    bri_mac_vlanmap_del request{};
    request.ifx = ifx;
    request.vlans = vlans;
    return ask_count(MAC_EVENT_DEL_DYN_ON_VLANMAP, bytes_of(request));
}

FramesSeen Addresses::see(const std::vector<bri_mac_entry> &frames) {
    return ask(kFramesSeen, run_of(frames)).record<FramesSeen>();
}

uint32_t Addresses::set_age(uint32_t seconds) {
    const uint32_t age = ask_count(MAC_EVENT_SET_AGETIME, bytes_of(seconds));
    announce_(MAC_EVENT_SET_AGETIME, bytes_of(age));
    return age;
}

void Addresses::set_age_range(const bri_mac_age_range &range) {
    if (range.min > range.max)
        throw std::invalid_argument("no ageing time is in that range");
    set(MAC_EVENT_SET_AGETIME_RANGE, range);
}

void Addresses::set_learning(bool on) {
    set(MAC_EVENT_GLOBAL_LEARN, uint32_t{on ? 0U : 1U});
}

void Addresses::set_port_learning(uint32_t ifx, bool on) {
    if (const std::string reason = misplaced_(0, ifx); ifx == 0 || !reason.empty())
        throw std::invalid_argument(ifx == 0 ? "no port 0" : reason);
    set(MAC_EVENT_INTF_LEARN, bri_mac_intf_learn{ifx, static_cast<uint8_t>(on ? 0 : 1), {}});
}

void Addresses::set_room(const bri_mac_available &room) {
    set(MAC_EVENT_SET_AVAILABLE_MAC, room);
}

void Addresses::set_host_room(uint32_t entries) {
    ask(kHostRoom, bytes_of(entries));
}

// The port lets the host in, so it need not be a member.
std::string Addresses::misplaced_host(const mvlan_msg &request) const {
    if (request.entry.vlan == 0)
        return "no VLAN 0";
    const std::string reason = misplaced_(request.entry.vlan, 0);
    return reason.empty() ? misplaced_(0, request.ifx) : reason;
}

// Who reports errors is told which entry it was that failed.
void Addresses::apply(const mvlan_msg &request) {
    std::string reason = request.entry.type == kMacVlanAdd ? misplaced_host(request) : "";
    if (reason.empty())
        switch (ask(MVLAN_EVENT_NOTIFY_ENTRY, bytes_of(request)).error) {
        case 0:
            return;
        case ENOSPC:
            reason = "the table of hosts' VLANs is full";
            break;
        case ENOENT:
            reason = "no such entry";
            break;
        default:
            throw std::invalid_argument("neither an add nor a delete");
        }
    announce_(MVLAN_EVENT_ERROR, bytes_of(request.entry));
    throw std::invalid_argument(reason);
}

void Addresses::port_down(uint32_t ifx) {
    tell(MAC_EVENT_NOTIFY_ADDR, bytes_of(deletion(BRI_MAC_FIELD_IFX | BRI_MAC_FIELD_TYPE, ifx, BRI_MAC_TYPE_DYNAMIC)));
}

void Addresses::port_left(uint32_t ifx, const vlanset &vlans) {
    tell(kForget, bytes_of(KernelForget{ifx, 0, vlans}));
}

void Addresses::port_deleted(uint32_t ifx) {
    tell(kForget, bytes_of(KernelForget{ifx, 1, everything()}));
}

void Addresses::vlans_deleted(const vlanset &vlans) {
    tell(kForget, bytes_of(KernelForget{0, 1, vlans}));
}

// The port and the VLANs go their way, whether the module is there or not.
void Addresses::tell(uint32_t type, Bytes data) {
    try {
        ask(type, data);
    } catch (const std::invalid_argument &) { // said when it went
    }
}

void Addresses::check_configured(bool begins, uint32_t type) {
    ask(begins ? MAC_EVENT_NONDYN_CHECK_BEGIN : MAC_EVENT_NONDYN_CHECK_END, bytes_of(type));
}

void Addresses::replay(uint32_t submodule, const Announce &send) {
    if (submodule == BRI_SUBMOD_MAC)
        send_records(MAC_EVENT_NOTIFY_ADDR, all(), send);
    else if (submodule == BRI_SUBMOD_MVLAN)
        for (const mvlan_msg &entry : hosts())
            send(MVLAN_EVENT_NOTIFY_ENTRY, bytes_of(entry));
}

std::vector<bri_mac_msg> Addresses::all() {
    const KernelResult result = ask(kReadAddresses);
    return records_of<bri_mac_msg>({result.answer.data(), result.answer.size()});
}

std::optional<bri_mac_entry> Addresses::find(const bri_mac_entry &key) {
    bri_mac_find_first query{};
    query.key = key;
    query = ask(MAC_EVENT_CLIENT_FIND_FIRST, bytes_of(query)).record<bri_mac_find_first>();
    return query.found != 0 ? std::optional(query.result) : std::nullopt;
}

std::vector<mvlan_msg> Addresses::hosts() {
    const KernelResult result = ask(kReadHosts);
    return records_of<mvlan_msg>({result.answer.data(), result.answer.size()});
}

KernelFigures Addresses::figures() {
    return ask(kReadFigures).record<KernelFigures>();
}

} // namespace sandbox
