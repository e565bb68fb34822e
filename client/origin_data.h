// Inside view of the origin-data protocol.
#pragma once

#include <cstdint>

namespace bri::client {

// Bit n: the data of submodule n (modulo 32) is in the state that the host told. Kept for who asks; nothing here does.
extern uint32_t g_submod_data_state;

} // namespace bri::client
