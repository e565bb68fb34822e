#include "tools/inspect/idset.h"
#include "tools/inspect/segment.h"
#include "tools/inspect/tables.h"

#include <bridge/port_exclusion.h>
#include <bridge/vlan_group.h>

#include <array>

namespace inspect {

namespace {

bool holds_a_chosen_vlan(const Ids &members, const std::optional<std::set<unsigned>> &vlans) {
    if (!vlans)
        return true;
    for (const unsigned vid : members)
        if (vlans->contains(vid))
            return true;
    return false;
}

struct FlagName {
    uint32_t flag;
    const char *name;
};
constexpr std::array<FlagName, 7> kFlagNames{{{BRI_DOT1Q_TUNNEL, "dot1q-tunnel"},
                                              {BRI_MAC_COPY, "mac-copy"},
                                              {BRI_SECURE, "secure"},
                                              {BRI_DOT1X, "dot1x"},
                                              {BRI_MIR_DEST, "mirror-destination"},
                                              {BRI_HOST, "host"},
                                              {BRI_PROMISCUOUS, "promiscuous"}}};

Json names_of(uint32_t flags) {
    Json names = Json::array();
    for (const FlagName &row : kFlagNames)
        if ((flags & row.flag) != 0)
            names.push_back(row.name);
    return names;
}

} // namespace

Report look_at_groups(int32_t vsd, const Selection &selection) {
    const auto groups = look<bri_vlan_groups>(kGroupSegment, vsd);
    Report report{"groups",
                  Json::object(),
                  {{"GROUP", "group"},
                   {"MODE", "assign_mode"},
                   {"DEFAULT", "default_vlan"},
                   {"COUNT", "member_count"},
                   {"MEMBERS", "members"}},
                  {}};
    for (unsigned id = 1; id < BRI_VLAN_GROUP_ENTRIES; ++id) {
        const vlan_group_entry &group = groups->data.groups[id];
        const Ids members = ids_of(group.members.words, BRI_VID_MIN, BRI_VID_MAX);
        if (group.id != 0 && holds_a_chosen_vlan(members, selection.vlans))
            report.rows.push_back({{"group", id},
                                   {"assign_mode", group.assign_mode},
                                   {"default_vlan", group.default_vid},
                                   {"member_count", group.member_count},
                                   {"members", members}});
    }
    return report;
}

Report look_at_exclusions(int32_t vsd, const Selection &selection) {
    const auto table = look<bri_exclusion_table>(kExclusionSegment, vsd);
    Report report{
        "exclusions", Json::object(), {{"PORT", "port"}, {"FLAGS", "flags", true}, {"FEATURES", "features"}}, {}};
    for (unsigned ifx = 0; ifx <= BRI_EXCLUSION_IFX_MAX; ++ifx) {
        const uint32_t flags = table->data.flags[ifx];
        if (flags != 0 && chosen(selection.ports, ifx))
            report.rows.push_back({{"port", ifx}, {"flags", flags}, {"features", names_of(flags)}});
    }
    return report;
}

} // namespace inspect
