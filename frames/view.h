// What the switch's tables ask of a Linux bridge, and what a bridge's tables mean for a switch.
#pragma once

#include "frames/links.h"
#include "sandbox/ports.h"

#include <bridge/l2_topology.h>

namespace frames {

// The kernel's state for a number of the spanning-tree protocol's: the kernel's own numbers, and forwarding for 0,
// which is what stands there until somebody has said something. Nothing for a number that the kernel has no state for.
std::optional<uint8_t> kernel_state(uint32_t number);

// Of a port that is there.
PortVlans wanted_vlans(uint32_t ifx);
// By VLAN; those that the kernel cannot express are forwarding.
VlanStates wanted_states(uint32_t ifx);
// Of the port as a whole: the one that it has in all its VLANs, or forwarding where they differ, for the kernel asks
// for the VLAN's only where the port's is that. Where no spanning tree of its own runs, the kernel opens a blocking
// port at once, so such a one is listening, which lets nothing pass either.
uint8_t wanted_state(const PortVlans &vlans, const VlanStates &states);

// A port that carries these VLANs so. Where the mode that it has can carry them, it keeps it.
struct SwitchPort {
    bri_port_mode mode;
    uint16_t pvid;
    vlanset allowed;

    bool operator==(const SwitchPort &other) const;
};
SwitchPort switch_port(const PortVlans &vlans, std::optional<SwitchPort> now);
// The one that is there.
SwitchPort switch_port(uint32_t ifx);

// The bridge's ageing time for the switch's, in seconds, and back. The kernel has none that never ends.
uint32_t kernel_ageing(uint32_t seconds);
uint32_t switch_ageing(uint32_t hundredths);

} // namespace frames
