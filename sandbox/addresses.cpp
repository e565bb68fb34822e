#include "sandbox/addresses.h"

#include <algorithm>
#include <cerrno>

namespace sandbox {

std::string Addresses::refusal(const bri_mac_entry &frame) const {
    if (frame.ifx == 0 || frame.bcast_id == 0)
        return frame.ifx == 0 ? "no port 0" : "no VLAN 0";
    std::string reason = misplaced_(frame.bcast_id, frame.ifx);
    if (reason.empty() && link_is_down(frame.ifx))
        reason = "port " + std::to_string(frame.ifx) + " is down";
    return reason;
}

void Addresses::set(uint32_t type, Bytes record) {
    ask_(type, record);
    announce_(type, record);
}

void Addresses::check(const bri_mac_msg &record) const {
    const bri_mac_entry &entry = record.entry;
    if (record.oper != BRI_MAC_ADD || is_dynamic(entry))
        return;
    const bool placed = entry.type != BRI_MAC_TYPE_FILTER && entry.type != BRI_MAC_TYPE_LOCAL; // these are on none
    refuse_if(placed && ((entry.field & BRI_MAC_FIELD_IFX) == 0 || entry.ifx == 0),
              "a configured address needs a port");
    refuse_for(entry.bcast_id == 0 ? "no VLAN 0" : misplaced_(entry.bcast_id, placed ? entry.ifx : 0));
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
    const auto changed = ask_(MAC_EVENT_NOTIFY_ADDR, run_of(taken)).record<uint32_t>();
    refuse_for(reason);
    return changed;
}

uint32_t Addresses::set_age(uint32_t seconds) {
    const auto age = ask_(MAC_EVENT_SET_AGETIME, bytes_of(seconds)).record<uint32_t>();
    announce_(MAC_EVENT_SET_AGETIME, bytes_of(age));
    return age;
}

void Addresses::set_age_range(uint32_t min, uint32_t max, uint32_t step) {
    refuse_if(min > max, "no ageing time is in that range");
    set(MAC_EVENT_SET_AGETIME_RANGE, bytes_of(bri_mac_age_range{min, max, step}));
}

void Addresses::set_port_learning(uint32_t ifx, bool on) {
    refuse_for(ifx == 0 ? "no port 0" : misplaced_(0, ifx));
    set(MAC_EVENT_INTF_LEARN, bytes_of(bri_mac_intf_learn{ifx, static_cast<uint8_t>(on ? 0 : 1), {}}));
}

// The port lets the host in, so it need not be a member. Who reports errors is told which entry it was that failed.
void Addresses::apply_host(const mvlan_msg &request) {
    const bool adds = request.entry.type == kMacVlanAdd;
    std::string reason = !adds ? "" : request.entry.vlan == 0 ? "no VLAN 0" : misplaced_(request.entry.vlan, 0);
    if (adds && reason.empty())
        reason = misplaced_(0, request.ifx);
    if (reason.empty()) {
        const int error = ask_(MVLAN_EVENT_NOTIFY_ENTRY, bytes_of(request)).error;
        if (error == 0)
            return;
        refuse_if(error == EINVAL, "neither an add nor a delete");
        reason = error == ENOSPC ? "the table of hosts' VLANs is full" : "no such entry";
    }
    announce_(MVLAN_EVENT_ERROR, bytes_of(request.entry));
    throw std::invalid_argument(reason);
}

// The port and the VLANs go their way, whether the module is there or not.
void Addresses::forget(const KernelForget &what) {
    try {
        ask_(kForget, bytes_of(what));
    } catch (const std::invalid_argument &) { // said when it went
    }
}

void Addresses::replay(uint32_t submodule, const Announce &send) {
    if (submodule == BRI_SUBMOD_MAC)
        send_records(MAC_EVENT_NOTIFY_ADDR, all(), send);
    else if (submodule == BRI_SUBMOD_MVLAN)
        for (const mvlan_msg &entry : hosts())
            send(MVLAN_EVENT_NOTIFY_ENTRY, bytes_of(entry));
}

std::optional<bri_mac_entry> Addresses::find(const bri_mac_entry &key) {
    const KernelResult result = ask_(MAC_EVENT_CLIENT_FIND_FIRST, bytes_of(bri_mac_find_first{key, 0, {}}));
    const auto answer = result.record<bri_mac_find_first>();
    return answer.found != 0 ? std::optional(answer.result) : std::nullopt;
}

Seen Traffic::send(const bri_mac_entry &frame) {
    refuse_for(addresses_.refusal(frame));
    const FramesSeen seen = addresses_.see({frame});
    return static_cast<Seen>(std::find(std::begin(seen.times), std::end(seen.times), 1U) - std::begin(seen.times));
}

Seen Traffic::start(const bri_mac_entry &frame, Microseconds period) {
    const Seen seen = send(frame);
    sources_.remove_if([&](const Source &source) {
        return std::ranges::equal(source.frame.mac, frame.mac) && source.frame.bcast_id == frame.bcast_id;
    });
    const auto place = sources_.emplace(sources_.end(), frame, period, loop_);
    place->timer.set([this, place] { send_again(*place); });
    place->timer.start(period);
    return seen;
}

void Traffic::send_again(Source &source) {
    try {
        send(source.frame);
    } catch (const std::invalid_argument &) { // nothing lets it in, or the kernel has gone and sees nothing
    }
    source.timer.start(source.period);
}

} // namespace sandbox
