#include "tools/inspect/segment.h"
#include "tools/inspect/tables.h"
#include "wire/value.h"

#include <bridge/protocol_registry.h>

#include <cstring>

namespace inspect {

namespace {

using wire::kVlanSegment;

// What a longer name left behind the end of this one is nobody's.
vle without_leftovers(vle entry) {
    const size_t length = strnlen(entry.name, sizeof entry.name);
    std::memset(entry.name + length, 0, sizeof entry.name - length);
    return entry;
}

// The masks less the bits that block nothing: the protocol's own and that of number 0.
bri_proto_registry effective(bri_proto_registry registry) {
    for (uint32_t proto = 0; proto < BRI_PROT_MAX; ++proto)
        registry.prejudge[proto] &= ~(uint32_t{1} << proto | 1);
    return registry;
}

std::string mask_text(const bri_proto_registry &registry, uint32_t proto) {
    const wire::Field mask = wire::element_of(*wire::record_of<bri_proto_registry>().find("prejudge"), proto);
    return wire::value_text(mask, wire::bytes_of(registry), wire::Order::kNative);
}

std::string name_of(uint32_t proto) {
    const wire::Field &field = *wire::record_of<l2top_proto_config>().find("protocol");
    return wire::value_text(field, wire::bytes_of(proto), wire::Order::kNative);
}

} // namespace

Report look_at_vlans(int32_t vsd, const Selection &selection) {
    const auto vlans = look<bri_vlandb>(kVlanSegment, vsd);
    Report report{"vlans",
                  wire::json_of(vlans->data.stat),
                  {{"VLAN", "vlan"},
                   {"NAME", "name"},
                   {"MODE", "mode"},
                   {"MANAGE", "manage_vid"},
                   {"MEMBERS", "members"},
                   {"UP", "up_mem"},
                   {"SVI", "svi_ifx"},
                   {"USERS", "ref"},
                   {"OPERATOR", "created_by_cli"},
                   {"VERSION", "version"},
                   {"CREATED-AT", "create_time"}},
                  {}};
    for (unsigned vid = BRI_VID_MIN; vid <= BRI_VID_MAX; ++vid) {
        const vle &entry = vlans->data.vlans[vid];
        if (entry.vid != 0 && chosen(selection.vlans, vid) && any_chosen(selection.ports, wire::ids_in(entry.members)))
            report.rows.push_back(indexed("vlan", vid, without_leftovers(entry)));
    }
    return report;
}

Report look_at_protocols(int32_t vsd, const Selection & /*selection*/) {
    const auto vlans = look<bri_vlandb>(kVlanSegment, vsd);
    const bri_proto_registry &registry = vlans->data.proto;
    Report report{
        "protocols",
        Json::object(),
        {{"NUMBER", "number"}, {"PROTOCOL", "protocol"}, {"ENABLED", "enabled"}, {"BLOCKED-BY", "blocked_by"}},
        {}};
    const bri_proto_registry blocking = effective(registry);
    for (uint32_t proto = 1; proto < BRI_PROT_MAX; ++proto)
        report.rows.push_back({{"number", proto},
                               {"protocol", name_of(proto)},
                               {"enabled", (registry.state >> proto & 1) != 0},
                               {"blocked_by", mask_text(blocking, proto)},
                               {"prejudge", mask_text(registry, proto)}});
    return report;
}

} // namespace inspect
