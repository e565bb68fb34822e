// The MAC addresses that the kernel's bridge module knows.
#pragma once

#include "sandbox/batch.h"

#include <bridge/mac_client.h>

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace sandbox {

// What became of the table: one record for each address that is new, changed or gone, whole whatever asked for it.
using MacChanges = std::vector<bri_mac_msg>;

class MacTable {
  public:
    // Takes one record: an add names one address whole, a delete all that its fields select. A learned address does not
    // take the place of a configured one, and what says nothing new changes nothing.
    MacChanges apply(const bri_mac_msg &record);
    MacChanges remove_if(const std::function<bool(const bri_mac_entry &)> &wanted);
    void clear() { entries_.clear(); }

    // A check: the addresses of a kind that nobody adds again until its end are gone then.
    void begin_check(const std::function<bool(const bri_mac_entry &)> &of_kind);
    MacChanges end_check(const std::function<bool(const bri_mac_entry &)> &of_kind);

    // The first address that the key selects, by address and domain; and the first one behind `current`. A key's
    // address alone is where to start, with a domain it is the one to find; port and type must match where given.
    [[nodiscard]] std::optional<bri_mac_entry> first(const bri_mac_entry &key) const;
    [[nodiscard]] std::optional<bri_mac_entry> next(const bri_mac_entry &key, const bri_mac_entry &current) const;

    [[nodiscard]] size_t size() const { return entries_.size(); }
    template <class Fn> void for_each(Fn &&fn) const {
        for (const auto &[name, known] : entries_)
            fn(known.entry);
    }

  private:
    using Name = std::pair<std::array<uint8_t, 6>, uint16_t>; // address and domain
    struct Known {
        bri_mac_entry entry;
        bool unconfirmed = false; // since the begin of a check
    };
    static Name name_of(const bri_mac_entry &entry);
    MacChanges add(const bri_mac_entry &given);
    MacChanges remove_known(const std::function<bool(const Known &)> &wanted);
    [[nodiscard]] static std::optional<bri_mac_entry> search(std::map<Name, Known>::const_iterator from,
                                                             std::map<Name, Known>::const_iterator end,
                                                             const bri_mac_entry &key);

    std::map<Name, Known> entries_;
};

[[nodiscard]] inline bool is_dynamic(const bri_mac_entry &entry) {
    return entry.type == BRI_MAC_TYPE_DYNAMIC;
}

} // namespace sandbox
