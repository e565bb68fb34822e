// Printable names of event types and submodules.
#include "client/event_names.h"

#include "base/message.h"

namespace bri::client {

namespace {

constexpr bool rows_count_up() {
    for (uint32_t submod = 0; submod < std::size(kSubmodNames); ++submod)
        if (kSubmodNames[submod].submod != submod)
            return false;
    return true;
}

static_assert(rows_count_up(), "submodules are looked up by position");

} // namespace

} // namespace bri::client

using namespace bri;
using namespace bri::client;

const char *bri_msg_type_name(uint32_t type) {
    const uint32_t submod = submod_of(type);
    return find_name(kEventNames, type,
                     submod < std::size(kSubmodNames) ? kSubmodNames[submod].fallback : kNoEventName);
}

const char *bri_submod_name(uint32_t submod) {
    return submod < std::size(kSubmodNames) ? kSubmodNames[submod].text : kNoSubmodName;
}
