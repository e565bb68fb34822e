// The VLANs: this program is the owner of their table in shared memory, decides on their creation with the clients, and
// applies what clients ask for. And VLAN groups, numbered sets of VLANs in their own shared table. Each change is made
// first and announced then.
#pragma once

#include "sandbox/announcer.h"
#include "sandbox/ports.h"

namespace sandbox {

// A VLAN is made a super VLAN, a sub VLAN of one, or neither; then it is static. Changes are announced as the VLANs'
// new modes and as the event of its own (records in wire/own.h). All throw std::invalid_argument with the reason when
// they refuse, and nothing has changed then.
class SuperVlans {
  public:
    explicit SuperVlans(Announce announce) : announce_(std::move(announce)) {}

    // Those that are none yet become super VLANs, or are none any more, nor are their sub VLANs sub VLANs.
    void create(const vlanset &vlans);
    void remove(const vlanset &vlans);
    // Super VLANs have come, or have gone: one of them or several have events of their own.
    void announce_supers(const vlanset &vlans, bool created) const;
    void add(uint16_t vid, const vlanset &subs);
    void take(uint16_t vid, const vlanset &subs);
    // Whether a VLAN answers ARP for its hosts; a new one does.
    void set_proxy(uint16_t vid, bool on);

    // These VLANs are about to go, or to be of another mode.
    void dissolve(const vlanset &vlans);

    static Answer show();

  private:
    void free_subs(uint32_t type, uint16_t vid, const vlanset &subs);
    void change(const vlanset &vlans, uint32_t mode, uint16_t manage_vid);

    Announce announce_;
};

// Changes carry the version that the table has given the VLAN.
class Vlans {
  public:
    Vlans(Announce announce, Ports &ports, SuperVlans &supers, Prejudge &prejudge)
        : announce_(std::move(announce)), ports_(ports), supers_(supers), prejudge_(prejudge) {}

    // Maps the tables and sets their limits; what they hold stays, as after a server's death. Throws
    // std::runtime_error.
    static void open();

    // Creates those of the set that do not exist, when no client objects, and tells which these were and why they were
    // refused, nothing when they were not.
    using Settled = std::function<void(const vlanset &vlans, const std::string &refusal)>;
    void create(const vlanset &vlans, bri_vlan_mode mode, bool by_operator, Settled settled);
    // These pass VLANs over that do not exist, but for those that concern one alone.
    vlanset remove(const vlanset &vlans); // those that there were
    void set_mode(const vlanset &vlans, bri_vlan_mode mode);
    void rename(uint16_t vid, const std::string &name);
    void set_svi(uint16_t vid, uint32_t ifx);

    // VLANs have gone: told before anybody else is.
    std::function<void(const vlanset &vlans)> on_removed = [](const vlanset &) {};

    static Answer show();

  private:
    void create_now(const vlanset &vlans, bri_vlan_mode mode, bool by_operator);

    Announce announce_;
    Ports &ports_;
    SuperVlans &supers_;
    Prejudge &prejudge_;
};

// Each change is made first and announced then, with the entry as it stands (wire/own.h tells how a group comes and
// goes). All throw std::invalid_argument with the reason when they refuse.
class Groups {
  public:
    explicit Groups(Announce announce) : announce_(std::move(announce)) {}

    // Maps the table; throws std::runtime_error.
    static void open();

    void create(uint32_t id);
    void remove(uint32_t id);
    void set_vlans(uint32_t id, const vlanset &vlans); // exactly these
    void set_default(uint32_t id, uint16_t vid);
    void set_assign_mode(uint32_t id, uint8_t mode);

    // All groups, for somebody who asks for this submodule's data.
    static void replay(uint32_t submodule, const Announce &send);

    static Answer show();

  private:
    Announce announce_;
};

} // namespace sandbox
