// The mapped switch-port database of this process, and the look-up that every port operation starts with.
#pragma once

#include "shared/records.h"

#include <bridge/ipc.h>
#include <bridge/port_db.h>

#include <cstddef>
#include <cstdint>

namespace bri::ports {

struct Manager {
    bri_shm_handle *shm;
    bri_sem_lock *lock;
    spcb *entries;       // null while the database is not mapped
    uint16_t *stp_table; // instance of each VLAN
    int32_t total_num;   // this process's own count of ports
};

extern Manager g_manager; // shared/port_db.cpp

[[nodiscard]] constexpr bool valid(int32_t ifx) {
    return static_cast<uint32_t>(ifx) - 1U < BRI_PORT_SLOTS - 1U;
}

// A block is in use while its port is there.
struct Places {
    using Record = spcb;
    using Id = int32_t;
    static constexpr uint32_t spcb::*kInUse = &spcb::ifx;

    [[nodiscard]] static spcb *slot(int32_t ifx) {
        return valid(ifx) && g_manager.entries != nullptr ? g_manager.entries + ifx : nullptr;
    }
};
using Table = table::Records<Places>;

// Which VLANs of word `index` a port carries tagged where it is a member; it carries the others untagged.
[[nodiscard]] inline uint32_t tagged_word(const spcb &port, unsigned index) {
    const unsigned native = word::load(port.default_vid);
    const uint32_t others = bits::word_of(native) == index ? ~bits::mask_of(native) : ~uint32_t{0};
    switch (word::load(port.mode)) {
    case BRI_PORT_TRUNK:
        return others;
    case BRI_PORT_UPLINK:
        return ~uint32_t{0};
    case BRI_PORT_HYBRID: // the native VLAN untagged also when its tag bit is set
        return others & word::load(port.tag_vlan.words[index]);
    default:
        return 0;
    }
}

} // namespace bri::ports
