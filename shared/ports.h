// The mapped switch-port database of this process, and the look-up that every port operation starts with.
#pragma once

#include "base/bits.h"
#include "base/shared_word.h"

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

// The block of a valid index, whether the port is there or not; null without a mapping.
[[nodiscard]] inline spcb *raw(int32_t ifx) {
    return valid(ifx) && g_manager.entries != nullptr ? g_manager.entries + ifx : nullptr;
}

// The block of a port that is there, or null.
[[nodiscard]] inline spcb *present(int32_t ifx) {
    spcb *port = raw(ifx);
    return port != nullptr && word::load(port->ifx) != 0 ? port : nullptr;
}

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
