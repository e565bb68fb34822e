// The switch ports: this program is the owner of their blocks in shared memory.
#pragma once

#include "sandbox/answer.h"
#include "sandbox/vlan_sets.h"

#include <bridge/vlan_client.h>

namespace sandbox {

inline bool there_is_vlan(uint16_t vid) {
    return vl_exist(vid, 0) != 0;
}
bool there_is_port(uint32_t ifx);
bool link_is_down(uint32_t ifx); // of a port that is there
// A port's block; throws std::invalid_argument when it is not there.
spcb &port_at(uint32_t ifx);
template <class Fn> void for_each_port(Fn &&fn) {
    for (uint32_t ifx = 1; ifx < BRI_PORT_SLOTS; ++ifx)
        if (there_is_port(ifx))
            fn(ifx);
}

// A port is a member of the VLANs that it carries: its native VLAN when it is an access port, the allowed ones when it
// is a trunk or the like, none when it is routed; and, unless it is an access or a routed port, of those that a client
// made it a dynamic member of. The table knows one kind of member bit; which of them are dynamic stands in the part of
// the block that is the server's own. So a client that replays the tables to itself sees every membership.
// Each change is made first and announced then. All throw std::invalid_argument for a port that is not there.
class Ports {
  public:
    explicit Ports(Announce announce) : announce_(std::move(announce)) {}

    // Maps the port table; throws std::runtime_error.
    static void open();

    // A port is out of VLANs, or has gone: told before anybody else is.
    std::function<void(uint32_t ifx, const vlanset &vlans)> on_left = [](uint32_t, const vlanset &) {};
    std::function<void(uint32_t ifx)> on_removed = [](uint32_t) {};
    // A link has failed: told when the tables have it, before anybody else is.
    std::function<void(uint32_t ifx)> on_down = [](uint32_t) {};

    // Throws std::invalid_argument where there can be no such new port.
    static void check_new(uint32_t ifx, uint16_t pvid);
    void add(uint32_t ifx, bri_port_mode mode, uint16_t pvid);
    void remove(uint32_t ifx);
    void set_mode(uint32_t ifx, bri_port_mode mode);
    void set_pvid(uint32_t ifx, uint16_t pvid);
    void set_allowed(uint32_t ifx, const vlanset &vlans);
    void allow(uint32_t ifx, const vlanset &vlans) { set_allowed(ifx, both(port_at(ifx).allow_vlan, vlans)); }
    void disallow(uint32_t ifx, const vlanset &vlans) { set_allowed(ifx, without(port_at(ifx).allow_vlan, vlans)); }

    // The link of a new port is up. Each VLAN's number of members that are up follows, and clients are told that of a
    // VLAN with a routed interface. Nobody is told anything when the link is so already.
    void set_link(uint32_t ifx, bool up);
    void link_up(uint32_t ifx) { set_link(ifx, true); }
    void link_down(uint32_t ifx) { set_link(ifx, false); }

    // Memberships that clients ask for; VLANs that do not exist are passed over. These four also throw
    // std::invalid_argument for an access or a routed port.
    void add_dynamic(uint32_t ifx, const vlanset &vlans);
    void remove_dynamic(uint32_t ifx, const vlanset &vlans);
    // Memberships by the operator's word, whatever the port carries, until something about the two changes.
    void add_members(uint32_t ifx, const vlanset &vlans);
    void remove_members(uint32_t ifx, const vlanset &vlans);

    // These VLANs have just been created, or are about to go.
    void vlans_created(const vlanset &vlans) {
        for_each_port([&](uint32_t ifx) { refresh(ifx, vlans); });
    }
    void vlans_leaving(const vlanset &vlans);

    // Counts the members of these VLANs that are up, and gives the VLANs whose number is another one than before.
    static vlanset count_up(const vlanset &vlans);

    static Answer show();

  private:
    void take_out(uint32_t ifx, const vlanset &vlans);
    void refresh(uint32_t ifx, const vlanset &concerned, uint32_t kind = BRI_MEMBERSHIP_STATIC);
    void announce_change(uint32_t ifx, const vlanset &removed, const vlanset &added, uint32_t kind) const;
    void announce_members(uint32_t ifx, const vlanset &vlans, bool added, uint32_t kind) const;
    void announce_up(const vlanset &counted) const;
    void announce_port(uint32_t ifx) const;
    // Announces a record of this kind.
    template <class Record> void tell(uint32_t type, const Record &record) const { announce_(type, bytes_of(record)); }

    Announce announce_;
};

// Why an address cannot be there, empty when it can: the port and the VLAN exist, and the port is a member. With one of
// them 0 only the other one counts.
std::string misplaced(uint16_t vid, uint32_t ifx);

} // namespace sandbox
