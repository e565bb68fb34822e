// Begin and end: what there was, and its restoration.
#include "frames/bridge.h"

#include "frames/driver.h"

#include <algorithm>
#include <cstdio>
#include <linux/if_bridge.h>
#include <linux/rtnetlink.h>

namespace frames {

using namespace sandbox;

namespace {

constexpr unsigned kGroups[] = {RTNLGRP_LINK, RTNLGRP_NEIGH, RTNLGRP_BRVLAN};

} // namespace

LinuxBridge::LinuxBridge(Sandbox &sandbox, const std::string &tmpdir, const std::string &name)
    : sandbox_(sandbox), name_(name), file_(socket_path(tmpdir, ".linux_bridge_" + name)), monitor_(kGroups) {
    Links links = list();
    const auto *bridge = find_link(links, name);
    if (bridge == nullptr || bridge->second.kind != "bridge")
        throw std::runtime_error("there is no bridge " + name);
    bridge_ = bridge->first;
    const std::optional<Memory> known = read_memory(file_);
    begin(known && known->bridge == bridge_ ? &*known : nullptr);
    const auto on_readable = [](evutil_socket_t, short, void *self) {
        try {
            static_cast<LinuxBridge *>(self)->look();
        } catch (const std::exception &error) {
            static_cast<LinuxBridge *>(self)->complain(error.what());
        }
    };
    readable_.reset(event_new(sandbox.loop.base(), monitor_.descriptor(), EV_READ | EV_PERSIST, on_readable, this));
    event_add(readable_.get(), nullptr);
    sandbox.bridge.announcer.on_change = [this](uint32_t type, Bytes payload) { changed(type, payload); };
}

// `known`: what a server that has been killed knew.
void LinuxBridge::begin(const Memory *known) {
    links_ = list();
    if (known != nullptr) {
        memory_ = *known;
        follow_names();
    } else {
        memory_.bridge = bridge_;
        memory_.settings = links_[bridge_].bridge;
        for (const auto &[index, link] : links_)
            if (index == bridge_ || link.master == bridge_)
                memory_.links[link.name] = before_of(index, link, true);
        list(list_entries(), [&](const Notice &notice) {
            const auto change = fdb_change(notice, bridge_);
            if (change && change->place && change->place->state != NUD_REACHABLE && !is_own(change->host.mac))
                memory_.entries[links_[change->link].name][change->host] = *change->place;
        });
    }
    remember();
    for (const auto &[ifx, name] : memory_.ports)
        if (const auto *link = find_link(links_, name); link != nullptr)
            ports_[ifx] = link->first;
    // What it carries is taken over before what it has is touched.
    model().addresses.let_age_elsewhere(true);
    take_links(links_, true);
    BridgeSettings want = links_[bridge_].bridge;
    want.filters_vlans = 1;
    want.stp = 0;
    want.native = 0;
    const auto request = set_bridge(bridge_, links_[bridge_].bridge, want);
    if (request && !ask(*request, "its settings")) {
        if (known == nullptr)
            std::remove(file_.c_str());
        throw std::runtime_error(name_ + " cannot be set: no right to it, or a kernel without VLAN filtering");
    }
    links_ = list(); // the native VLAN of new ports went with the settings
    carry_vlans({});
    carry_ageing({});
    carry_learning({});
    begin_hosts();
}

// The kernel knows where hosts are; what is configured on the switch is still to be told to it.
void LinuxBridge::begin_hosts() {
    take_hosts(list_hosts());
    std::vector<bri_mac_msg> gone;
    for (bri_mac_msg record : model().addresses.all()) {
        if (fdb_.contains({std::to_array(record.entry.mac), record.entry.bcast_id}))
            continue;
        if (is_dynamic(record.entry)) {
            record.oper = BRI_MAC_DEL;
            gone.push_back(record);
        } else {
            carry_addresses(bytes_of(record));
        }
    }
    model().addresses.apply(gone);
}

void LinuxBridge::attach(uint32_t ifx, const std::string &device) {
    look();
    const auto *link = find_link(links_, device);
    refuse_if(link == nullptr, "no device " + device);
    const uint32_t index = link->first;
    if (const uint32_t other = port_of(index); other != 0)
        throw std::invalid_argument(device + " is port " + std::to_string(other) + " already");
    refuse_if(index == bridge_ || (link->second.master != 0 && link->second.master != bridge_),
              device + " belongs to somebody else");
    remember_link(index, link->second.master == bridge_);
    if (link->second.master != bridge_) {
        if (const int error = kernel_.ask(set_master(index, bridge_)); error != 0)
            throw std::invalid_argument(device + " cannot be a port: " + std::strerror(error));
        links_[index].master = bridge_;
    }
    ports_[ifx] = index;
    memory_.ports[ifx] = device;
    remember();
}

// Configured addresses that were not there go, as long as their VLANs are there.
void LinuxBridge::remove_entries() {
    std::vector<std::pair<Host, Place>> gone;
    for (const auto &[host, change] : list_hosts()) {
        if (!change.place || change.place->state == NUD_REACHABLE || is_own(host.mac))
            continue;
        const auto &entries = memory_.entries[links_[change.link].name];
        if (!entries.contains(host))
            gone.emplace_back(host, *change.place);
    }
    for (const auto &[host, place] : gone)
        ask(remove_entry(host, place, bridge_), "an address at the end");
}

// Those that were there come back, once their VLANs are back.
void LinuxBridge::restore_entries() {
    for (const auto &[name, entries] : memory_.entries)
        if (const auto *link = find_link(links_, name); link != nullptr)
            for (const auto &[host, place] : entries)
                if (!is_own(host.mac))
                    ask(add_entry(host, {link->first, place.state, place.sticky}, bridge_), "an address at the end");
}

void LinuxBridge::restore_links() {
    VlanStates open{};
    open.fill(BR_STATE_FORWARDING);
    for (const auto &[name, before] : memory_.links) {
        const auto *found = find_link(links_, name);
        if (found == nullptr)
            continue;
        const auto &[index, link] = *found;
        const bool is_bridge = index == bridge_;
        const std::string what = name + " at the end";
        if (!is_bridge && before.bridged) {
            ask_all(state_requests(index, both(before.vlans.members, {}), link.states, open), what);
            if (link.learning != before.learning)
                ask(set_learning(index, before.learning != 0), what);
            if (link.is_up() && before.state != BR_STATE_DISABLED && link.state != before.state)
                ask(set_state(index, before.state), what);
        }
        if (before.bridged)
            ask_all(vlan_requests(index, is_bridge ? Side::kBridge : Side::kPort, link.vlans, before.vlans), what);
        else if (link.master == bridge_)
            ask(set_master(index, 0), what);
        if (link.is_enabled() != before.enabled)
            ask(set_enabled(index, before.enabled), what);
    }
}

void LinuxBridge::restore() {
    model().announcer.on_change = [](uint32_t, Bytes) {};
    readable_.reset();
    links_ = list();
    if (links_.contains(bridge_))
        restore_bridge();
    std::remove(file_.c_str());
}

void LinuxBridge::restore_bridge() {
    follow_names();
    fdb_.clear();
    remove_entries();
    for (const std::string &device : memory_.devices)
        if (const auto *link = find_link(links_, device); link != nullptr)
            ask(remove_device(link->first), device);
    for (const auto &[name, before] : memory_.links)
        if (const auto *link = find_link(links_, name);
            link != nullptr && before.bridged && link->first != bridge_ && link->second.master == 0)
            ask(set_master(link->first, bridge_), name + " at the end");
    if (const auto request = set_bridge(bridge_, links_[bridge_].bridge, memory_.settings))
        ask(*request, "its settings at the end");
    links_ = list(); // the native VLAN of new ports comes with the settings
    restore_links();
    restore_entries();
}

std::unique_ptr<BackEnd> open_bridge(Sandbox &sandbox, const std::string &tmpdir, const std::string &name) {
    return std::make_unique<LinuxBridge>(sandbox, tmpdir, name);
}

} // namespace frames
