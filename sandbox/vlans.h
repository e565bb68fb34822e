// The VLANs: this program is the owner of their table in shared memory, decides on their creation with the clients, and
// applies what clients ask for.
#pragma once

#include "sandbox/ports.h"
#include "sandbox/prejudge.h"
#include "sandbox/super_vlans.h"

#include <bridge/vlan_request.h>

#include <cstdint>
#include <functional>
#include <string>

namespace sandbox {

// Each change is made first and announced then, with the version that the table has given the VLAN.
class Vlans {
  public:
    Vlans(Loop &loop, Server &server, Announcer &announcer);

    // Maps the tables and sets their limits; what they hold stays, as after a server's death. Throws
    // std::runtime_error.
    static void open();

    // Creates those of the set that do not exist, when no client objects, and tells which these were and why they were
    // refused, nothing when they were not.
    using Settled = std::function<void(const vlanset &vlans, const std::string &refusal)>;
    void create(const vlanset &vlans, uint32_t mode, bool by_operator, Settled settled);
    // The rest pass VLANs over that do not exist, except the ones for a single VLAN, which throw.
    vlanset remove(const vlanset &vlans); // those that there were
    void set_mode(const vlanset &vlans, uint32_t mode);
    void rename(uint16_t vid, const std::string &name);
    void set_svi(uint16_t vid, uint32_t ifx);

    // VLANs have gone: told before anybody else is.
    std::function<void(const vlanset &vlans)> on_removed = [](const vlanset &) {};

    static Answer show();
    [[nodiscard]] Ports &ports() { return ports_; }
    [[nodiscard]] SuperVlans &supers() { return supers_; }
    [[nodiscard]] Prejudge &prejudge() { return prejudge_; }

  private:
    void create_now(const vlanset &vlans, uint32_t mode, bool by_operator);
    void announce_vlan(uint32_t type, uint16_t vid) const;
    void announce_set(uint32_t type, const vlanset &vlans) const;
    void announce_svi(uint16_t vid) const;

    Announce announce_;
    Ports ports_;
    SuperVlans supers_;
    Prejudge prejudge_;
};

// The VLAN as events tell it. One that has gone has the version of the life that has ended, and nothing else.
vl_evt_vlan_rec vlan_record(uint16_t vid);
// Several, with the versions of their newest lives.
vl_evt_vlanset_rec vlanset_record(const vlanset &vlans);

// "static", "dynamic" or "super"; throws std::invalid_argument.
uint32_t parse_vlan_mode(const std::string &text);

} // namespace sandbox
