#include "tests/host/mirror.h"

#include <bridge/sets.h>

#include <cstdint>
#include <vector>

namespace test {

// An event, its record, and what becomes of it.
struct Mirror::Row {
    uint32_t event;
    uint16_t least;
    void (*apply)(Mirror &mirror, const void *record);
};

namespace {

template <class Fn> void for_each_vid(const void *set, Fn &&fn) {
    const auto &vlans = *static_cast<const vlanset *>(set);
    for (uint32_t vid = bri_vlanset_next(&vlans, 0); vid != 0; vid = bri_vlanset_next(&vlans, vid))
        fn(static_cast<uint16_t>(vid));
}

template <class T> const T &as(const void *record) {
    return *static_cast<const T *>(record);
}

} // namespace

const Mirror::Row Mirror::kRows[] = {
    {VLAN_EVENT_CREATE_INDEX, sizeof(vl_evt_vlan_rec),
     [](Mirror &m, const void *r) { m.seen_.vlans.insert(as<vl_evt_vlan_rec>(r).vid); }},
    {VLAN_EVENT_DESTROY_INDEX, sizeof(vl_evt_vlan_rec),
     [](Mirror &m, const void *r) { m.remove_vlan(as<vl_evt_vlan_rec>(r).vid); }},
    {VLAN_EVENT_CREATE_RANGE, sizeof(vlanset),
     [](Mirror &m, const void *r) { for_each_vid(r, [&](uint16_t vid) { m.seen_.vlans.insert(vid); }); }},
    {VLAN_EVENT_DESTROY_RANGE, sizeof(vlanset),
     [](Mirror &m, const void *r) { for_each_vid(r, [&](uint16_t vid) { m.remove_vlan(vid); }); }},
    {VLAN_EVENT_CREATE_INTF, sizeof(vl_evt_intf_rec),
     [](Mirror &m, const void *r) {
         const auto &port = as<vl_evt_intf_rec>(r);
         m.on_port(port.ifx, port.mode, port.pvid);
     }},
    {VLAN_EVENT_DESTROY_INTF, sizeof(uint32_t), [](Mirror &m, const void *r) { m.remove_port(as<uint32_t>(r)); }},
    {VLAN_EVENT_MODIFY_INTF_MODE, sizeof(vl_evt_intf_mode_rec),
     [](Mirror &m, const void *r) { m.on_mode(as<vl_evt_intf_mode_rec>(r)); }},
    {VLAN_EVENT_MODIFY_INTF_PVID, sizeof(vl_evt_intf_pvid_rec),
     [](Mirror &m, const void *r) {
         const auto &record = as<vl_evt_intf_pvid_rec>(r);
         if (const auto port = m.seen_.ports.find(record.ifx); port != m.seen_.ports.end())
             port->second.pvid = record.pvid;
     }},
    {VLAN_EVENT_ADD_INTF, sizeof(vl_evt_intf_vlan_rec),
     [](Mirror &m, const void *r) {
         const auto &record = as<vl_evt_intf_vlan_rec>(r);
         m.seen_.members.insert({record.ifx, record.vid});
     }},
    {VLAN_EVENT_RANGE_ADD_INTF, sizeof(vl_evt_intf_vlanset_rec),
     [](Mirror &m, const void *r) { m.on_members(as<vl_evt_intf_vlanset_rec>(r), true); }},
    {VLAN_EVENT_RANGE_DEL_INTF, sizeof(vl_evt_intf_vlanset_rec),
     [](Mirror &m, const void *r) { m.on_members(as<vl_evt_intf_vlanset_rec>(r), false); }},
    {MAC_EVENT_NOTIFY_ADDR, sizeof(bri_mac_msg), [](Mirror &m, const void *r) { m.on_address(as<bri_mac_msg>(r)); }},
};

void Mirror::remove_vlan(uint16_t vid) {
    seen_.vlans.erase(vid);
    std::erase_if(seen_.members, [&](const auto &member) { return member.second == vid; });
}

void Mirror::remove_port(uint32_t ifx) {
    seen_.ports.erase(ifx);
    std::erase_if(seen_.members, [&](const auto &member) { return member.first == ifx; });
}

void Mirror::on_port(uint32_t ifx, uint32_t mode, uint16_t pvid) {
    if (mode == BRI_PORT_ROUTE)
        remove_port(ifx);
    else
        seen_.ports[ifx] = {mode, pvid};
}

void Mirror::on_mode(const vl_evt_intf_mode_rec &record) {
    if (const auto port = seen_.ports.find(record.ifx); port != seen_.ports.end())
        on_port(record.ifx, record.mode, port->second.pvid);
}

void Mirror::on_members(const vl_evt_intf_vlanset_rec &record, bool are) {
    for_each_vid(&record.vlans, [&](uint16_t vid) {
        if (are)
            seen_.members.insert({record.ifx, vid});
        else
            seen_.members.erase({record.ifx, vid});
    });
}

void Mirror::on_address(const bri_mac_msg &record) {
    const std::pair<uint8_t, uint16_t> key(record.entry.mac[5], record.entry.bcast_id);
    if (record.oper == BRI_MAC_ADD)
        seen_.addresses[key] = record.entry.ifx;
    else
        seen_.addresses.erase(key);
}

// From here on nothing is told: what had begun has been ended before.
void Mirror::on_silence(const char *why) {
    for (const uint32_t submod : open_)
        fault_ += std::string(why) + " within a resynchronisation of " + std::to_string(submod) + "\n";
}

// Which VLANs a port is in is told whole, and not swept.
void Mirror::on_begin(uint32_t submod) {
    if (!open_.insert(submod).second)
        fault_ += "a second begin of " + std::to_string(submod) + "\n";
    if (submod == BRI_SUBMOD_VLAN)
        seen_.members.clear();
}

void Mirror::on_end(uint32_t submod, bool complete) {
    if (open_.erase(submod) == 0)
        fault_ += "an end of " + std::to_string(submod) + " without a begin\n";
    if (complete)
        in_step_(submod);
}

void Mirror::on_vanished(const bridge_host_vanished &what) {
    if (what.kind == BRIDGE_HOST_VLAN)
        remove_vlan(what.vid);
    else if (what.kind == BRIDGE_HOST_PORT)
        remove_port(what.ifx);
    else
        seen_.addresses.erase({what.address.mac[5], what.vid});
}

Mirror::Mirror(qv_thread_master *master, std::function<void(uint32_t submod)> in_step) : in_step_(std::move(in_step)) {
    struct Bound {
        Mirror *mirror;
        const Row *row;
    };
    static Bound bound[std::size(kRows)];
    std::vector<bridge_host_handler> handlers;
    for (const Row &row : kRows) {
        Bound &at = bound[handlers.size()] = {this, &row};
        const auto call = [](const void *record, uint16_t, void *context) {
            const auto &to = *static_cast<const Bound *>(context);
            to.row->apply(*to.mirror, record);
        };
        handlers.push_back({row.event, row.least, call, &at});
    }
    bridge_host_config config{};
    config.size = sizeof config;
    config.flags = BRIDGE_HOST_SWEEP_VLANS | BRIDGE_HOST_SWEEP_PORTS;
    config.name = "mirror";
    config.master = master;
    config.handlers = handlers.data();
    config.handler_count = static_cast<uint32_t>(handlers.size());
    config.mac_capacity = 1024;
    config.context = this;
    config.on_connection = [](int up, void *self) {
        if (up == 0)
            static_cast<Mirror *>(self)->on_silence("no connection");
    };
    config.on_role = [](enum bridge_host_role role, void *self) {
        if (role == BRIDGE_HOST_ROLE_SLAVE)
            static_cast<Mirror *>(self)->on_silence("slave");
    };
    config.on_resync_begin = [](uint32_t submod, void *self) { static_cast<Mirror *>(self)->on_begin(submod); };
    config.on_vanished = [](const bridge_host_vanished *what, void *self) {
        static_cast<Mirror *>(self)->on_vanished(*what);
    };
    config.on_resync_end = [](uint32_t submod, int complete, void *self) {
        static_cast<Mirror *>(self)->on_end(submod, complete != 0);
    };
    started_ = bridge_host_start(&config) == 0;
}

} // namespace test
