// The VLANs that the kernel's bridge module puts hosts in by their address.
#pragma once

#include <bridge/mac_vlan.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace sandbox {

enum MacVlanOper : uint32_t { kMacVlanAdd = 0, kMacVlanDelete = 1, kMacVlanQuery = 2 };

class MacVlans {
  public:
    // Takes an add or a delete; an entry is known by its address and mask. Whether that changed anything.
    bool apply(const mvlan_msg &request);
    void clear() { entries_.clear(); }

    // The entry for a host address: of several whose mask covers it, the one with the longest mask.
    [[nodiscard]] std::optional<mvlan_msg> find(const uint8_t (&mac)[6]) const;

    // In the order in which they came.
    [[nodiscard]] const std::vector<mvlan_msg> &entries() const { return entries_; }

  private:
    std::vector<mvlan_msg> entries_;
};

} // namespace sandbox
