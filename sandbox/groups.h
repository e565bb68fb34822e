// VLAN groups: numbered sets of VLANs in their shared table.
#pragma once

#include "sandbox/answer.h"
#include "sandbox/vlan_sets.h"

namespace sandbox {

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
