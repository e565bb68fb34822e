// Sets of VLANs as values: the ids 1..4094 of the usual 512-byte bitmap. Numbers from clients and from the tables,
// which every process may write, are asked for and put in as they come: one that is no VLAN id is in no set.
#pragma once

#include "sandbox/message.h"

#include <bridge/sets.h>

namespace sandbox {

inline bool holds(const vlanset &set, unsigned vid) {
    return bri_vlanset_has(&set, vid) != 0;
}
inline void put(vlanset &set, unsigned vid) {
    static_cast<void>(bri_vlanset_add(&set, vid));
}
inline unsigned count(const vlanset &set) {
    return bri_vlanset_count(&set);
}
inline uint16_t lowest(const vlanset &set) { // 0 for an empty one
    return static_cast<uint16_t>(bri_vlanset_next(&set, 0));
}
template <class Fn> void for_each_vlan(const vlanset &set, Fn &&fn) {
    for (uint32_t vid = bri_vlanset_next(&set, 0); vid != 0; vid = bri_vlanset_next(&set, vid))
        fn(static_cast<uint16_t>(vid));
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
inline vlanset only(unsigned vid) {
    vlanset set{};
    put(set, vid);
    return set;
}
inline vlanset all_vlans() {
    vlanset set{};
    static_cast<void>(bri_vlanset_add_range(&set, BRI_VID_MIN, BRI_VID_MAX));
    return set;
}
inline vlanset both(vlanset set, const vlanset &more) {
    for (size_t word = 0; word < std::size(set.words); ++word)
        set.words[word] |= more.words[word];
    return set;
}
inline vlanset without(vlanset set, const vlanset &less) {
    for (size_t word = 0; word < std::size(set.words); ++word)
        set.words[word] &= ~less.words[word];
    return set;
}

// A bit of a set in shared memory, where others change theirs meanwhile.
// NOLINTNEXTLINE(readability-non-const-parameter): the compiler's atomic functions write to it
inline void set_shared(uint32_t *words, unsigned bit, bool on) {
    const uint32_t mask = uint32_t{1} << bit % 32;
    if (on)
        __atomic_fetch_or(words + bit / 32, mask, __ATOMIC_RELAXED);
    else
        __atomic_fetch_and(words + bit / 32, ~mask, __ATOMIC_RELAXED);
}
inline bool holds_shared(const uint32_t *words, unsigned bit) {
    return (load(words[bit / 32]) >> bit % 32 & 1) != 0;
}

// "1-10,20", "all" or "none". Throws std::invalid_argument for anything else.
vlanset parse_vlans(const std::string &text);
// The same back; "none" for an empty set.
std::string vlans_text(const vlanset &set);

} // namespace sandbox
