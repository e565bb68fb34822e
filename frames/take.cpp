// From the kernel to the switch.
#include "frames/driver.h"

#include <algorithm>
#include <linux/if_bridge.h>
#include <linux/rtnetlink.h>

namespace frames {

using namespace sandbox;

namespace {

const Link *find(const Links &links, uint32_t index) {
    const auto found = links.find(index);
    return found != links.end() ? &found->second : nullptr;
}

bool is_link_notice(uint16_t type) {
    return type == RTM_NEWLINK || type == RTM_DELLINK || type == RTM_NEWVLAN || type == RTM_DELVLAN;
}

bri_mac_msg record_of(bri_mac_oper oper, const Host &host, uint32_t ifx, uint32_t type) {
    bri_mac_msg record{};
    record.oper = oper;
    record.entry.field = BRI_MAC_FIELD_MAC | BRI_MAC_FIELD_BCAST_ID;
    if (oper == BRI_MAC_ADD)
        record.entry.field |= BRI_MAC_FIELD_IFX | BRI_MAC_FIELD_TYPE;
    std::copy(host.mac.begin(), host.mac.end(), record.entry.mac);
    record.entry.bcast_id = host.vid;
    record.entry.ifx = ifx;
    record.entry.type = type;
    return record;
}

class Taking {
  public:
    explicit Taking(bool &flag) : flag_(flag) { flag_ = true; }
    Taking(const Taking &) = delete;
    Taking &operator=(const Taking &) = delete;
    ~Taking() { flag_ = false; }

  private:
    bool &flag_;
};

} // namespace

// What could not be listed is not what has gone.
void LinuxBridge::list(const Request &request, const Take &take) {
    if (const int error = kernel_.dump(request, take); error != 0)
        throw std::runtime_error(std::string("cannot list: ") + std::strerror(error));
}

Links LinuxBridge::list() {
    Links links;
    for (const Request &request : {list_links(), list_ports(), list_vlans()})
        list(request, [&](const Notice &notice) { take_link(notice, links); });
    return links;
}

LinuxBridge::Hosts LinuxBridge::list_hosts() {
    Hosts hosts;
    for (const auto &[host, place] : fdb_) // unless it is still there
        hosts[host] = {host, std::nullopt, place.link};
    list(list_entries(), [&](const Notice &notice) {
        if (const auto change = fdb_change(notice, bridge_))
            hosts[change->host] = *change;
    });
    return hosts;
}

// All that has come is taken in before it is compared: of one's own changes only the last one counts.
void LinuxBridge::look() {
    std::optional<Links> now;
    Hosts hosts;
    const bool missed = std::exchange(behind_, true); // until all of it is taken
    const bool whole = monitor_.drain([&](const Notice &notice) {
        if (const auto change = fdb_change(notice, bridge_))
            hosts.insert_or_assign(change->host, *change);
        if (!is_link_notice(notice.type))
            return;
        if (!now)
            now = links_;
        take_link(notice, *now);
    });
    if (!whole || missed) {
        now = list();
        hosts = list_hosts();
    }
    if (now)
        take_links(std::move(*now), false);
    take_hosts(hosts);
    behind_ = false;
}

void LinuxBridge::take_links(Links now, bool first) {
    const Links seen = std::exchange(links_, std::move(now));
    std::optional<Taking> taking(taking_);
    const bool gone = !links_.contains(bridge_);
    if (gone) {
        complain("it has gone");
    } else {
        follow_names();
        attempt([&] { take_bridge(first ? nullptr : find(seen, bridge_), links_[bridge_]); });
    }
    const auto is_port = [&](const Link *link) { return !gone && link != nullptr && link->master == bridge_; };
    const auto ports = ports_;
    for (const auto &[ifx, index] : ports) {
        const Link *link = find(links_, index);
        if (is_port(link) && there_is_port(ifx)) {
            attempt([&, ifx = ifx, index = index] { take_port(ifx, first ? nullptr : find(seen, index), *link); });
            continue;
        }
        if (is_port(link)) { // the switch's tables are others than before
            attempt([&, ifx = ifx, index = index] { adopt(index, *link, ifx); });
            continue;
        }
        ports_.erase(ifx);
        memory_.ports.erase(ifx);
        remember();
        if (there_is_port(ifx))
            model().ports.remove(ifx);
    }
    for (const auto &[index, link] : links_)
        if (is_port(&link) && port_of(index) == 0)
            attempt([&, index = index, &link = link] { adopt(index, link, free_number()); });
    attempt([&] { take_devices(seen, first); });
    taking.reset();
    if (!gone)
        carry_vlans({});
}

uint32_t LinuxBridge::free_number() const {
    uint32_t ifx = 1;
    while (ifx < BRI_PORT_SLOTS && (there_is_port(ifx) || ports_.contains(ifx)))
        ++ifx;
    return ifx;
}

void LinuxBridge::adopt(uint32_t index, const Link &link, uint32_t ifx) {
    if (ifx == BRI_PORT_SLOTS)
        return complain(link.name + ": no port number is left for it");
    ports_[ifx] = index;
    memory_.ports[ifx] = link.name;
    remember_link(index, true);
    remember();
    note(link.name + " is port " + std::to_string(ifx));
    const SwitchPort port = switch_port(link.vlans, std::nullopt);
    model().ports.add(ifx, port.mode, port.pvid);
    take_port(ifx, nullptr, link);
}

void LinuxBridge::take_port(uint32_t ifx, const Link *seen, const Link &now) {
    if (link_is_down(ifx) == now.is_up())
        model().ports.set_link(ifx, now.is_up());
    if ((seen == nullptr || !(seen->vlans == now.vlans)) && !(now.vlans == wanted_vlans(ifx)))
        take_vlans(ifx, now.vlans);
    take_states(ifx, seen, now);
    if ((seen == nullptr || seen->learning != now.learning) && (now.learning != 0) != learns(ifx))
        model().addresses.set_port_learning(ifx, now.learning != 0);
}

void LinuxBridge::take_vlans(uint32_t ifx, const PortVlans &vlans) {
    create_vlans(vlans.members);
    const SwitchPort now = switch_port(ifx);
    const SwitchPort next = switch_port(vlans, now);
    if (next.mode == BRI_PORT_HYBRID)
        for_each_vlan(next.allowed, [&](uint16_t vid) {
            const auto port = static_cast<int32_t>(ifx);
            holds(vlans.untagged, vid) ? swport_tag_vlan_del(port, vid) : swport_tag_vlan_add(port, vid);
        });
    if (next.mode != now.mode)
        model().ports.set_mode(ifx, next.mode);
    if (next.pvid != now.pvid)
        model().ports.set_pvid(ifx, next.pvid);
    if (!(next == SwitchPort{next.mode, next.pvid, now.allowed}))
        model().ports.set_allowed(ifx, next.allowed);
    // What clients had it join and it is not in any more.
    const vlanset more = without(wanted_vlans(ifx).members, vlans.members);
    if (count(more) != 0 && next.mode != BRI_PORT_ACCESS && next.mode != BRI_PORT_ROUTE)
        model().ports.remove_members(ifx, more);
}

// Where no spanning tree of its own runs, the kernel closes a port when its link fails and opens it when the link comes
// back: that is not by hand, also when only the end of it is seen. Before the first look all that is open may be so.
bool LinuxBridge::is_by_hand(const Link *seen, const Link &now) {
    const bool opens = now.state == BR_STATE_FORWARDING;
    if (now.state == BR_STATE_DISABLED)
        return false;
    if (seen == nullptr)
        return !readable_ && !opens && links_[bridge_].bridge.stp == 0;
    return seen->state != BR_STATE_DISABLED && seen->state != now.state && !(opens && seen->failures != now.failures);
}

// A port's state by hand is that of all its VLANs, a VLAN's that of its whole instance.
void LinuxBridge::take_states(uint32_t ifx, const Link *seen, const Link &now) {
    const VlanStates want = wanted_states(ifx);
    std::map<uint16_t, uint8_t> states; // by instance
    for_each_vlan(now.vlans.members, [&](uint16_t vid) {
        const bool other = seen == nullptr || (holds(seen->vlans.members, vid) && seen->states[vid] != now.states[vid]);
        if (other && now.states[vid] != want[vid] && swport_get_stp_instance(vid) < BRI_STP_INSTANCES)
            states[swport_get_stp_instance(vid)] = now.states[vid];
    });
    if (now.state != wanted_state(now.vlans, want) && is_by_hand(seen, now))
        states = {{BRI_L2TOP_INSTANCE_ALL, now.state}};
    std::vector<l2top_port_status> records;
    for (const auto &[instance, state] : states)
        records.push_back({ifx, instance, {}, state, 0, 0, {}});
    if (!records.empty())
        model().topology.set_states(records);
}

void LinuxBridge::create_vlans(const vlanset &vlans) {
    const vlanset missing = without(vlans, those_of(vlans, there_is_vlan));
    if (count(missing) == 0)
        return;
    model().vlans.create(missing, BRI_VLAN_STATIC, true, [this](const vlanset &asked, const std::string &refusal) {
        if (!refusal.empty())
            note("VLANs " + vlans_text(asked) + " are taken back: " + refusal);
        if (!taking_)
            carry_vlans({});
    });
}

// Null: what there was before does not matter, or is what a server knew that has been killed.
void LinuxBridge::take_bridge(const Link *seen, const Link &now) {
    const vlanset before = seen != nullptr ? seen->vlans.members : those_of(all_vlans(), there_is_vlan);
    create_vlans(seen != nullptr ? without(now.vlans.members, before) : now.vlans.members);
    if (seen != nullptr)
        model().vlans.remove(without(before, now.vlans.members));
    const uint32_t age = model().addresses.figures().age;
    if ((seen == nullptr || seen->bridge.ageing != now.bridge.ageing) && now.bridge.ageing != kernel_ageing(age))
        model().addresses.set_age(switch_ageing(now.bridge.ageing));
}

// At the first look also what has gone before it.
void LinuxBridge::take_devices(const Links &seen, bool first) {
    const auto is_svi = [&](const Link &link) { return link.kind == "vlan" && link.below == bridge_; };
    const auto lost = [&](const auto &is_it) {
        const auto is_one = [&](const auto &link) { return is_svi(link.second) && is_it(link.second); };
        return std::ranges::none_of(links_, is_one) && (first || std::ranges::any_of(seen, is_one));
    };
    for (const auto &[index, link] : links_)
        if (is_svi(link) && there_is_vlan(link.vid) && vl_get_svi_ifx(link.vid) == 0)
            model().vlans.set_svi(link.vid, index);
    for_each_vlan(those_of(all_vlans(), there_is_vlan), [&](uint16_t vid) {
        if (vl_get_svi_ifx(vid) != 0 && lost([&](const Link &link) { return link.vid == vid; }))
            model().vlans.set_svi(vid, 0);
    });
    if (std::erase_if(memory_.devices, [&](const std::string &name) {
            return lost([&](const Link &link) { return link.name == name; });
        }) != 0)
        remember();
}

bool LinuxBridge::is_own(const Mac &mac) const {
    return std::any_of(links_.begin(), links_.end(), [&](const auto &link) {
        return (link.first == bridge_ || link.second.master == bridge_) && link.second.address == mac;
    });
}

void LinuxBridge::take_hosts(const Hosts &hosts) {
    std::vector<bri_mac_msg> records;
    for (const auto &[host, change] : hosts) {
        const auto known = fdb_.find(host);
        const bool there = change.place && !(change.place->state == NUD_PERMANENT && is_own(host.mac));
        if (there ? known != fdb_.end() && known->second == *change.place : known == fdb_.end())
            continue;
        const uint32_t ifx = there ? port_of(change.link) : 0;
        if (there && ifx == 0 && change.link != bridge_)
            continue;
        records.push_back(record_of(there ? BRI_MAC_ADD : BRI_MAC_DEL, host, ifx,
                                    there ? type_of(*change.place, bridge_) : uint32_t{0}));
        if (there)
            fdb_[host] = *change.place;
        else
            fdb_.erase(host);
    }
    if (records.empty())
        return;
    try {
        if (model().addresses.apply(records) == records.size())
            return;
    } catch (const std::invalid_argument &error) {
        complain(std::string("an address is taken back: ") + error.what());
    }
    put_back(records);
}

// What the switch has not taken over goes out of the kernel, or back to where it was.
void LinuxBridge::put_back(const std::vector<bri_mac_msg> &records) {
    for (const bri_mac_msg &record : records) {
        const Host host{std::to_array(record.entry.mac), record.entry.bcast_id};
        const auto known = fdb_.find(host);
        if (record.oper != BRI_MAC_ADD || known == fdb_.end())
            continue;
        bri_mac_entry key{};
        key.field = BRI_MAC_FIELD_MAC | BRI_MAC_FIELD_BCAST_ID;
        std::copy(host.mac.begin(), host.mac.end(), key.mac);
        key.bcast_id = host.vid;
        const auto entry = model().addresses.find(key);
        if (!entry) {
            kernel_.ask(remove_entry(host, known->second, bridge_));
            fdb_.erase(known);
        } else {
            const bri_mac_msg whole{0, BRI_MAC_ADD, *entry};
            carry_addresses(bytes_of(whole));
        }
    }
}

} // namespace frames
