// The machine's interfaces as the kernel tells of them: a bridge, its ports, the VLAN devices on it.
#pragma once

#include "frames/vlans.h"

#include <map>
#include <optional>

namespace frames {

using Mac = std::array<uint8_t, 6>;

// What somebody can set of a bridge as a whole. Times are in hundredths of a second.
struct BridgeSettings {
    uint32_t ageing = 0;
    uint8_t filters_vlans = 0;
    uint32_t stp = 0;
    uint16_t native = 0; // that new ports get

    bool operator==(const BridgeSettings &) const = default;
};

struct Link {
    std::string name;
    std::string kind; // "bridge", "vlan", ...; empty for hardware
    Mac address{};
    uint32_t flags = 0;    // IFF_...
    uint32_t master = 0;   // the bridge that it is a port of
    uint32_t below = 0;    // of a VLAN device: what it stands on
    uint16_t vid = 0;      // and its VLAN
    uint32_t failures = 0; // how often it has lost its carrier
    BridgeSettings bridge;
    // Of a bridge and its ports.
    PortVlans vlans;
    VlanStates states{};
    uint8_t state = 0;
    uint8_t learning = 1;

    [[nodiscard]] bool is_up() const;      // frames can pass
    [[nodiscard]] bool is_enabled() const; // somebody has switched it on
};
// By their numbers.
using Links = std::map<uint32_t, Link>;

// Takes what RTM_NEWLINK, RTM_DELLINK, RTM_NEWVLAN and RTM_DELVLAN tell.
void take_link(const Notice &notice, Links &links);

// Lists for Channel::dump: all links, and then all bridges and ports with their VLANs.
Request list_links();
Request list_ports();

// Null when there is none of that name.
const std::pair<const uint32_t, Link> *find_link(const Links &links, const std::string &name);

// Changes of one link. A port has one master at most; 0: none.
Request set_master(uint32_t link, uint32_t master);
Request set_enabled(uint32_t link, bool on);
Request set_learning(uint32_t link, bool on);
Request set_state(uint32_t link, uint8_t state);
// What differs; nothing when nothing does.
std::optional<Request> set_bridge(uint32_t link, const BridgeSettings &have, const BridgeSettings &want);
// A VLAN device on the bridge, up, and its end.
Request add_vlan_device(uint32_t bridge, const std::string &name, uint16_t vid);
Request remove_device(uint32_t link);

} // namespace frames
