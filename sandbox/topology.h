// The layer-2 topology: which VLANs share a spanning-tree instance, the state of every port in each of them, and which
// bridge protocols run.
#pragma once

#include "sandbox/ports.h"

#include <bridge/l2_topology.h>
#include <bridge/protocol_registry.h>

namespace sandbox {

// All of it stands in the shared tables and outlives the server. Each change is made first and announced then. All
// throw std::invalid_argument with the reason when they refuse.
class Topology {
  public:
    explicit Topology(Announce announce) : announce_(std::move(announce)) {}

    // Takes states in; the instance may be BRI_L2TOP_INSTANCE_ALL. All are looked at, the others done, before one is
    // refused. What is done is announced as it came, changed or not: the words beside the state are the protocol's own.
    void set_states(std::span<const l2top_port_status> records);
    // The instance of each VLAN id, 4096 of them; those of VLANs must be instances.
    void set_instances(std::span<const uint16_t> instances);
    void move_vlans(uint16_t instance, const vlanset &vlans);

    // A protocol does not start while one that its mask names runs. A client claims in the registry before it tells the
    // server, so one that stands there already is announced all the same.
    void start(uint32_t protocol);
    void stop(uint32_t protocol);
    void set_conflicts(uint32_t protocol, uint32_t mask);

    // All of it, for somebody who asks for this submodule's data: the protocols, the instances, the states of every
    // port in the instances that are in use.
    static void replay(uint32_t submodule, const Announce &send);

    static Answer show();
    static Answer show_protocols();

  private:
    Announce announce_;
};

// "mstp" as BRI_PROT_MSTP, "mstp|erps" as the bits of these, "none" as 0; throw std::invalid_argument.
uint32_t parse_protocol(const std::string &text);
uint32_t parse_protocols(const std::string &text);

} // namespace sandbox
