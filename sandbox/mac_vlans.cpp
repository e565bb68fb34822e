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

bool MacVlans::apply(const mvlan_msg &request) {
    if (request.entry.type != kMacVlanAdd && request.entry.type != kMacVlanDelete)
        return false;
    const auto known = std::find_if(entries_.begin(), entries_.end(),
                                    [&](const mvlan_msg &other) { return same_host(other.entry, request.entry); });
    if (request.entry.type == kMacVlanAdd) {
        if (known == entries_.end())
            entries_.push_back(request);
        else
            *known = request;
        return true;
    }
    if (known == entries_.end())
        return false;
    entries_.erase(known);
    return true;
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
