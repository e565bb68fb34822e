#include "sandbox/ports.h"

#include "wire/own.h"

namespace sandbox {

namespace {

// Whether the link is down, in the first part of a port's block that is the server's own; 0 in a new port.
static_assert(offsetof(spcb, server1) % alignof(uint32_t) == 0);
uint32_t &down_word(spcb &port) {
    return *reinterpret_cast<uint32_t *>(port.server1);
}

// The dynamic memberships of a port, in the server's own part of its block.
static_assert(sizeof(spcb::server3) == sizeof(vlanset) && offsetof(spcb, server3) % alignof(vlanset) == 0);
uint32_t *dynamic_vlans(spcb &port) {
    return reinterpret_cast<uint32_t *>(port.server3);
}
void set_dynamic(spcb &port, const vlanset &vlans, bool on) {
    for_each_vlan(vlans, [&](uint16_t vid) { set_shared(dynamic_vlans(port), vid, on); });
}

void check_vid(uint16_t vid) {
    refuse_if(vl_check_vlanid_valid(vid) == 0, "no VLAN id: " + std::to_string(vid));
}

std::string port_text(uint32_t ifx) {
    return "port " + std::to_string(ifx);
}

bool is_member(uint16_t vid, uint32_t ifx) {
    return vl_is_vlan_member(vid, static_cast<int32_t>(ifx)) != 0;
}

void set_member(uint16_t vid, uint32_t ifx, bool on) {
    on ? vl_add_static_member(static_cast<int32_t>(ifx), vid) : vl_del_static_member(static_cast<int32_t>(ifx), vid);
}

bool carries(const spcb &port, uint16_t vid) {
    const uint32_t mode = load(port.mode);
    if (mode == BRI_PORT_TRUNK || mode == BRI_PORT_UPLINK || mode == BRI_PORT_HYBRID)
        return holds_shared(port.allow_vlan.words, vid);
    return mode != BRI_PORT_ROUTE && load(port.default_vid) == vid;
}

// Ports that are in no VLAN but the ones that they carry.
bool takes_no_others(const spcb &port) {
    return load(port.mode) == BRI_PORT_ROUTE || load(port.mode) == BRI_PORT_ACCESS;
}

spcb &open_to_others(uint32_t ifx) {
    spcb &port = port_at(ifx);
    refuse_if(takes_no_others(port), port_text(ifx) + " is an access or a routed port");
    return port;
}

vl_evt_intf_rec record_of(const spcb &port) {
    return {load(port.ifx), {}, load(port.mode), load(port.default_vid), 0, 0};
}

vlanset memberships(uint32_t ifx) {
    return those_of(all_vlans(), [&](uint16_t vid) { return is_member(vid, ifx); });
}

void changed(spcb &port) {
    __atomic_fetch_add(&port.version, 1, __ATOMIC_RELAXED);
}

} // namespace

void Ports::open() {
    fail_if(bridge_portdb_init() == 0, "cannot map the port table");
    for_each_port([](uint32_t) { swport_inc_total_num(); }); // this process's own count
}

void Ports::check_new(uint32_t ifx, uint16_t pvid) {
    const spcb *port = ifx < BRI_PORT_SLOTS ? swport_get_raw_spcb(static_cast<int32_t>(ifx)) : nullptr;
    refuse_if(port == nullptr, "no port number: " + std::to_string(ifx));
    refuse_if(load(port->ifx) != 0, "there is a " + port_text(ifx) + " already");
    check_vid(pvid);
}

void Ports::add(uint32_t ifx, bri_port_mode mode, uint16_t pvid) {
    check_new(ifx, pvid);
    spcb &port = *swport_get_raw_spcb(static_cast<int32_t>(ifx));
    const auto version = load(port.version);
    std::memset(&port, 0, sizeof port);
    port.version = version + 1;
    port.mode = mode;
    port.default_mode = mode;
    port.default_vid = pvid;
    store(port.ifx, ifx); // from now on it is there
    swport_inc_total_num();
    announce_port(ifx);
    refresh(ifx, all_vlans());
}

void Ports::remove(uint32_t ifx) {
    spcb &port = port_at(ifx);
    take_out(ifx, memberships(ifx));
    const vl_evt_intf_rec record = record_of(port);
    store(port.ifx, 0);
    changed(port);
    swport_dec_total_num();
    on_removed(ifx);
    tell(VLAN_EVENT_DESTROY_INTF, record);
}

void Ports::set_mode(uint32_t ifx, bri_port_mode mode) {
    spcb &port = port_at(ifx);
    const bool was_routed = load(port.mode) == BRI_PORT_ROUTE;
    store(port.mode, mode);
    if (takes_no_others(port))
        set_dynamic(port, all_vlans(), false);
    changed(port);
    if (was_routed)
        announce_port(ifx); // replays leave routed ports out, so there are clients that do not know it
    else
        tell(VLAN_EVENT_MODIFY_INTF_MODE, vl_evt_intf_mode_rec{ifx, mode});
    refresh(ifx, all_vlans());
}

void Ports::set_pvid(uint32_t ifx, uint16_t pvid) {
    spcb &port = port_at(ifx);
    check_vid(pvid);
    const vlanset concerned = both(only(pvid), only(load(port.default_vid)));
    store(port.default_vid, pvid);
    changed(port);
    tell(VLAN_EVENT_MODIFY_INTF_PVID, vl_evt_intf_pvid_rec{ifx, pvid, 0});
    refresh(ifx, concerned);
}

void Ports::set_allowed(uint32_t ifx, const vlanset &vlans) {
    spcb &port = port_at(ifx);
    const vlanset before = port.allow_vlan;
    const vlanset concerned = both(without(vlans, before), without(before, vlans));
    for_each_vlan(concerned, [&](uint16_t vid) { set_shared(port.allow_vlan.words, vid, holds(vlans, vid)); });
    changed(port);
    tell(VLAN_EVENT_MODIFY_INTF_ALLOWVL, vl_evt_intf_allow_rec{ifx, port.allow_vlan, {}});
    refresh(ifx, concerned);
}

void Ports::add_dynamic(uint32_t ifx, const vlanset &vlans) {
    const vlanset live = those_of(vlans, there_is_vlan);
    set_dynamic(open_to_others(ifx), live, true);
    refresh(ifx, live, BRI_MEMBERSHIP_DYNAMIC);
}

void Ports::remove_dynamic(uint32_t ifx, const vlanset &vlans) {
    spcb &port = open_to_others(ifx);
    const vlanset dynamic = those_of(vlans, [&](uint16_t vid) { return holds_shared(dynamic_vlans(port), vid); });
    set_dynamic(port, dynamic, false);
    refresh(ifx, dynamic, BRI_MEMBERSHIP_DYNAMIC);
}

void Ports::add_members(uint32_t ifx, const vlanset &vlans) {
    open_to_others(ifx);
    const vlanset added = those_of(vlans, [&](uint16_t vid) { return there_is_vlan(vid) && !is_member(vid, ifx); });
    for_each_vlan(added, [&](uint16_t vid) { set_member(vid, ifx, true); });
    announce_change(ifx, {}, added, BRI_MEMBERSHIP_STATIC);
}

void Ports::remove_members(uint32_t ifx, const vlanset &vlans) {
    open_to_others(ifx);
    take_out(ifx, vlans);
}

void Ports::take_out(uint32_t ifx, const vlanset &vlans) {
    spcb &port = port_at(ifx);
    const vlanset removed = those_of(vlans, [&](uint16_t vid) { return is_member(vid, ifx); });
    for_each_vlan(removed, [&](uint16_t vid) { set_member(vid, ifx, false); });
    set_dynamic(port, removed, false);
    announce_change(ifx, removed, {}, BRI_MEMBERSHIP_STATIC);
}

void Ports::vlans_leaving(const vlanset &vlans) {
    for_each_port([&](uint32_t ifx) { set_dynamic(port_at(ifx), vlans, false); });
}

// Brings the member bits of those VLANs in line with what the port carries.
void Ports::refresh(uint32_t ifx, const vlanset &concerned, uint32_t kind) {
    spcb &port = port_at(ifx);
    vlanset added{};
    vlanset removed{};
    for_each_vlan(concerned, [&](uint16_t vid) {
        const bool wanted = there_is_vlan(vid) && (carries(port, vid) || holds_shared(dynamic_vlans(port), vid));
        if (wanted == is_member(vid, ifx))
            return;
        put(wanted ? added : removed, vid);
        set_member(vid, ifx, wanted);
    });
    announce_change(ifx, removed, added, kind);
}

void Ports::announce_change(uint32_t ifx, const vlanset &removed, const vlanset &added, uint32_t kind) const {
    const vlanset counted = count_up(both(removed, added));
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
        for_each_port([&](uint32_t ifx) { number += is_member(vid, ifx) && !link_is_down(ifx) ? 1U : 0U; });
        const bool another = load(entry->up_mem) != number;
        store(entry->up_mem, number);
        return another;
    });
}

void Ports::announce_up(const vlanset &counted) const {
    for_each_vlan(counted, [&](uint16_t vid) {
        if (const uint32_t svi = vl_get_svi_ifx(vid); svi != 0)
            tell(VLAN_EVENT_SVI_MODIFY_UP_NUM, wire::svi_up_num{svi, vid, 0, vl_get_vlan_up_mem(vid)});
    });
}

void Ports::set_link(uint32_t ifx, bool up) {
    spcb &port = port_at(ifx);
    if (link_is_down(ifx) != up)
        return;
    store(down_word(port), up ? 0 : 1);
    const vlanset counted = count_up(memberships(ifx));
    if (!up)
        on_down(ifx);
    tell(VLAN_EVENT_INTF_STATE, wire::intf_state{ifx, up ? 1U : 0U});
    announce_up(counted);
}

// Access ports have a record for one VLAN, all others the one for a set.
void Ports::announce_members(uint32_t ifx, const vlanset &vlans, bool added, uint32_t kind) const {
    const uint32_t mode = load(port_at(ifx).mode);
    if (!added && count(vlans) != 0)
        on_left(ifx, vlans);
    if (mode == BRI_PORT_ACCESS && count(vlans) == 1) {
        tell(added ? VLAN_EVENT_ADD_INTF : VLAN_EVENT_DEL_INTF,
             vl_evt_intf_vlan_rec{ifx, lowest(vlans), 0, 0, BRI_TAG_UNTAGGED, mode, 0});
    } else if (count(vlans) != 0) {
        const vlanset tagged = those_of(vlans, [&](uint16_t vid) {
            return swport_get_vlan_tag_rule(static_cast<int32_t>(ifx), vid) == BRI_TAG_TAGGED;
        });
        tell(added ? VLAN_EVENT_RANGE_ADD_INTF : VLAN_EVENT_RANGE_DEL_INTF,
             vl_evt_intf_vlanset_rec{ifx, vlans, tagged, kind, 0});
    }
}

void Ports::announce_port(uint32_t ifx) const {
    const spcb &port = port_at(ifx);
    tell(VLAN_EVENT_CREATE_INTF, record_of(port));
    tell(VLAN_EVENT_MODIFY_INTF_MODE, vl_evt_intf_mode_rec{ifx, load(port.mode)});
    tell(VLAN_EVENT_MODIFY_INTF_PVID, vl_evt_intf_pvid_rec{ifx, load(port.default_vid), 0});
    tell(VLAN_EVENT_MODIFY_INTF_ALLOWVL, vl_evt_intf_allow_rec{ifx, port.allow_vlan, {}});
}

Answer Ports::show() {
    Answer answer{"ports"};
    for_each_port([&](uint32_t ifx) {
        const spcb &port = port_at(ifx);
        const bool down = link_is_down(ifx);
        answer.row("ports",
                   "  port {ifx} {mode} native {pvid} allows {allow} member of {member}" +
                       std::string(down ? " {link}" : ""),
                   {{"ifx", ifx},
                    {"mode", swport_vlan_mode_name(load(port.mode))},
                    {"pvid", load(port.default_vid)},
                    {"allow", vlans_text(port.allow_vlan)},
                    {"member", vlans_text(memberships(ifx))},
                    {"link", down ? "down" : "up"}});
    });
    return answer.total("ports");
}

bool there_is_port(uint32_t ifx) {
    return ifx < BRI_PORT_SLOTS && swport_get_spcb(static_cast<int32_t>(ifx)) != nullptr;
}

bool link_is_down(uint32_t ifx) {
    return there_is_port(ifx) && load(down_word(port_at(ifx))) != 0;
}

spcb &port_at(uint32_t ifx) {
    if (!there_is_port(ifx))
        throw std::invalid_argument("no " + port_text(ifx));
    return *swport_get_raw_spcb(static_cast<int32_t>(ifx));
}

std::string misplaced(uint16_t vid, uint32_t ifx) {
    if (vid != 0 && !there_is_vlan(vid))
        return "no VLAN " + std::to_string(vid);
    if (ifx != 0 && !there_is_port(ifx))
        return "no " + port_text(ifx);
    return vid != 0 && ifx != 0 && !is_member(vid, ifx)
               ? port_text(ifx) + " is not a member of VLAN " + std::to_string(vid)
               : "";
}

} // namespace sandbox
