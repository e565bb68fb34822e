// A port's VLAN memberships as whole sets, read word by word.
#pragma once

#include <bridge/base.h>

#include <cstdint>

namespace bri::vlan {

struct Membership {
    vlanset fixed;  // VLANs whose entry lists the port
    vlanset tagged; // those of them that the port carries tagged
};

// What vl_is_vlan_static_member and swport_get_vlan_tag_rule say about the port and each VLAN 1..4094, as the tables
// are now, with the lines that the first one writes. Both sets are empty for an invalid port.
Membership membership_of(uint32_t ifx);

} // namespace bri::vlan
