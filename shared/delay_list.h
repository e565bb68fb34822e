// Messages held back for later delivery.
#pragma once

#include "base/message.h"

#include <bridge/debug.h>

#include <cstdint>

namespace bri::delay {

// Seconds that messages are held back. It stands in four unaligned bytes of g_bri_clnt_dbg; 0 and below mean off.
[[nodiscard]] inline int32_t interval() {
    return load_as<int32_t>(&g_bri_clnt_dbg[BRI_DBG_DELAY]);
}
void set_interval(int32_t seconds);

// Keeps a copy of a message while a delay is set; false when the caller must dispatch it now.
[[nodiscard]] bool take(const Message &message);

// Dispatches the messages that wait now, in arrival order. Does nothing while a release is already running.
void release();

// Drops everything that waits.
void clear();

} // namespace bri::delay
