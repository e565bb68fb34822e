// The events that a command line asks for, and the groups that stand for several.
#pragma once

#include <bridge/events.h>

#include <string>
#include <string_view>
#include <vector>

namespace monitor {

// The events of one submodule that the library hands on to hosts.
struct Group {
    const char *name;
    uint32_t submodule;
    const char *help;
};
inline constexpr Group kGroups[] = {
    {"client", BRI_SUBMOD_CLNT_MNG, "begin and end of the server's data, switch-overs"},
    {"mac", BRI_SUBMOD_MAC, "MAC addresses"},
    {"vlan", BRI_SUBMOD_VLAN, "VLANs, ports and memberships"},
    {"mac-vlan", BRI_SUBMOD_MVLAN, "MAC-based VLANs"},
    {"topology", BRI_SUBMOD_L2TOP, "spanning-tree instances, port states, protocols"},
    {"group", BRI_SUBMOD_VLAN_GROUP, "VLAN groups"},
};
inline constexpr std::string_view kAll = "all"; // the events of all groups

// A question of the server, which waits until every client that registered for it has answered. A monitor has no
// opinion: its group, its range and `all` leave it out.
[[nodiscard]] bool is_question(uint32_t type);

struct Selection {
    event_set events{};
    std::vector<uint32_t> questions; // that were asked for by themselves
};

// The events of these words: a group, an event by its identifier or number, or a range FIRST-LAST of them; all for no
// words. Throws std::invalid_argument with a line for people.
[[nodiscard]] Selection select_events(const std::vector<std::string> &words);

// Every word that names a group or an event, with what it stands for, a line each.
[[nodiscard]] std::string known_words();

} // namespace monitor
