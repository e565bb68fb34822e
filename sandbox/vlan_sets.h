// Sets of VLANs as values: the ids 1..4094 of the usual 512-byte bitmap.
#pragma once

#include "base/bits.h"

#include <bridge/vlan_db.h>

#include <cstdint>
#include <string>

namespace sandbox {

// Numbers from clients and from the tables, which every process may write, are asked for and put in as they come: one
// of 4096 and above is in no set.
inline bool holds(const vlanset &set, unsigned vid) {
    return vid < bri::bits::kSetBits && bri::bits::test(set.words, vid);
}
inline void put(vlanset &set, unsigned vid) {
    if (vid < bri::bits::kSetBits)
        bri::bits::set(set.words, vid);
}
template <class Fn> void for_each_vlan(const vlanset &set, Fn &&fn) {
    bri::bits::for_each(set.words, BRI_VID_MIN, BRI_VID_MAX, [&](unsigned vid) { fn(static_cast<uint16_t>(vid)); });
}
// Those that satisfy a predicate.
template <class Predicate> vlanset those_of(const vlanset &set, Predicate &&wanted) {
    vlanset result{};
    for_each_vlan(set, [&](uint16_t vid) {
        if (wanted(vid))
            put(result, vid);
    });
    return result;
}

vlanset only(uint16_t vid);
vlanset all_vlans();
unsigned count(const vlanset &set);
uint16_t lowest(const vlanset &set); // 0 for an empty one

// "1-10,20", "all" or "none". Throws std::invalid_argument for anything else.
vlanset parse_vlans(const std::string &text);
// The same back; "none" for an empty set.
std::string vlans_text(const vlanset &set);

} // namespace sandbox
