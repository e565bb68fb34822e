// The VLANs that the kernel's bridge module puts hosts in by their address.
#pragma once

#include <bridge/mac_vlan.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace sandbox {

enum MacVlanOper : uint32_t { kMacVlanAdd = 0, kMacVlanDelete = 1, kMacVlanQuery = 2 };

class MacVlans {
  public:
    enum class Outcome { kDone, kFull, kUnknown, kNotThat };
    uint32_t room = UINT32_MAX; // entries

    // Takes an add or a delete, and nothing else; an entry is known by its address and mask.
    Outcome apply(const mvlan_msg &request);
    // The entries that are wanted go, and come back from here.
    std::vector<mvlan_msg> remove_if(const std::function<bool(const mvlan_msg &)> &wanted);
    void clear() { entries_.clear(); }

    // The entry for a host address: of several whose mask covers it, the one with the longest mask.
    [[nodiscard]] std::optional<mvlan_msg> find(const uint8_t (&mac)[6]) const;

    // In the order in which they came.
    [[nodiscard]] const std::vector<mvlan_msg> &entries() const { return entries_; }

  private:
    std::vector<mvlan_msg> entries_;
};

} // namespace sandbox
