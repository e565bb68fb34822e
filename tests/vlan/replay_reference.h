// The origin-data replay in its plainest form: one question to the tables per VLAN and port, a block copied for each
// tag rule, names printed. Slow on purpose; the library's replay is held against it.
#pragma once

#include <bridge/bridge.h>

#include <cstdio>
#include <cstring>

namespace reference {

inline void call(uint32_t type, void *record, size_t size) {
    bridge_call_event_handlers(type, record, static_cast<uint32_t>(size));
}

inline void set_bit(uint8_t *bitmap, unsigned vid) {
    uint32_t word;
    std::memcpy(&word, bitmap + vid / 32 * 4, 4);
    word |= uint32_t{1} << vid % 32;
    std::memcpy(bitmap + vid / 32 * 4, &word, 4);
}

template <class T> void put(uint8_t *record, size_t offset, T value) {
    std::memcpy(record + offset, &value, sizeof value);
}

inline void put_name(uint8_t *record, const vle &entry) {
    for (int at = 0; at < 35 && entry.name[at] != '\0'; ++at)
        record[4 + at] = static_cast<uint8_t>(entry.name[at]);
}

inline void research(uint16_t vid, const vle &entry) {
    const auto latest = static_cast<int16_t>(entry.version);
    const auto known = static_cast<int16_t>(vl_get_vlan_private_version(vid));
    if (known == latest)
        return;
    if (known >= latest) {
        g_vlan_private_version[vid] = entry.version;
        return;
    }
    vl_version_update(vid, entry.version);
    uint8_t record[56] = {};
    put(record, 0, vid);
    put_name(record, entry);
    put(record, 44, entry.mode);
    if (known != 0) {
        put(record, 40, uint32_t{1});
        call(VLAN_EVENT_DESTROY_INDEX, record, sizeof record);
    }
    put(record, 40, uint32_t{0});
    call(VLAN_EVENT_CREATE_INDEX, record, sizeof record);
}

inline vle *look_up(uint16_t vid) {
    vle *entry = vl_get_vlan_entry(vid);
    if (entry != nullptr)
        research(vid, *entry);
    return entry;
}

inline void replay_vlan_set() {
    static uint8_t record[8708];
    std::memset(record, 0, sizeof record);
    for (unsigned vid = 1; vid <= 4094; ++vid)
        if (look_up(static_cast<uint16_t>(vid)) != nullptr)
            set_bit(record, vid);
    put(record, 8704, uint32_t{1});
    call(VLAN_EVENT_CREATE_RANGE, record, sizeof record);
}

inline void replay_vlan(uint16_t vid) {
    const vle *entry = look_up(vid);
    if (entry == nullptr)
        return;
    if (entry->mode == 2) {
        uint8_t record[56] = {};
        put(record, 0, vid);
        put(record, 40, uint32_t{2});
        put(record, 44, entry->mode);
        call(VLAN_EVENT_MODIFY_VLAN_MODE, record, sizeof record);
    }
    entry = look_up(vid);
    if (entry == nullptr)
        return;
    char name[36] = {};
    std::memcpy(name, entry->name, 35);
    char usual[36];
    std::snprintf(usual, sizeof usual, entry->mode == 2 ? "DVLAN%04u" : "VLAN%04u", unsigned{vid});
    if (std::strcmp(name, usual) != 0) {
        uint8_t record[56] = {};
        put(record, 0, vid);
        put_name(record, *entry);
        call(VLAN_EVENT_RENAME, record, sizeof record);
    }
    if (vl_get_svi_ifx(vid) != 0) {
        uint8_t record[16] = {};
        put(record, 0, vl_get_svi_ifx(vid));
        put(record, 8, vid);
        call(VLAN_EVENT_SVI_CREATE_DESTROY, record, sizeof record);
    }
}

inline void replay_port(const spcb &port) {
    uint8_t record[28] = {};
    put(record, 0, port.ifx);
    put(record, 16, port.mode);
    put(record, 20, port.default_vid);
    call(VLAN_EVENT_CREATE_INTF, record, sizeof record);
}

inline void replay_port_attributes(const spcb &port) {
    uint8_t mode[8] = {};
    put(mode, 0, port.ifx);
    put(mode, 4, port.mode);
    call(VLAN_EVENT_MODIFY_INTF_MODE, mode, sizeof mode);
    if (port.ifx == 0)
        return;
    uint8_t pvid[8] = {};
    put(pvid, 0, port.ifx);
    put(pvid, 4, port.default_vid);
    call(VLAN_EVENT_MODIFY_INTF_PVID, pvid, sizeof pvid);
    if (port.ifx == 0)
        return;
    uint8_t allow[1036] = {};
    put(allow, 0, port.ifx);
    std::memcpy(allow + 4, &port.allow_vlan, 512);
    call(VLAN_EVENT_MODIFY_INTF_ALLOWVL, allow, sizeof allow);
}

inline int tag_rule(int32_t ifx, uint16_t vid) {
    spcb port;
    if (vl_is_vlan_member(vid, ifx) == 0 || swport_get_spcb_copy(ifx, &port) == 0)
        return 1;
    if (port.mode == 2)
        return vid == port.default_vid ? 3 : 4;
    if (port.mode == 6)
        return 4;
    if (port.mode == 7) {
        if (vid == port.default_vid)
            return 3;
        return (port.tag_vlan.words[vid / 32] >> vid % 32 & 1) != 0 ? 4 : 3;
    }
    return 3;
}

inline void replay_memberships(const spcb &port) {
    if (port.mode == 1) {
        uint8_t record[24] = {};
        put(record, 0, port.ifx);
        put(record, 4, port.default_vid);
        put(record, 12, uint32_t{3});
        put(record, 16, uint32_t{1});
        call(VLAN_EVENT_ADD_INTF, record, sizeof record);
        return;
    }
    const auto ifx = static_cast<int32_t>(port.ifx);
    uint8_t fixed[1036] = {};
    uint8_t dynamic[1036] = {};
    bool any_dynamic = false;
    for (unsigned id = 1; id <= 4094; ++id) {
        const auto vid = static_cast<uint16_t>(id);
        if (vl_is_vlan_static_member(vid, ifx) != 0) {
            set_bit(fixed + 4, vid);
        } else if (vl_is_vlan_dynamic_member(vid, ifx) != 0) {
            set_bit(dynamic + 4, vid);
            any_dynamic = true;
        } else {
            continue;
        }
        if (tag_rule(ifx, vid) == 4) {
            set_bit(fixed + 516, vid);
            set_bit(dynamic + 516, vid);
        }
    }
    put(fixed, 0, port.ifx);
    put(fixed, 1028, uint32_t{1});
    put(dynamic, 0, port.ifx);
    put(dynamic, 1028, uint32_t{2});
    call(VLAN_EVENT_RANGE_ADD_INTF, fixed, sizeof fixed);
    if (any_dynamic)
        call(VLAN_EVENT_RANGE_ADD_INTF, dynamic, sizeof dynamic);
}

inline void walk_ports(void (*step)(const spcb &port)) {
    for (int32_t ifx = 0; ifx <= 63; ++ifx)
        if (const spcb *port = swport_get_spcb(ifx); port != nullptr && port->mode != 0)
            step(*port);
}

inline void replay() {
    replay_vlan_set();
    for (unsigned vid = 1; vid <= 4094; ++vid)
        replay_vlan(static_cast<uint16_t>(vid));
    walk_ports(replay_port);
    walk_ports(replay_port_attributes);
    walk_ports(replay_memberships);
}

} // namespace reference
