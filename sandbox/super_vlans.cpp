#include "sandbox/super_vlans.h"

#include "base/shared_word.h"
#include "sandbox/vlans.h"
#include "wire/own.h"

#include <bridge/events.h>

#include <stdexcept>
#include <string>

namespace sandbox {

namespace {

std::string vlan_text(uint16_t vid) {
    return "VLAN " + std::to_string(vid);
}

void check_super(uint16_t vid) {
    if (vl_is_supervlan(vid) == 0)
        throw std::invalid_argument(vlan_text(vid) + " is no super VLAN");
}

// Neither super nor sub VLAN.
void check_plain(uint16_t vid) {
    if (vl_exist(vid, 0) == 0)
        throw std::invalid_argument("no " + vlan_text(vid));
    if (vl_is_supervlan(vid) != 0)
        throw std::invalid_argument(vlan_text(vid) + " is a super VLAN");
    if (vl_is_subvlan(vid) != 0)
        throw std::invalid_argument(vlan_text(vid) + " belongs to " + vlan_text(vl_get_manage_vid(vid)));
}

vlanset subs_of(uint16_t vid) {
    return those_of(all_vlans(),
                    [&](uint16_t sub) { return vl_is_subvlan(sub) != 0 && vl_get_manage_vid(sub) == vid; });
}

wire::super_subs subs_record(uint16_t vid, const vlanset &subs) {
    return {vid, 0, subs};
}

} // namespace

// To its own id where manage_vid is 0.
void SuperVlans::change(const vlanset &vlans, uint32_t mode, uint16_t manage_vid) {
    for_each_vlan(vlans, [&](uint16_t vid) {
        bri::word::store(vl_get_raw_vlan_entry(vid)->manage_vid, manage_vid != 0 ? manage_vid : vid);
        vl_set_vlan_mode(vid, mode);
    });
    for_each_vlan(vlans, [&](uint16_t vid) { announce_(VLAN_EVENT_MODIFY_VLAN_MODE, bytes_of(vlan_record(vid))); });
}

void SuperVlans::free_subs(uint32_t type, uint16_t vid, const vlanset &subs) {
    if (count(subs) == 0)
        return;
    change(subs, BRI_VLAN_STATIC, 0);
    announce_(type, sandbox::bytes_of(subs_record(vid, subs)));
}

void SuperVlans::announce_supers(const vlanset &vlans, bool created) const {
    if (count(vlans) == 1)
        announce_(created ? VLAN_EVENT_SUPER_CREATE : VLAN_EVENT_SUPER_DELETE, bytes_of(vlan_record(lowest(vlans))));
    else if (count(vlans) != 0)
        announce_(created ? VLAN_EVENT_SUPER_CREATE_RANGE : VLAN_EVENT_SUPER_DELETE_RANGE,
                  bytes_of(vlanset_record(vlans)));
}

void SuperVlans::create(const vlanset &vlans) {
    for_each_vlan(vlans, check_plain);
    change(vlans, BRI_VLAN_SUPER, 0);
    announce_supers(vlans, true);
}

void SuperVlans::remove(const vlanset &vlans) {
    for_each_vlan(vlans, check_super);
    for_each_vlan(vlans, [&](uint16_t vid) { free_subs(VLAN_EVENT_SUPER_RANG_DEL_SUB, vid, subs_of(vid)); });
    change(vlans, BRI_VLAN_STATIC, 0);
    announce_supers(vlans, false);
}

void SuperVlans::add(uint16_t vid, const vlanset &subs) {
    check_super(vid);
    const vlanset already = subs_of(vid);
    const vlanset added = those_of(subs, [&](uint16_t sub) { return !holds(already, sub); });
    for_each_vlan(added, check_plain);
    change(added, BRI_VLAN_SUPER, vid);
    if (count(added) != 0)
        announce_(VLAN_EVENT_SUPER_ADD_RANGE_SUB, sandbox::bytes_of(subs_record(vid, added)));
}

void SuperVlans::take(uint16_t vid, const vlanset &subs) {
    check_super(vid);
    const vlanset there = subs_of(vid);
    for_each_vlan(subs, [&](uint16_t sub) {
        if (!holds(there, sub))
            throw std::invalid_argument(vlan_text(sub) + " does not belong to " + vlan_text(vid));
    });
    free_subs(VLAN_EVENT_SUPER_DEL_RANGE_SUB, vid, subs);
}

void SuperVlans::set_proxy(uint16_t vid, bool on) {
    vle *entry = vl_get_vlan_entry(vid);
    if (entry == nullptr)
        throw std::invalid_argument("no " + vlan_text(vid));
    bri::word::store(entry->proxy, on ? uint8_t{1} : uint8_t{0});
    announce_(VLAN_EVENT_ARPROXY, sandbox::bytes_of(wire::vlan_arproxy{vid, 0, on ? uint32_t{1} : uint32_t{0}}));
}

void SuperVlans::dissolve(const vlanset &vlans) {
    remove(those_of(vlans, [](uint16_t vid) { return vl_is_supervlan(vid) != 0; }));
    for_each_vlan(vlans, [&](uint16_t vid) {
        if (vl_is_subvlan(vid) != 0)
            free_subs(VLAN_EVENT_SUPER_DEL_RANGE_SUB, vl_get_manage_vid(vid), only(vid));
    });
}

Answer SuperVlans::show() {
    Answer answer;
    answer.begin("supers");
    for_each_vlan(all_vlans(), [&](uint16_t vid) {
        if (vl_is_supervlan(vid) != 0)
            answer.row("supers", "  super vlan {vid} subs {subs}", {{"vid", vid}, {"subs", vlans_text(subs_of(vid))}});
    });
    return answer;
}

} // namespace sandbox
