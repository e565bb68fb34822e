#include "tools/inspect/idset.h"
#include "tools/inspect/segment.h"
#include "tools/inspect/tables.h"

#include <bridge/protocol_registry.h>

namespace inspect {

namespace {

constexpr unsigned kLastPort = BRI_PORT_SLOTS - 1;

const char *mode_name(const vle &entry, unsigned vid) {
    switch (entry.mode) {
    case BRI_VLAN_STATIC:
        return "STATIC";
    case BRI_VLAN_DYNAMIC:
        return "DYNAMIC";
    case BRI_VLAN_SUPER:
        return entry.manage_vid == vid ? "SUPER" : "SUB";
    default:
        return "Unknown";
    }
}

Json row_of(const vle &entry, unsigned vid) {
    return {{"vlan", vid},
            {"name", safe_text(entry.name, sizeof entry.name)},
            {"mode", mode_name(entry, vid)},
            {"manage_vlan", entry.manage_vid},
            {"members", ids_of(entry.members, 1, kLastPort)},
            {"members_up", entry.up_mem},
            {"svi", entry.svi_ifx},
            {"svi_state", {{"a", entry.svi_state_a}, {"b", entry.svi_state_b}}},
            {"users", entry.ref},
            {"by_operator", entry.created_by_cli != 0},
            {"proxy", entry.proxy != 0},
            {"virtual_port", entry.vswpt_num},
            {"version", entry.version},
            {"created_at", entry.create_time / 100}};
}

Json summary_of(const vl_stat &stat) {
    return {{"lowest", stat.min_vid},           {"highest", stat.max_vid},  {"vlans", stat.cur_vlan_num},
            {"most_vlans", stat.max_vlan_num},  {"svis", stat.cur_svi_num}, {"most_svis", stat.max_svi_num},
            {"deletions", stat.total_del_times}};
}

bool has_a_chosen_port(const vle &entry, const std::optional<std::set<unsigned>> &ports) {
    if (!ports)
        return true;
    for (const unsigned ifx : *ports)
        if ((entry.members[ifx / 32] >> ifx % 32 & 1) != 0)
            return true;
    return false;
}

Json names_of(uint32_t mask) {
    Json names = Json::array();
    for (uint32_t proto = 1; proto < BRI_PROT_MAX; ++proto)
        if ((mask >> proto & 1) != 0)
            names.push_back(bridge_proto_get_name(proto));
    return names;
}

} // namespace

Report look_at_vlans(int32_t vsd, const Selection &selection) {
    const auto vlans = look<bri_vlandb>(kVlanSegment, vsd);
    Report report{"vlans",
                  summary_of(vlans->data.stat),
                  {{"VLAN", "vlan"},
                   {"NAME", "name"},
                   {"MODE", "mode"},
                   {"MANAGE", "manage_vlan"},
                   {"MEMBERS", "members"},
                   {"UP", "members_up"},
                   {"SVI", "svi"},
                   {"USERS", "users"},
                   {"OPERATOR", "by_operator"},
                   {"VERSION", "version"},
                   {"CREATED-AT", "created_at"}},
                  {}};
    for (unsigned vid = BRI_VID_MIN; vid <= BRI_VID_MAX; ++vid) {
        const vle &entry = vlans->data.vlans[vid];
        if (entry.vid != 0 && chosen(selection.vlans, vid) && has_a_chosen_port(entry, selection.ports))
            report.rows.push_back(row_of(entry, vid));
    }
    return report;
}

Report look_at_protocols(int32_t vsd, const Selection & /*selection*/) {
    const auto vlans = look<bri_vlandb>(kVlanSegment, vsd);
    const bri_proto_registry &registry = vlans->data.proto;
    Report report{"protocols",
                  Json::object(),
                  {{"NUMBER", "number"}, {"PROTOCOL", "name"}, {"ENABLED", "enabled"}, {"BLOCKED-BY", "blocked_by"}},
                  {}};
    for (uint32_t proto = 1; proto < BRI_PROT_MAX; ++proto)
        report.rows.push_back({{"number", proto},
                               {"name", bridge_proto_get_name(proto)},
                               {"enabled", (registry.state >> proto & 1) != 0},
                               {"blocked_by", names_of(registry.prejudge[proto] & ~(uint32_t{1} << proto))},
                               {"mask", registry.prejudge[proto]}});
    return report;
}

} // namespace inspect
