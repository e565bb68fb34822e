// Tables that an enumeration indexes: each row names its key, and the compiler checks that it stands where the key
// says.
#pragma once

#include <cstddef>

namespace bri {

template <class Row, size_t Rows, class Key>
[[nodiscard]] constexpr bool each_at_its_key(const Row (&table)[Rows], Key Row::*key) {
    for (size_t index = 0; index < Rows; ++index)
        if (static_cast<size_t>(table[index].*key) != index)
            return false;
    return true;
}

} // namespace bri
