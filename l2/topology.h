// What the files of the layer-2 topology client offer each other.
#pragma once

#include "base/bits.h"
#include "base/raii.h"
#include "base/shared_word.h"

#include <bridge/l2_topology.h>
#include <bridge/port_db.h>
#include <bridge/vlan_db.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <utility>

namespace bri::l2top {

// Client name of log lines; empty before initialisation.
[[nodiscard]] const char *name();

// A set of the instances 0..64, in the layout of the interface.
struct InstanceSet {
    static constexpr unsigned kLast = BRI_STP_INSTANCES - 1;
    uint32_t words[3];
};

// The instance of a VLAN in the shared table. Any process may write there: a number above 64 is no instance.
[[nodiscard]] inline bool instance_of(const uint16_t *table, unsigned vid, unsigned &instance) {
    instance = word::load(table[vid]);
    return instance <= InstanceSet::kLast;
}

// Instance table: one 16-bit number for each VLAN id.
inline constexpr uint32_t kTableBytes = sizeof(bri_portdb::stp_instance);

// Bytes of a batch that are in use.
[[nodiscard]] constexpr uint32_t used_bytes(uint32_t count) {
    return static_cast<uint32_t>(offsetof(l2top_port_status_batch, records) + count * sizeof(l2top_port_status));
}

// A batch on the heap, cleared, or null when memory is short.
[[nodiscard]] inline l2top_port_status_batch *make_batch() {
    return static_cast<l2top_port_status_batch *>(std::calloc(1, sizeof(l2top_port_status_batch)));
}

// Appends a record; a batch that is full by it is handed to `deliver`. It is cleared first and delivered as a copy, so
// that a handler of the host may append again. What deliver gives, else true.
template <class Deliver>
bool append(l2top_port_status_batch &batch, const l2top_port_status &record, Deliver &&deliver) {
    batch.records[batch.count++] = record;
    if (batch.count < BRI_L2TOP_BATCH_MAX)
        return true;
    l2top_port_status_batch full = std::exchange(batch, {});
    return deliver(full);
}

} // namespace bri::l2top
