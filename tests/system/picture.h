// What a host knows of ports and VLANs when it has nothing but its events, and the same read from the shared tables.
#pragma once

#include "base/bytes.h"

#include <bridge/events.h>
#include <bridge/vlan_client.h>
#include <bridge/vlan_db.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace test {

struct Picture {
    struct Vlan {
        std::string name;
        uint32_t mode = BRI_VLAN_STATIC;
        uint32_t svi = 0;
        std::set<uint32_t> members{};
    };
    struct Port {
        uint32_t mode = 0;
        uint16_t pvid = 0;
        vlanset allowed{};
    };
    std::map<uint16_t, Vlan> vlans;
    std::map<uint32_t, Port> ports;

    // An event as its handler gets it.
    void apply(uint32_t type, bri::Bytes payload);
    // One line for each VLAN and each switch port. A routed port is no switch port: replays leave it out.
    [[nodiscard]] std::string text() const;

  private:
    void create(uint16_t vid, uint32_t mode, const std::string &name);
    void create_set(const vl_evt_vlanset_rec &record);
    void set_mode(const vl_evt_vlan_rec &record);
    void apply_to_vlan(uint32_t type, const vl_evt_vlan_rec &record);
    void apply_to_members(const vlanset &set, uint32_t ifx, bool member);
};

} // namespace test
