// What the debug part offers the client runtime beside its exported operations.
#pragma once

#include "base/message.h"

#include <bridge/base.h>

namespace bri::debug {

// The entry of the debug messages; does nothing before bri_clnt_debug_init.
void on_message(const Message &message);

// Called when a client record that was given to bri_clnt_debug_init is about to be freed: debug messages do nothing
// until the next initialisation.
void forget(const bri_clnt_ctx *client);

} // namespace bri::debug
