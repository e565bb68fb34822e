// The tables of the kernel's bridge module and everybody who changes them: clients through the server socket, hosts
// through the kernel channel, the operator. Whoever it was, the clients that registered the event get each change of
// the address table as one record.
#pragma once

#include "sandbox/batch.h"
#include "sandbox/mac_table.h"
#include "sandbox/mac_vlans.h"

#include <cstdint>
#include <utility>

namespace sandbox {

class Addresses {
  public:
    explicit Addresses(Announce announce) : announce_(std::move(announce)) {}

    // One change, and a run of them. How many addresses changed.
    size_t apply(const bri_mac_msg &record);
    size_t apply_run(Bytes records);
    // The addresses that change between the two calls, or are added once more, stay; the others of the kind go.
    void begin_check(bool dynamic, uint32_t type = 0);
    void end_check(bool dynamic, uint32_t type = 0);
    // The learned addresses of those VLANs, on one port unless that is 0, go.
    void delete_dynamic(const bri_mac_vlanmap_del &request);
    // False when there was nothing to change.
    bool apply(const mvlan_msg &request);
    // Every entry of the submodule's table, as an add, for somebody who asks for its data.
    void replay(uint32_t submodule, const Announce &send) const;
    // What goes with the kernel's module. The clients are not told: they are asked for their data when it comes back.
    void clear();

    [[nodiscard]] const MacTable &macs() const { return macs_; }
    [[nodiscard]] const MacVlans &hosts() const { return hosts_; }

  private:
    size_t announce(const MacChanges &changes) const;

    Announce announce_;
    MacTable macs_;
    MacVlans hosts_;
};

} // namespace sandbox
