#include "frames/view.h"

#include <algorithm>
#include <linux/if_bridge.h>

namespace frames {

using namespace sandbox;

namespace {

constexpr uint32_t kSecond = 100;
constexpr uint32_t kNever = 1000 * 3600 * kSecond;

constexpr struct StateRow {
    uint32_t number;
    uint8_t state;
} kStates[] = {
    {0, BR_STATE_FORWARDING},
    {BR_STATE_LISTENING, BR_STATE_LISTENING},
    {BR_STATE_LEARNING, BR_STATE_LEARNING},
    {BR_STATE_FORWARDING, BR_STATE_FORWARDING},
    {BR_STATE_BLOCKING, BR_STATE_BLOCKING},
};

bool carries_others(bri_port_mode mode) {
    return mode == BRI_PORT_TRUNK || mode == BRI_PORT_HYBRID || mode == BRI_PORT_UPLINK;
}

// One that carries none of them: frames without a tag are dropped there.
uint16_t native_of_none(const vlanset &vlans, uint16_t now) {
    if (now != 0 && !holds(vlans, now))
        return now;
    return std::max(lowest(without(all_vlans(), vlans)), uint16_t{BRI_VID_MIN});
}

} // namespace

std::optional<uint8_t> kernel_state(uint32_t number) {
    for (const StateRow &row : kStates)
        if (row.number == number)
            return row.state;
    return std::nullopt;
}

PortVlans wanted_vlans(uint32_t ifx) {
    const auto port = static_cast<int32_t>(ifx);
    PortVlans vlans;
    vlans.members = those_of(all_vlans(), [&](uint16_t vid) { return vl_is_vlan_member(vid, port) != 0; });
    vlans.untagged =
        those_of(vlans.members, [&](uint16_t vid) { return swport_get_vlan_tag_rule(port, vid) == BRI_TAG_UNTAGGED; });
    const uint16_t native = load(port_at(ifx).default_vid);
    vlans.pvid = holds(vlans.members, native) ? native : uint16_t{0};
    return vlans;
}

VlanStates wanted_states(uint32_t ifx) {
    const spcb &port = port_at(ifx);
    VlanStates states{};
    for (uint16_t vid = BRI_VID_MIN; vid <= BRI_VID_MAX; ++vid) {
        const uint16_t instance = swport_get_stp_instance(vid);
        const uint32_t number = instance < BRI_STP_INSTANCES ? load(port.fwd_state[instance]) : 0;
        states[vid] = kernel_state(number).value_or(BR_STATE_FORWARDING);
    }
    return states;
}

uint8_t wanted_state(const PortVlans &vlans, const VlanStates &states) {
    const uint8_t first = states[lowest(vlans.members)];
    bool same = count(vlans.members) != 0;
    for_each_vlan(vlans.members, [&](uint16_t vid) { same = same && states[vid] == first; });
    if (!same)
        return BR_STATE_FORWARDING;
    return first == BR_STATE_BLOCKING ? uint8_t{BR_STATE_LISTENING} : first;
}

bool SwitchPort::operator==(const SwitchPort &other) const {
    return mode == other.mode && pvid == other.pvid && std::ranges::equal(allowed.words, other.allowed.words);
}

SwitchPort switch_port(const PortVlans &vlans, std::optional<SwitchPort> now) {
    const bool one = count(vlans.members) == 1 && lowest(vlans.members) == vlans.pvid;
    const vlanset others = without(vlans.untagged, only(vlans.pvid));
    if (one && holds(vlans.untagged, vlans.pvid) && (!now || !carries_others(now->mode)))
        return {now ? now->mode : BRI_PORT_ACCESS, vlans.pvid, now ? now->allowed : vlanset{}};
    const uint16_t native = vlans.pvid != 0 ? vlans.pvid : native_of_none(vlans.members, now ? now->pvid : uint16_t{0});
    if (count(others) != 0)
        return {BRI_PORT_HYBRID, native, vlans.members};
    return {now && carries_others(now->mode) ? now->mode : BRI_PORT_TRUNK, native, vlans.members};
}

SwitchPort switch_port(uint32_t ifx) {
    const spcb &port = port_at(ifx);
    return {static_cast<bri_port_mode>(load(port.mode)), static_cast<uint16_t>(load(port.default_vid)),
            port.allow_vlan};
}

uint32_t kernel_ageing(uint32_t seconds) {
    return seconds == 0 || seconds > kNever / kSecond ? kNever : seconds * kSecond;
}

uint32_t switch_ageing(uint32_t hundredths) {
    return hundredths >= kNever ? 0 : std::max(hundredths / kSecond, 1U);
}

} // namespace frames
