// What the client runtime does for the rooms beside it. Declared here, below all of them, so that none of them includes
// a header of the runtime, which itself knows them all by its routes.
#pragma once

#include "base/message.h"

namespace bri::runtime {

// Period of the batch flush, in microseconds; the debug part shows it.
inline constexpr int kFlushPeriodUsec = 50000;

// Brings a message to its subsystem (client/dispatch.cpp): the delay list does it later.
void dispatch(const Message &message);

// Calls the host's handlers with a message as it came (client/handlers.cpp).
void hand_on(const Message &message);

} // namespace bri::runtime
