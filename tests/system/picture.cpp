#include "tests/system/picture.h"

#include "base/bits.h"

#include <bridge/events.h>

#include <cstdio>

namespace test {

namespace {

template <class Fn> void for_each_vlan(const vlanset &set, Fn &&fn) {
    bri::bits::for_each(set.words, BRI_VID_MIN, BRI_VID_MAX, [&](unsigned vid) { fn(static_cast<uint16_t>(vid)); });
}

std::string default_name(uint16_t vid, uint32_t mode) {
    char text[16];
    std::snprintf(text, sizeof text, mode == BRI_VLAN_DYNAMIC ? "DVLAN%04u" : "VLAN%04u", vid);
    return text;
}

template <class Record> Record load(bri::Bytes payload) {
    return bri::load_at<Record>(payload, 0);
}

} // namespace

void Picture::apply(uint32_t type, bri::Bytes payload) {
    switch (type) {
    case VLAN_EVENT_CREATE_RANGE:
        return create_set(load<vl_evt_vlanset_rec>(payload));
    case VLAN_EVENT_DESTROY_RANGE:
        return for_each_vlan(load<vl_evt_vlanset_rec>(payload).vlans, [&](uint16_t vid) { vlans.erase(vid); });
    case VLAN_EVENT_CREATE_INTF: {
        const auto record = load<vl_evt_intf_rec>(payload);
        ports[record.ifx] = {record.mode, record.pvid};
        return;
    }
    case VLAN_EVENT_DESTROY_INTF:
        ports.erase(load<vl_evt_intf_rec>(payload).ifx);
        return;
    case VLAN_EVENT_MODIFY_INTF_MODE:
        ports[load<vl_evt_intf_mode_rec>(payload).ifx].mode = load<vl_evt_intf_mode_rec>(payload).mode;
        return;
    case VLAN_EVENT_MODIFY_INTF_PVID:
        ports[load<vl_evt_intf_pvid_rec>(payload).ifx].pvid = load<vl_evt_intf_pvid_rec>(payload).pvid;
        return;
    case VLAN_EVENT_MODIFY_INTF_ALLOWVL:
        ports[load<vl_evt_intf_allow_rec>(payload).ifx].allowed = load<vl_evt_intf_allow_rec>(payload).allow;
        return;
    case VLAN_EVENT_ADD_INTF:
    case VLAN_EVENT_DEL_INTF: {
        const auto record = load<vl_evt_intf_vlan_rec>(payload);
        vlanset one{};
        bri::bits::set(one.words, record.vid);
        return apply_to_members(one, record.ifx, type == VLAN_EVENT_ADD_INTF);
    }
    case VLAN_EVENT_RANGE_ADD_INTF:
    case VLAN_EVENT_RANGE_DEL_INTF: {
        const auto record = load<vl_evt_intf_vlanset_rec>(payload);
        return apply_to_members(record.vlans, record.ifx, type == VLAN_EVENT_RANGE_ADD_INTF);
    }
    case VLAN_EVENT_SVI_CREATE_DESTROY: {
        const auto record = load<vl_evt_svi_rec>(payload);
        if (vlans.count(record.vid) != 0)
            vlans[record.vid].svi = record.svi_ifx;
        return;
    }
    default:
        return apply_to_vlan(type, load<vl_evt_vlan_rec>(payload));
    }
}

void Picture::apply_to_vlan(uint32_t type, const vl_evt_vlan_rec &record) {
    const auto known = vlans.find(record.vid);
    if (type == VLAN_EVENT_CREATE_INDEX)
        create(record.vid, record.mode, record.name);
    else if (known == vlans.end())
        return;
    else if (type == VLAN_EVENT_DESTROY_INDEX)
        vlans.erase(known);
    else if (type == VLAN_EVENT_RENAME)
        known->second.name = record.name;
    else if (type == VLAN_EVENT_MODIFY_VLAN_MODE)
        set_mode(record);
}

void Picture::create(uint16_t vid, uint32_t mode, const std::string &name) {
    vlans[vid] = Vlan{name, mode};
}

// A replay begins with all VLANs, and everything that is not as usual comes behind. So whatever was known is void.
void Picture::create_set(const vl_evt_vlanset_rec &record) {
    if (record.origin_data != 0)
        *this = Picture();
    for_each_vlan(record.vlans,
                  [&](uint16_t vid) { create(vid, BRI_VLAN_STATIC, default_name(vid, BRI_VLAN_STATIC)); });
}

// A replay's record has no name: a name that is not the usual one of that mode comes by itself.
void Picture::set_mode(const vl_evt_vlan_rec &record) {
    Vlan &vlan = vlans[record.vid];
    vlan.mode = record.mode;
    vlan.name = record.name[0] != '\0' ? record.name : default_name(record.vid, record.mode);
}

// An access port's native VLAN is told whether it exists or not.
void Picture::apply_to_members(const vlanset &set, uint32_t ifx, bool member) {
    for_each_vlan(set, [&](uint16_t vid) {
        const auto known = vlans.find(vid);
        if (known == vlans.end())
            return;
        if (member)
            known->second.members.insert(ifx);
        else
            known->second.members.erase(ifx);
    });
}

std::string Picture::text() const {
    std::string text;
    for (const auto &[vid, vlan] : vlans) {
        text += "VLAN " + std::to_string(vid) + " " + vlan.name + " mode " + std::to_string(vlan.mode) + " SVI " +
                std::to_string(vlan.svi) + " ports";
        for (const uint32_t ifx : vlan.members)
            text += " " + std::to_string(ifx);
        text += "\n";
    }
    for (const auto &[ifx, port] : ports) {
        if (port.mode == 0)
            continue;
        text += "port " + std::to_string(ifx) + " mode " + std::to_string(port.mode) + " native " +
                std::to_string(port.pvid) + " allows";
        for_each_vlan(port.allowed, [&](uint16_t vid) { text += " " + std::to_string(vid); });
        text += "\n";
    }
    return text;
}

} // namespace test
