// The shared tables of a measurement, filled in two ways, and the questions that look-ups ask them.
#pragma once

#include "bench/bare.h"

#include <bridge/bridge.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <random>

namespace bench {

constexpr unsigned kQuestions = 1024; // a power of two
constexpr unsigned kVariedPorts = 48;
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

inline void set_bit(uint32_t *words, unsigned bit) {
    words[bit >> 5] |= uint32_t{1} << (bit & 31U);
}

// Calls fn(bit) for the set bits of the usable VLAN ids.
template <class Fn> inline void for_each_bit(const uint32_t *words, Fn &&fn) {
    for (unsigned index = 0; index < sizeof(vlanset) / sizeof(uint32_t); ++index)
        for (uint32_t left = words[index]; left != 0; left &= left - 1)
            fn(index * 32 + static_cast<unsigned>(__builtin_ctz(left)));
}

[[noreturn]] inline void give_up(const char *what) {
    std::fprintf(stderr, "%s: not as it should be\n", what);
    std::exit(1);
}
inline void need(bool done, const char *what) {
    if (!done)
        give_up(what);
}

inline void map_tables() {
    const spcb *first = swport_get_raw_spcb(1);
    need(g_vl_mng.entries != nullptr && vlan_group_mng.entries != nullptr && first != nullptr, "no tables");
    g_records.vlans = g_vl_mng.entries;
    g_records.groups = vlan_group_mng.entries;
    g_records.ports = first - 1;
    vl_set_vlan_range(BRI_VID_MIN, BRI_VID_MAX);
}

inline void ask_questions(unsigned ports) {
    std::mt19937 random(1); // every run asks the same
    for (Question &asked : g_records.asked) {
        asked.vid = static_cast<uint16_t>(1 + random() % BRI_VID_MAX);
        asked.ifx = static_cast<uint8_t>(1 + random() % ports);
        asked.svi_ifx = 10000 + 1 + 16 * static_cast<uint32_t>(random() % 256);
    }
}

// Every port has a mode in turn, and native VLAN 1.
inline void fill_ports(unsigned ports, std::initializer_list<uint32_t> modes) {
    for (unsigned ifx = 1; ifx <= ports; ++ifx) {
        spcb &port = *swport_get_raw_spcb(static_cast<int32_t>(ifx));
        port.ifx = ifx;
        port.mode = std::data(modes)[ifx % modes.size()];
        port.default_vid = 1;
        std::memset(&port.tag_vlan, 0x5A, sizeof port.tag_vlan);
        std::memset(&port.allow_vlan, 0xFF, sizeof port.allow_vlan);
    }
}

// Every VLAN with every port, ports of all the modes that tell a set of VLANs.
inline void fill_tables(unsigned vlans, unsigned ports) {
    map_tables();
    fill_ports(ports, {BRI_PORT_TRUNK, BRI_PORT_HYBRID, BRI_PORT_UPLINK});
    for (unsigned id = 1; id <= vlans; ++id) {
        const auto vid = static_cast<uint16_t>(id);
        vl_initial_vlan_entry(vid, BRI_VLAN_STATIC);
        for (unsigned ifx = 1; ifx <= ports; ++ifx)
            vl_add_static_member(static_cast<int32_t>(ifx), vid);
    }
    ask_questions(ports);
}

inline void fill_varied_vlans() {
    std::mt19937 random(2);
    for (unsigned vid = BRI_VID_MIN; vid <= BRI_VID_MAX; ++vid) {
        if (vid % 4 == 0) // every fourth does not exist
            continue;
        const auto id = static_cast<uint16_t>(vid);
        vl_initial_vlan_entry(id, BRI_VLAN_STATIC);
        if (vid % 16 == 1)
            vl_set_svi(id, 10000 + vid);
        for (unsigned ifx = 1; ifx <= kVariedPorts; ++ifx)
            if (random() % 4 == 0)
                vl_add_static_member(static_cast<int32_t>(ifx), id);
    }
    for (unsigned vid = 1; vid <= 4089; vid += 8)
        set_bit(g_records.live.words, vid);
    g_records.holes = g_records.live;
    set_bit(g_records.holes.words, 4092);
}

inline void fill_groups() {
    for (unsigned number = 1; number <= kGroups; ++number) {
        const auto id = static_cast<uint8_t>(number);
        vlanset members{};
        vlanset added{};
        vlanset removed{};
        uint8_t counts[2] = {};
        for (unsigned vid = number * 32; vid < number * 32 + 8; ++vid)
            set_bit(members.words, vid);
        need(vlan_group_creat_entry(id) == 1 &&
                 vlan_group_set_member_vlan(id, &members, &added, &removed, &counts[0], &counts[1]) == 1,
             "no group table");
    }
}

// Three of four VLANs, each with a quarter of the ports, and groups: what look-ups find here and do not find there.
inline void fill_varied_tables() {
    map_tables();
    fill_ports(kVariedPorts, {BRI_PORT_ACCESS, BRI_PORT_TRUNK, BRI_PORT_HYBRID, BRI_PORT_UPLINK});
    fill_varied_vlans();
    fill_groups();
    ask_questions(kVariedPorts);
}

} // namespace bench
