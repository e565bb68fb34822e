#include "tools/inspect/segment.h"
#include "tools/inspect/tables.h"
#include "wire/value.h"

#include <bridge/port_exclusion.h>
#include <bridge/vlan_group.h>

namespace inspect {

namespace {

using wire::kExclusionSegment;
using wire::kGroupSegment;

// Without the table no interface has a flag.
std::unique_ptr<const Snapshot<bri_exclusion_table>> look_for_flags(int32_t vsd) {
    try {
        return look<bri_exclusion_table>(kExclusionSegment, vsd);
    } catch (const Missing &) {
        if (!may_be_missing(kExclusionSegment, vsd))
            throw;
        return nullptr;
    }
}

} // namespace

Report look_at_groups(int32_t vsd, const Selection &selection) {
    const auto groups = look<bri_vlan_groups>(kGroupSegment, vsd);
    Report report{"groups",
                  Json::object(),
                  {{"GROUP", "group"},
                   {"MODE", "assign_mode"},
                   {"DEFAULT", "default_vid"},
                   {"COUNT", "member_count"},
                   {"MEMBERS", "members"}},
                  {}};
    for (unsigned id = 1; id < BRI_VLAN_GROUP_ENTRIES; ++id) {
        const vlan_group_entry &group = groups->data.groups[id];
        if (group.id != 0 && any_chosen(selection.vlans, wire::ids_in(group.members.words)))
            report.rows.push_back(indexed("group", id, group));
    }
    return report;
}

Report look_at_exclusions(int32_t vsd, const Selection &selection) {
    const auto table = look_for_flags(vsd);
    const wire::Field &flags = *wire::record_of<bri_exclusion_table>().find("flags");
    Report report{"exclusions", Json::object(), {{"PORT", "port"}, {"FLAGS", "flags"}}, {}};
    for (unsigned ifx = 0; table != nullptr && ifx <= BRI_EXCLUSION_IFX_MAX; ++ifx)
        if (table->data.flags[ifx] != 0 && chosen(selection.ports, ifx))
            report.rows.push_back({{"port", ifx},
                                   {"flags", wire::value_text(wire::element_of(flags, ifx), wire::bytes_of(table->data),
                                                              wire::Order::kNative)}});
    return report;
}

} // namespace inspect
