// The records that the look-up benchmarks read, as this process has them mapped, and the questions they ask.
#pragma once

#include <bridge/bridge.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace bench {

constexpr unsigned kQuestions = 1024; // a power of two
constexpr int32_t kPorts = 48;
constexpr unsigned kGroups = 64;

struct Question {
    uint16_t vid;
    uint8_t ifx;
    uint32_t svi_ifx;
};

// What the questions go to; `asked` is walked over and over, so that neither a branch nor a line is learned.
struct Records {
    const vle *vlans;
    const spcb *ports;
    const vlan_group_entry *groups;
    vlanset live;  // 512 VLANs that exist
    vlanset holes; // the same and one, the last, that does not
    std::array<Question, kQuestions> asked;
};
inline Records g_records;

inline const Question &question(unsigned number) {
    return g_records.asked[number & (kQuestions - 1)];
}
inline const vlanset &set_asked(unsigned number) {
    return (number & 1U) != 0 ? g_records.holes : g_records.live;
}

inline bool has_bit(const uint32_t *words, unsigned bit) {
    return (words[bit >> 5] >> (bit & 31U) & 1U) != 0;
}
inline void set_bit(uint32_t *words, unsigned bit) {
    words[bit >> 5] |= uint32_t{1} << (bit & 31U);
}

// Calls fn(bit) for the set bits of the usable VLAN ids.
template <class Fn> inline void for_each_bit(const uint32_t *words, Fn &&fn) {
    for (unsigned index = 0; index < sizeof(vlanset) / sizeof(uint32_t); ++index)
        for (uint32_t left = words[index]; left != 0; left &= left - 1)
            fn(index * 32 + static_cast<unsigned>(__builtin_ctz(left)));
}

// How a port block carries a VLAN of which the port is a member.
inline uint32_t rule_of(const spcb &port, uint16_t vid) {
    const bool native = port.default_vid == vid;
    if (port.mode == BRI_PORT_UPLINK)
        return BRI_TAG_TAGGED;
    if (port.mode == BRI_PORT_TRUNK)
        return native ? BRI_TAG_UNTAGGED : BRI_TAG_TAGGED;
    if (port.mode == BRI_PORT_HYBRID && !native && has_bit(port.tag_vlan.words, vid))
        return BRI_TAG_TAGGED;
    return BRI_TAG_UNTAGGED;
}

[[noreturn]] inline void give_up(const char *what) {
    std::fprintf(stderr, "shared_bench: %s\n", what);
    std::exit(1);
}
inline void need(bool done, const char *what) {
    if (!done)
        give_up(what);
}

} // namespace bench
