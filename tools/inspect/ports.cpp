#include "tools/inspect/segment.h"
#include "tools/inspect/tables.h"
#include "wire/value.h"

namespace inspect {

namespace {

using wire::Ids;
using wire::kPortSegment;
using wire::kVlanSegment;

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

Json row_of(const spcb &port, unsigned ifx, const bri_vlandb *vlans) {
    Json row = indexed("port", ifx, port);
    row["member_of"] = memberships(vlans, ifx);
    return row;
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
                   {"NATIVE", "default_vid"},
                   {"VERSION", "version"},
                   {"EXCLUSION", "attr_exclude"},
                   {"MEMBER-OF", "member_of"},
                   {"TAGGED", "tag_vlan"},
                   {"ALLOWED", "allow_vlan"},
                   {"FORWARDING", "fwd_state"}},
                  {}};
    const wire::Field &instances = *wire::record_of<bri_portdb>().find("stp_instance");
    report.summary["stp_instance"] = wire::value_text(instances, wire::bytes_of(ports->data), wire::Order::kNative);
    for (unsigned ifx = 1; ifx <= kLastPort; ++ifx) {
        const spcb &port = ports->data.ports[ifx];
        if (port.ifx == 0 || !chosen(selection.ports, ifx))
            continue;
        Json row = row_of(port, ifx, vlans);
        if (any_chosen(selection.vlans, row.at("member_of")))
            report.rows.push_back(std::move(row));
    }
    return report;
}

} // namespace inspect
