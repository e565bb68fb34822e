// Super VLANs and the sub VLANs that belong to them, in the VLAN table.
#pragma once

#include "sandbox/answer.h"
#include "sandbox/batch.h"
#include "sandbox/vlan_sets.h"

#include <cstdint>

namespace sandbox {

// A VLAN is made a super VLAN, a sub VLAN of one, or neither; then it is static. Each change is made first and
// announced then, as the VLANs' new modes and as the event of its own (records in wire/own.h). All throw
// std::invalid_argument with the reason when they refuse, and nothing has changed then.
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

} // namespace sandbox
