// From the switch to the kernel.
#include "frames/driver.h"

#include <algorithm>
#include <cerrno>
#include <linux/if.h>
#include <linux/if_bridge.h>

namespace frames {

using namespace sandbox;

struct LinuxBridge::ChangeRow {
    uint32_t type;
    void (LinuxBridge::*carry)(Bytes record);
    bool while_taking = false; // also what the kernel's own word has led to
};

const LinuxBridge::ChangeRow LinuxBridge::kChanges[] = {
    {VLAN_EVENT_CREATE_INTF, &LinuxBridge::carry_port_of},
    {VLAN_EVENT_DESTROY_INTF, &LinuxBridge::carry_port_of},
    {VLAN_EVENT_MODIFY_INTF_MODE, &LinuxBridge::carry_port_of},
    {VLAN_EVENT_MODIFY_INTF_PVID, &LinuxBridge::carry_port_of},
    {VLAN_EVENT_ADD_INTF, &LinuxBridge::carry_port_of},
    {VLAN_EVENT_DEL_INTF, &LinuxBridge::carry_port_of},
    {VLAN_EVENT_RANGE_ADD_INTF, &LinuxBridge::carry_port_of},
    {VLAN_EVENT_RANGE_DEL_INTF, &LinuxBridge::carry_port_of},
    {VLAN_EVENT_INTF_STATE, &LinuxBridge::carry_port_of},
    {VLAN_EVENT_CREATE_INDEX, &LinuxBridge::carry_vlans},
    {VLAN_EVENT_CREATE_RANGE, &LinuxBridge::carry_vlans},
    {VLAN_EVENT_DESTROY_INDEX, &LinuxBridge::carry_vlans},
    {VLAN_EVENT_DESTROY_RANGE, &LinuxBridge::carry_vlans},
    {VLAN_EVENT_SVI_CREATE_DESTROY, &LinuxBridge::carry_svi},
    {L2TOP_EVENT_PORT_STATUS, &LinuxBridge::carry_ports},
    {L2TOP_EVENT_INSTANCE_CONFIG, &LinuxBridge::carry_ports},
    {MAC_EVENT_NOTIFY_ADDR, &LinuxBridge::carry_addresses, true},
    {MAC_EVENT_SET_AGETIME, &LinuxBridge::carry_ageing, true},
    {MAC_EVENT_SET_AGETIME_RANGE, &LinuxBridge::carry_ageing, true},
    {MAC_EVENT_INTF_LEARN, &LinuxBridge::carry_learning, true},
    {MAC_EVENT_GLOBAL_LEARN, &LinuxBridge::carry_learning, true},
};

void LinuxBridge::changed(uint32_t type, Bytes payload) noexcept {
    for (const ChangeRow &row : kChanges)
        if (row.type == type && links_.contains(bridge_) && (!taking_ || row.while_taking))
            try {
                (this->*row.carry)(payload);
            } catch (const std::exception &error) {
                complain(error.what());
            }
}

void LinuxBridge::complain(const std::string &text) {
    if (said_.insert(text).second)
        note(text);
}

bool LinuxBridge::ask(const Request &request, const std::string &what) {
    const int error = kernel_.ask(request);
    if (error != 0)
        complain(what + ": " + std::strerror(error));
    return error == 0;
}

bool LinuxBridge::ask_all(const Requests &requests, const std::string &what) {
    bool done = true;
    for (const Request &request : requests)
        done = ask(request, what) && done;
    return done;
}

uint32_t LinuxBridge::link_of(uint32_t ifx) const {
    const auto found = ports_.find(ifx);
    return found != ports_.end() && links_.contains(found->second) ? found->second : 0;
}

uint32_t LinuxBridge::port_of(uint32_t link) const {
    const auto found =
        std::find_if(ports_.begin(), ports_.end(), [&](const auto &port) { return port.second == link; });
    return found != ports_.end() ? found->first : 0;
}

void LinuxBridge::carry_port(uint32_t ifx) {
    const uint32_t index = link_of(ifx);
    if (index == 0)
        return;
    if (!there_is_port(ifx))
        return release(ifx);
    Link &link = links_[index];
    const PortVlans want = wanted_vlans(ifx);
    if (ask_all(vlan_requests(index, Side::kPort, link.vlans, want), link.name + ": its VLANs")) {
        for_each_vlan(without(want.members, link.vlans.members),
                      [&](uint16_t vid) { link.states[vid] = BR_STATE_FORWARDING; }); // as the kernel makes them
        link.vlans = want;
    }
    carry_states(ifx, index, want);
    carry_link(ifx, index);
}

// The kernel closes a port without a link by itself, and opens it when the link comes.
void LinuxBridge::carry_states(uint32_t ifx, uint32_t index, const PortVlans &vlans) {
    Link &link = links_[index];
    for (uint32_t number : port_at(ifx).fwd_state)
        if (!kernel_state(number))
            complain("port " + std::to_string(ifx) + ": " + std::to_string(number) +
                     " is none of the kernel's states, the port forwards");
    const VlanStates want = wanted_states(ifx);
    if (ask_all(state_requests(index, vlans.members, link.states, want), link.name + ": its states by VLAN"))
        link.states = want;
    const uint8_t state = wanted_state(vlans, want);
    if (link.is_up() && link.state != BR_STATE_DISABLED && link.state != state &&
        ask(set_state(index, state), link.name + ": its state"))
        link.state = state;
}

// A link is switched off when it is to be down, and on when it is to be up; without a cable it stays down all the same.
void LinuxBridge::carry_link(uint32_t ifx, uint32_t index) {
    Link &link = links_[index];
    const bool up = !link_is_down(ifx);
    const bool differs = up ? !link.is_enabled() : link.is_up();
    if (differs && ask(set_enabled(index, up), link.name + ": its link"))
        link.flags = up ? link.flags | IFF_UP : link.flags & ~static_cast<uint32_t>(IFF_UP);
}

void LinuxBridge::release(uint32_t ifx) {
    const uint32_t index = link_of(ifx);
    if (ask(set_master(index, 0), links_[index].name + ": leaves"))
        links_[index].master = 0;
    ports_.erase(ifx);
    memory_.ports.erase(ifx);
    remember();
}

void LinuxBridge::carry_ports(Bytes) {
    const auto ports = ports_;
    for (const auto &[ifx, index] : ports)
        carry_port(ifx);
}

// The VLANs that there are are the bridge's own; how the machine itself takes part in them stays as it is.
void LinuxBridge::carry_vlans(Bytes) {
    Link &bridge = links_[bridge_];
    PortVlans want;
    want.members = those_of(all_vlans(), there_is_vlan);
    const PortVlans &own = memory_.links[name_].vlans;
    want.untagged = those_of(want.members, [&](uint16_t vid) { return holds(own.untagged, vid); });
    want.pvid = holds(want.members, own.pvid) ? own.pvid : uint16_t{0};
    if (ask_all(vlan_requests(bridge_, Side::kBridge, bridge.vlans, want), "its VLANs"))
        bridge.vlans = want;
    carry_ports({});
}

void LinuxBridge::carry_svi(Bytes record) {
    const uint16_t vid = object_of<vl_evt_svi_rec>(record).vid;
    const std::string name = name_ + "." + std::to_string(vid);
    const auto found = std::find_if(links_.begin(), links_.end(), [&](const auto &link) {
        return link.second.kind == "vlan" && link.second.below == bridge_ && link.second.vid == vid;
    });
    if (vl_get_svi_ifx(vid) != 0) {
        if (found == links_.end() && ask(add_vlan_device(bridge_, name, vid), name)) {
            memory_.devices.insert(name);
            remember();
        }
    } else if (found != links_.end()) {
        if (memory_.devices.erase(found->second.name) == 0)
            return complain(found->second.name + " is not of our making, it stays");
        ask(remove_device(found->first), found->second.name);
        links_.erase(found);
        remember();
    }
}

void LinuxBridge::carry_addresses(Bytes records) {
    for (const bri_mac_msg &record : records_of<bri_mac_msg>(records)) {
        const bri_mac_entry &entry = record.entry;
        const Host host{std::to_array(entry.mac), entry.bcast_id};
        const auto known = fdb_.find(host);
        const std::string what = "an address in VLAN " + std::to_string(host.vid);
        if (record.oper == BRI_MAC_DEL && known != fdb_.end()) {
            if (const int error = kernel_.ask(remove_entry(host, known->second, bridge_));
                error != 0 && error != ENOENT)
                complain(what + ": " + std::strerror(error));
            fdb_.erase(host);
        } else if (record.oper == BRI_MAC_ADD) {
            const Place place = place_of(entry.type, link_of(entry.ifx), bridge_);
            if (place.link != 0 && (known == fdb_.end() || !(known->second == place)) &&
                ask(add_entry(host, place, bridge_), what))
                fdb_[host] = place;
        }
    }
}

void LinuxBridge::carry_ageing(Bytes) {
    Link &bridge = links_[bridge_];
    BridgeSettings want = bridge.bridge;
    want.ageing = kernel_ageing(model().addresses.figures().age);
    if (const auto request = set_bridge(bridge_, bridge.bridge, want); request && ask(*request, "its ageing time"))
        bridge.bridge = want;
}

bool LinuxBridge::learns(uint32_t ifx) {
    const KernelFigures figures = model().addresses.figures();
    return figures.learning != 0 && bri_port_set_has(&figures.quiet_ports, ifx) == 0;
}

void LinuxBridge::carry_learning(Bytes) {
    for (const auto &[ifx, index] : ports_) {
        Link &link = links_[index];
        const uint8_t want = learns(ifx) ? 1 : 0;
        if (link.learning != want && ask(set_learning(index, want != 0), link.name + ": its learning"))
            link.learning = want;
    }
}

} // namespace frames
