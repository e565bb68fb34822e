// The commands about spanning trees and bridge protocols.
#include "sandbox/parse.h"
#include "sandbox/sandbox.h"

#include <stdexcept>

namespace sandbox {

namespace {

Outcome set_state(Sandbox &sandbox, const Call &call) {
    l2top_port_status record{};
    record.ifx = parse_ifx(call.words[0]);
    record.instance = parse_instance(call.words[1]);
    record.state = parse_number(call.words[2], UINT16_MAX);
    sandbox.bridge.topology().set_states({&record, 1});
    return Answer();
}

Outcome move_vlans(Sandbox &sandbox, const Call &call) {
    if (call.words[1] != "vlans")
        throw std::invalid_argument("stp instance N vlans LIST");
    sandbox.bridge.topology().move_vlans(static_cast<uint16_t>(parse_number(call.words[0], UINT16_MAX)),
                                         parse_vlans(call.words[2]));
    return Answer();
}

Outcome show_topology(Sandbox &, const Call &) {
    return Topology::show();
}

template <void (Topology::*Change)(uint32_t protocol)> Outcome change_protocol(Sandbox &sandbox, const Call &call) {
    (sandbox.bridge.topology().*Change)(parse_protocol(call.words[0]));
    return Answer();
}

Outcome set_conflicts(Sandbox &sandbox, const Call &call) {
    sandbox.bridge.topology().set_conflicts(parse_protocol(call.words[0]), parse_protocols(call.words[1]));
    return Answer();
}

Outcome show_protocols(Sandbox &, const Call &) {
    return Topology::show_protocols();
}

constexpr Command kTopologyCommands[] = {
    {"stp state", "IFX INSTANCE STATE", "a port's state, a number of the protocol, in one instance or in all",
     set_state},
    {"stp instance", "N vlans LIST", "the VLANs are in that instance, 0 to 64", move_vlans},
    {"stp show", "", "the instances and the states in those that are in use", show_topology},
    {"proto set", "PROTOCOL", "it runs: mstp, gvrp, lldp, erps, ... unless one that it conflicts with does",
     change_protocol<&Topology::start>},
    {"proto clear", "PROTOCOL", "it runs no more", change_protocol<&Topology::stop>},
    {"proto conflict", "PROTOCOL LIST", "what keeps it from starting: mstp|erps, or none", set_conflicts},
    {"proto show", "", "what runs, and what conflicts with what", show_protocols},
};

} // namespace

Family topology_commands() {
    return kTopologyCommands;
}

} // namespace sandbox
