// What the fuzz targets share.
#pragma once

#include <cstdlib>

namespace fuzz {

// Stops the run with the input at hand; unlike assert also in an optimised build.
inline void require(bool held) {
    if (!held)
        std::abort();
}

} // namespace fuzz
