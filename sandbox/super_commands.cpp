// The commands about super and sub VLANs.
#include "sandbox/parse.h"
#include "sandbox/sandbox.h"

#include <stdexcept>

namespace sandbox {

namespace {

template <void (SuperVlans::*Change)(const vlanset &vlans)> Outcome change_supers(Sandbox &sandbox, const Call &call) {
    (sandbox.bridge.vlans().supers().*Change)(parse_vlans(call.words[0]));
    return Answer();
}

template <void (SuperVlans::*Change)(uint16_t vid, const vlanset &subs)>
Outcome change_subs(Sandbox &sandbox, const Call &call) {
    (sandbox.bridge.vlans().supers().*Change)(parse_vid(call.words[0]), parse_vlans(call.words[1]));
    return Answer();
}

Outcome set_proxy(Sandbox &sandbox, const Call &call) {
    if (call.words[1] != "on" && call.words[1] != "off")
        throw std::invalid_argument("super arp VID on|off");
    sandbox.bridge.vlans().supers().set_proxy(parse_vid(call.words[0]), call.words[1] == "on");
    return Answer();
}

Outcome show_supers(Sandbox &, const Call &) {
    return SuperVlans::show();
}

constexpr Command kSuperCommands[] = {
    {"super create", "LIST", "the VLANs are super VLANs from now on", change_supers<&SuperVlans::create>},
    {"super delete", "LIST", "they are none any more, nor are their sub VLANs sub VLANs",
     change_supers<&SuperVlans::remove>},
    {"super add", "VID LIST", "these VLANs are its sub VLANs too", change_subs<&SuperVlans::add>},
    {"super remove", "VID LIST", "these are not any more", change_subs<&SuperVlans::take>},
    {"super arp", "VID on|off", "whether a VLAN answers ARP for its hosts", set_proxy},
    {"super show", "", "the super VLANs and their sub VLANs", show_supers},
};

} // namespace

Family super_commands() {
    return kSuperCommands;
}

} // namespace sandbox
