// The virtual switch device this process belongs to.
#pragma once

#include "base/text.h"

#include <cstdint>
#include <cstdlib>

namespace bri {

// Value of the environment variable VSDID; 0 when unset.
[[nodiscard]] inline int32_t vsd_id() {
    const char *text = std::getenv("VSDID");
    return text != nullptr ? parse_int(text) : 0;
}

// Key of a table's segment and semaphore; 0 means that the table has no usable key.
[[nodiscard]] inline int32_t ipc_key(uint32_t base) {
    return static_cast<int32_t>(base + static_cast<uint32_t>(vsd_id()));
}

} // namespace bri
