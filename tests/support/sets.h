// Sets of event types and of VLAN ids: bit n is bit n % 32 of word n / 32.
#pragma once

#include <bridge/base.h>

#include <initializer_list>

namespace test {

template <class Set> bool has(const Set &set, unsigned member) {
    return (set.words[member / 32] >> member % 32 & 1) != 0;
}
template <class Set> void add_to(Set &set, unsigned member) {
    set.words[member / 32] |= 1U << member % 32;
}

inline event_set set_of_types(std::initializer_list<unsigned> types) {
    event_set set{};
    for (const unsigned type : types)
        add_to(set, type);
    return set;
}
// The VLANs of these ids.
inline vlanset set_of(std::initializer_list<unsigned> vids) {
    vlanset set{};
    for (const unsigned vid : vids)
        add_to(set, vid);
    return set;
}

} // namespace test
