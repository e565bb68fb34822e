#include "sandbox/ports.h"

#include "base/shared_word.h"
#include "wire/own.h"

#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <strings.h>

namespace sandbox {

namespace word = bri::word;
namespace bits = bri::bits;

namespace {

// What the server keeps in the first part of a port's block that is its own; 0 in a new port.
struct OwnWords {
    uint32_t link_down;
};
static_assert(sizeof(OwnWords) <= sizeof(spcb::server1) && offsetof(spcb, server1) % alignof(OwnWords) == 0);
OwnWords &own(spcb &port) {
    return *reinterpret_cast<OwnWords *>(port.server1);
}

// The dynamic memberships of a port, in the server's own part of its block.
static_assert(sizeof(spcb::server3) == sizeof(vlanset) && offsetof(spcb, server3) % alignof(vlanset) == 0);
bits::SharedSet dynamic_vlans(spcb &port) {
    return bits::SharedSet(reinterpret_cast<uint32_t *>(port.server3));
}

void check_vid(uint16_t vid) {
    if (vl_check_vlanid_valid(vid) == 0)
        throw std::invalid_argument("no VLAN id: " + std::to_string(vid));
}

bool carries(const spcb &port, uint16_t vid) {
    switch (word::load(port.mode)) {
    case BRI_PORT_ROUTE:
        return false;
    case BRI_PORT_TRUNK:
    case BRI_PORT_UPLINK:
    case BRI_PORT_HYBRID:
        return bits::test(port.allow_vlan.words, vid);
    default:
        return word::load(port.default_vid) == vid;
    }
}

// Ports that are in no VLAN but the ones that they carry.
bool takes_no_others(const spcb &port) {
    const uint32_t mode = word::load(port.mode);
    return mode == BRI_PORT_ROUTE || mode == BRI_PORT_ACCESS;
}

spcb &open_to_others(uint32_t ifx) {
    spcb &port = port_at(ifx);
    if (takes_no_others(port))
        throw std::invalid_argument("port " + std::to_string(ifx) + " is an access or a routed port");
    return port;
}

vl_evt_intf_rec record_of(const spcb &port) {
    vl_evt_intf_rec record{};
    record.ifx = word::load(port.ifx);
    record.mode = word::load(port.mode);
    record.pvid = word::load(port.default_vid);
    return record;
}

vlanset memberships(uint32_t ifx) {
    return those_of(all_vlans(), [&](uint16_t vid) { return vl_is_vlan_member(vid, static_cast<int32_t>(ifx)) != 0; });
}

void changed(spcb &port) {
    word::add(port.version, uint32_t{1});
}

} // namespace

void Ports::open() {
    if (bridge_portdb_init() == 0)
        throw std::runtime_error("cannot map the port table");
    for_each_port([](uint32_t) { swport_inc_total_num(); }); // this process's own count
}

void Ports::add(uint32_t ifx, uint32_t mode, uint16_t pvid) {
    spcb *port = ifx < BRI_PORT_SLOTS ? swport_get_raw_spcb(static_cast<int32_t>(ifx)) : nullptr;
    if (port == nullptr)
        throw std::invalid_argument("no port number: " + std::to_string(ifx));
    if (word::load(port->ifx) != 0)
        throw std::invalid_argument("there is a port " + std::to_string(ifx) + " already");
    check_vid(pvid);
    const uint32_t version = word::load(port->version);
    std::memset(port, 0, sizeof *port);
    port->version = version + 1;
    port->mode = mode;
    port->default_mode = mode;
    port->default_vid = pvid;
    word::store(port->ifx, ifx); // from now on it is there
    swport_inc_total_num();
    announce_port(ifx);
    refresh(ifx, all_vlans());
}

void Ports::remove(uint32_t ifx) {
    spcb &port = port_at(ifx);
    take_out(ifx, memberships(ifx));
    const vl_evt_intf_rec record = record_of(port);
    word::store(port.ifx, uint32_t{0});
    changed(port);
    swport_dec_total_num();
    on_removed(ifx);
    announce_(VLAN_EVENT_DESTROY_INTF, bytes_of(record));
}

void Ports::set_mode(uint32_t ifx, uint32_t mode) {
    spcb &port = port_at(ifx);
    const bool was_routed = word::load(port.mode) == BRI_PORT_ROUTE;
    word::store(port.mode, mode);
    if (takes_no_others(port))
        for_each_vlan(all_vlans(), [&](uint16_t vid) { dynamic_vlans(port).clear(vid); });
    changed(port);
    const vl_evt_intf_mode_rec record{ifx, mode};
    if (was_routed)
        announce_port(ifx); // replays leave routed ports out, so there are clients that do not know it
    else
        announce_(VLAN_EVENT_MODIFY_INTF_MODE, bytes_of(record));
    refresh(ifx, all_vlans());
}

void Ports::set_pvid(uint32_t ifx, uint16_t pvid) {
    spcb &port = port_at(ifx);
    check_vid(pvid);
    vlanset concerned = only(pvid);
    put(concerned, word::load(port.default_vid));
    word::store(port.default_vid, pvid);
    changed(port);
    const vl_evt_intf_pvid_rec record{ifx, pvid, 0};
    announce_(VLAN_EVENT_MODIFY_INTF_PVID, bytes_of(record));
    refresh(ifx, concerned);
}

void Ports::set_allowed(uint32_t ifx, const vlanset &vlans) {
    spcb &port = port_at(ifx);
    const vlanset concerned =
        those_of(all_vlans(), [&](uint16_t vid) { return holds(vlans, vid) != holds(port.allow_vlan, vid); });
    for_each_vlan(concerned, [&](uint16_t vid) {
        if (holds(vlans, vid))
            bits::SharedSet(port.allow_vlan.words).set(vid);
        else
            bits::SharedSet(port.allow_vlan.words).clear(vid);
    });
    changed(port);
    announce_allowed(ifx);
    refresh(ifx, concerned);
}

void Ports::allow(uint32_t ifx, const vlanset &vlans) {
    vlanset wanted = port_at(ifx).allow_vlan;
    bits::merge(wanted.words, vlans.words, bits::kSetWords);
    set_allowed(ifx, wanted);
}

void Ports::disallow(uint32_t ifx, const vlanset &vlans) {
    vlanset wanted = port_at(ifx).allow_vlan;
    bits::remove(wanted.words, vlans.words, bits::kSetWords);
    set_allowed(ifx, wanted);
}

void Ports::add_dynamic(uint32_t ifx, const vlanset &vlans) {
    spcb &port = open_to_others(ifx);
    const vlanset live = those_of(vlans, [](uint16_t vid) { return vl_exist(vid, 0) != 0; });
    for_each_vlan(live, [&](uint16_t vid) { dynamic_vlans(port).set(vid); });
    refresh(ifx, live, BRI_MEMBERSHIP_DYNAMIC);
}

void Ports::remove_dynamic(uint32_t ifx, const vlanset &vlans) {
    spcb &port = open_to_others(ifx);
    const vlanset dynamic = those_of(vlans, [&](uint16_t vid) { return dynamic_vlans(port).test(vid); });
    for_each_vlan(dynamic, [&](uint16_t vid) { dynamic_vlans(port).clear(vid); });
    refresh(ifx, dynamic, BRI_MEMBERSHIP_DYNAMIC);
}

void Ports::add_members(uint32_t ifx, const vlanset &vlans) {
    open_to_others(ifx);
    const auto index = static_cast<int32_t>(ifx);
    const vlanset added =
        those_of(vlans, [&](uint16_t vid) { return vl_exist(vid, 0) != 0 && vl_is_vlan_member(vid, index) == 0; });
    for_each_vlan(added, [&](uint16_t vid) { vl_add_static_member(index, vid); });
    announce_change(ifx, {}, added, BRI_MEMBERSHIP_STATIC);
}

void Ports::remove_members(uint32_t ifx, const vlanset &vlans) {
    open_to_others(ifx);
    take_out(ifx, vlans);
}

void Ports::take_out(uint32_t ifx, const vlanset &vlans) {
    spcb &port = port_at(ifx);
    const auto index = static_cast<int32_t>(ifx);
    const vlanset removed = those_of(vlans, [&](uint16_t vid) { return vl_is_vlan_member(vid, index) != 0; });
    for_each_vlan(removed, [&](uint16_t vid) {
        vl_del_static_member(index, vid);
        dynamic_vlans(port).clear(vid);
    });
    announce_change(ifx, removed, {}, BRI_MEMBERSHIP_STATIC);
}

void Ports::vlans_created(const vlanset &vlans) {
    for_each_port([&](uint32_t ifx) { refresh(ifx, vlans); });
}

void Ports::vlans_leaving(const vlanset &vlans) {
    for_each_port(
        [&](uint32_t ifx) { for_each_vlan(vlans, [&](uint16_t vid) { dynamic_vlans(port_at(ifx)).clear(vid); }); });
}

// Brings the member bits of those VLANs in line with what the port carries.
void Ports::refresh(uint32_t ifx, const vlanset &concerned, uint32_t kind) {
    spcb &port = port_at(ifx);
    const auto index = static_cast<int32_t>(ifx);
    vlanset added{};
    vlanset removed{};
    for_each_vlan(concerned, [&](uint16_t vid) {
        const bool wanted = vl_exist(vid, 0) != 0 && (carries(port, vid) || dynamic_vlans(port).test(vid));
        if (wanted == (vl_is_vlan_member(vid, index) != 0))
            return;
        put(wanted ? added : removed, vid);
        wanted ? vl_add_static_member(index, vid) : vl_del_static_member(index, vid);
    });
    announce_change(ifx, removed, added, kind);
}

void Ports::announce_change(uint32_t ifx, const vlanset &removed, const vlanset &added, uint32_t kind) const {
    vlanset concerned = removed;
    bits::merge(concerned.words, added.words, bits::kSetWords);
    const vlanset counted = count_up(concerned);
    announce_members(ifx, removed, false, kind);
    announce_members(ifx, added, true, kind);
    announce_up(counted);
}

vlanset Ports::count_up(const vlanset &vlans) {
    return those_of(vlans, [](uint16_t vid) {
        vle *entry = vl_get_vlan_entry(vid);
        if (entry == nullptr)
            return false;
        uint32_t number = 0;
        for_each_port([&](uint32_t ifx) {
            if (vl_is_vlan_member(vid, static_cast<int32_t>(ifx)) != 0 && !link_is_down(ifx))
                ++number;
        });
        const bool another = word::load(entry->up_mem) != number;
        word::store(entry->up_mem, number);
        return another;
    });
}

void Ports::announce_up(const vlanset &counted) const {
    for_each_vlan(counted, [&](uint16_t vid) {
        if (const uint32_t svi = vl_get_svi_ifx(vid); svi != 0)
            announce_(VLAN_EVENT_SVI_MODIFY_UP_NUM,
                      sandbox::bytes_of(wire::svi_up_num{svi, vid, 0, vl_get_vlan_up_mem(vid)}));
    });
}

void Ports::set_link(uint32_t ifx, bool up) {
    spcb &port = port_at(ifx);
    if (link_is_down(ifx) != up)
        return;
    word::store(own(port).link_down, up ? uint32_t{0} : uint32_t{1});
    const vlanset counted = count_up(memberships(ifx));
    if (!up)
        on_down(ifx);
    announce_(VLAN_EVENT_INTF_STATE, sandbox::bytes_of(wire::intf_state{ifx, up ? uint32_t{1} : uint32_t{0}}));
    announce_up(counted);
}

// Access ports have a record for one VLAN, all others the one for a set.
void Ports::announce_members(uint32_t ifx, const vlanset &vlans, bool added, uint32_t kind) const {
    const auto rule = [&](uint16_t vid) { return swport_get_vlan_tag_rule(static_cast<int32_t>(ifx), vid); };
    const uint32_t mode = word::load(port_at(ifx).mode);
    if (!added && count(vlans) != 0)
        on_left(ifx, vlans);
    if (mode == BRI_PORT_ACCESS && count(vlans) == 1) {
        vl_evt_intf_vlan_rec record{};
        record.ifx = ifx;
        record.vid = lowest(vlans);
        record.value = BRI_TAG_UNTAGGED;
        record.mode = mode;
        announce_(added ? VLAN_EVENT_ADD_INTF : VLAN_EVENT_DEL_INTF, bytes_of(record));
    } else if (count(vlans) != 0) {
        vl_evt_intf_vlanset_rec record{};
        record.ifx = ifx;
        record.vlans = vlans;
        record.tagged = those_of(vlans, [&](uint16_t vid) { return rule(vid) == BRI_TAG_TAGGED; });
        record.kind = kind;
        announce_(added ? VLAN_EVENT_RANGE_ADD_INTF : VLAN_EVENT_RANGE_DEL_INTF, bytes_of(record));
    }
}

void Ports::announce_port(uint32_t ifx) const {
    const spcb &port = port_at(ifx);
    announce_(VLAN_EVENT_CREATE_INTF, bytes_of(record_of(port)));
    const vl_evt_intf_mode_rec mode{ifx, word::load(port.mode)};
    announce_(VLAN_EVENT_MODIFY_INTF_MODE, bytes_of(mode));
    const vl_evt_intf_pvid_rec pvid{ifx, word::load(port.default_vid), 0};
    announce_(VLAN_EVENT_MODIFY_INTF_PVID, bytes_of(pvid));
    announce_allowed(ifx);
}

void Ports::announce_allowed(uint32_t ifx) const {
    vl_evt_intf_allow_rec record{};
    record.ifx = ifx;
    record.allow = port_at(ifx).allow_vlan;
    announce_(VLAN_EVENT_MODIFY_INTF_ALLOWVL, bytes_of(record));
}

Answer Ports::show() {
    Answer answer;
    answer.begin("ports");
    unsigned number = 0;
    for_each_port([&](uint32_t ifx) {
        const spcb &port = port_at(ifx);
        const bool down = link_is_down(ifx);
        answer.row("ports",
                   "  port {ifx} {mode} native {pvid} allows {allow} member of {member}" +
                       std::string(down ? " {link}" : ""),
                   {{"ifx", ifx},
                    {"mode", swport_vlan_mode_name(word::load(port.mode))},
                    {"pvid", word::load(port.default_vid)},
                    {"allow", vlans_text(port.allow_vlan)},
                    {"member", vlans_text(memberships(ifx))},
                    {"link", down ? "down" : "up"}});
        ++number;
    });
    return answer.say("ports: {count}", {{"count", number}});
}

bool there_is_port(uint32_t ifx) {
    return ifx < BRI_PORT_SLOTS && swport_get_spcb(static_cast<int32_t>(ifx)) != nullptr;
}

bool link_is_down(uint32_t ifx) {
    return there_is_port(ifx) && word::load(own(port_at(ifx)).link_down) != 0;
}

spcb &port_at(uint32_t ifx) {
    if (!there_is_port(ifx))
        throw std::invalid_argument("no port " + std::to_string(ifx));
    return *swport_get_raw_spcb(static_cast<int32_t>(ifx));
}

uint32_t parse_port_mode(const std::string &text) {
    for (uint32_t mode = BRI_PORT_ROUTE; mode <= BRI_PORT_HYBRID; ++mode)
        if (strcasecmp(text.c_str(), swport_vlan_mode_name(mode)) == 0)
            return mode;
    throw std::invalid_argument("no such port mode: " + text);
}

} // namespace sandbox
