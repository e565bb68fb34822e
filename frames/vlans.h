// The VLANs of a bridge's port, or of the bridge itself, and the state of the port in each.
#pragma once

#include "frames/netlink.h"
#include "sandbox/vlan_sets.h"

#include <array>

namespace frames {

struct PortVlans {
    vlanset members{};
    vlanset untagged{}; // of frames that leave
    uint16_t pvid = 0;  // of frames that come without a tag; 0: such frames are dropped

    bool operator==(const PortVlans &other) const;
};

// The kernel's state of a port by VLAN id; it counts for members.
using VlanStates = std::array<uint8_t, 4096>;

// What a link's IFLA_AF_SPEC tells, ranges or not.
PortVlans vlans_of(Bytes af_spec);
// Takes what RTM_NEWVLAN or RTM_DELVLAN tells of a port into both; the states alone, too.
void take_vlans(const Notice &notice, PortVlans &vlans, VlanStates &states);

// Which of a link's VLANs are meant: those of the port, or of the bridge itself.
enum class Side : uint8_t { kPort, kBridge };
// What turns the one into the other: first what goes, then what comes or is carried in another way.
Requests vlan_requests(uint32_t link, Side side, const PortVlans &have, const PortVlans &want);
// The same for the states of those VLANs.
Requests state_requests(uint32_t link, const vlanset &vlans, const VlanStates &have, const VlanStates &want);

// Lists all of them, for Channel::dump.
Request list_vlans();

} // namespace frames
