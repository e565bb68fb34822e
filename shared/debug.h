// What the debug part offers the client runtime beside its exported operations.
#pragma once

#include <bridge/base.h>

namespace bri::debug {

// Called when a client record that was given to bri_clnt_debug_init is about to be freed: debug messages do nothing
// until the next initialisation.
void forget(const bri_clnt_ctx *client);

} // namespace bri::debug
