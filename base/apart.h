// Alignment of tables that a host may never touch: the linker gathers them by it, so that the words which every host
// writes lie on few pages of their own.
#pragma once

#include <cstddef>

namespace bri {

inline constexpr size_t kApart = 64;

} // namespace bri
