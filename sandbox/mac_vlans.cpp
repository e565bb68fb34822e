#include "sandbox/mac_vlans.h"

#include <algorithm>
#include <cstring>

namespace sandbox {

namespace {

bool same_host(const mvlan_entry &left, const mvlan_entry &right) {
    return std::memcmp(left.mac, right.mac, sizeof left.mac) == 0 &&
           std::memcmp(left.mask, right.mask, sizeof left.mask) == 0;
}

bool covers(const mvlan_entry &entry, const uint8_t (&mac)[6]) {
    for (size_t i = 0; i < sizeof mac; ++i)
        if (((entry.mac[i] ^ mac[i]) & entry.mask[i]) != 0)
            return false;
    return true;
}

} // namespace

MacVlans::Outcome MacVlans::apply(const mvlan_msg &request) {
    if (request.entry.type != kMacVlanAdd && request.entry.type != kMacVlanDelete)
        return Outcome::kNotThat;
    const auto known = std::find_if(entries_.begin(), entries_.end(),
                                    [&](const mvlan_msg &other) { return same_host(other.entry, request.entry); });
    const bool there = known != entries_.end();
    if (request.entry.type == kMacVlanDelete) {
        if (!there)
            return Outcome::kUnknown;
        entries_.erase(known);
    } else if (there) {
        *known = request;
    } else if (entries_.size() >= room) {
        return Outcome::kFull;
    } else {
        entries_.push_back(request);
    }
    return Outcome::kDone;
}

std::vector<mvlan_msg> MacVlans::remove_if(const std::function<bool(const mvlan_msg &)> &wanted) {
    const auto leaving = std::stable_partition(entries_.begin(), entries_.end(), std::not_fn(wanted));
    std::vector<mvlan_msg> gone(leaving, entries_.end());
    entries_.erase(leaving, entries_.end());
    return gone;
}

std::optional<mvlan_msg> MacVlans::find(const uint8_t (&mac)[6]) const {
    const mvlan_msg *best = nullptr;
    for (const mvlan_msg &candidate : entries_)
        if (covers(candidate.entry, mac) &&
            (best == nullptr || std::memcmp(candidate.entry.mask, best->entry.mask, sizeof best->entry.mask) > 0))
            best = &candidate;
    return best == nullptr ? std::nullopt : std::optional(*best);
}

} // namespace sandbox
