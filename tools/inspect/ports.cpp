#include "tools/inspect/idset.h"
#include "tools/inspect/segment.h"
#include "tools/inspect/tables.h"

#include <map>

namespace inspect {

namespace {

constexpr unsigned kLastPort = BRI_PORT_SLOTS - 1;

std::string mode_name(uint32_t mode) {
    return mode <= BRI_PORT_HYBRID ? swport_vlan_mode_name(mode) : std::to_string(mode);
}

// VLANs that have the port as a member; null when the VLAN segment is not there to tell.
Json memberships(const bri_vlandb *vlans, unsigned ifx) {
    if (vlans == nullptr)
        return nullptr;
    Ids ids;
    for (unsigned vid = BRI_VID_MIN; vid <= BRI_VID_MAX; ++vid)
        if (vlans->vlans[vid].vid != 0 && (vlans->vlans[vid].members[ifx / 32] >> ifx % 32 & 1) != 0)
            ids.push_back(vid);
    return ids;
}

// The instances whose state is not 0.
Json forwarding(const spcb &port) {
    Json states = Json::array();
    for (unsigned instance = 0; instance < BRI_STP_INSTANCES; ++instance)
        if (port.fwd_state[instance] != 0)
            states.push_back({{"instance", instance}, {"state", port.fwd_state[instance]}});
    return states;
}

Json row_of(const spcb &port, unsigned ifx, const bri_vlandb *vlans) {
    return {{"port", ifx},
            {"mode", mode_name(port.mode)},
            {"default_mode", mode_name(port.default_mode)},
            {"native_vlan", port.default_vid},
            {"version", port.version},
            {"exclusion_flags", port.attr_exclude},
            {"member_of", memberships(vlans, ifx)},
            {"tagged", ids_of(port.tag_vlan.words, BRI_VID_MIN, BRI_VID_MAX)},
            {"allowed", ids_of(port.allow_vlan.words, BRI_VID_MIN, BRI_VID_MAX)},
            {"forwarding", forwarding(port)}};
}

// VLANs by spanning-tree instance, those of instance 0 left out.
Json instances(const bri_portdb &ports) {
    std::map<unsigned, Ids> vlans;
    for (unsigned vid = BRI_VID_MIN; vid <= BRI_VID_MAX; ++vid)
        if (ports.stp_instance[vid] != 0)
            vlans[ports.stp_instance[vid]].push_back(vid);
    Json list = Json::array();
    for (const auto &[instance, ids] : vlans)
        list.push_back({{"instance", instance}, {"vlans", ids}});
    return list;
}

bool carries_a_chosen_vlan(const bri_vlandb *vlans, unsigned ifx, const std::set<unsigned> &choice) {
    const Json member_of = memberships(vlans, ifx);
    for (const Json &vid : member_of)
        if (choice.contains(vid.get<unsigned>()))
            return true;
    return false;
}

// The VLAN segment is only needed when VLANs choose the ports.
std::unique_ptr<const Snapshot<bri_vlandb>> look_for_vlans(int32_t vsd, bool needed) {
    try {
        return look<bri_vlandb>(kVlanSegment, vsd);
    } catch (const Unreadable &) {
        if (needed)
            throw;
        return nullptr;
    }
}

} // namespace

Report look_at_ports(int32_t vsd, const Selection &selection) {
    const auto ports = look<bri_portdb>(kPortSegment, vsd);
    const auto vlan_copy = look_for_vlans(vsd, selection.vlans.has_value());
    const bri_vlandb *vlans = vlan_copy != nullptr ? &vlan_copy->data : nullptr;
    Report report{"ports",
                  Json::object(),
                  {{"PORT", "port"},
                   {"MODE", "mode"},
                   {"DEFAULT", "default_mode"},
                   {"NATIVE", "native_vlan"},
                   {"VERSION", "version"},
                   {"EXCLUSION", "exclusion_flags", true},
                   {"MEMBER-OF", "member_of"},
                   {"TAGGED", "tagged"},
                   {"ALLOWED", "allowed"},
                   {"FORWARDING", "forwarding"}},
                  {}};
    report.summary["stp_instances"] = instances(ports->data);
    for (unsigned ifx = 1; ifx <= kLastPort; ++ifx) {
        const spcb &port = ports->data.ports[ifx];
        if (port.ifx != 0 && chosen(selection.ports, ifx) &&
            (!selection.vlans || carries_a_chosen_vlan(vlans, ifx, *selection.vlans)))
            report.rows.push_back(row_of(port, ifx, vlans));
    }
    return report;
}

} // namespace inspect
