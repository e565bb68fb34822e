// Printable names of event types and submodules.
#include "client/event_names.h"

#include <algorithm>
#include <iterator>

namespace bri::client {

namespace {

constexpr bool by_type(const EventName &a, const EventName &b) {
    return a.type < b.type;
}

constexpr bool rows_count_up() {
    for (uint32_t submod = 0; submod < std::size(kSubmodNames); ++submod)
        if (kSubmodNames[submod].submod != submod)
            return false;
    return true;
}

static_assert(std::is_sorted(std::begin(kEventNames), std::end(kEventNames), by_type), "names rise by type");
static_assert(rows_count_up(), "submodules are looked up by position");

} // namespace

} // namespace bri::client

using namespace bri;
using namespace bri::client;

const char *bri_msg_type_name(uint32_t type) {
    const auto *row =
        std::lower_bound(std::begin(kEventNames), std::end(kEventNames), EventName{type, nullptr}, by_type);
    if (row != std::end(kEventNames) && row->type == type)
        return row->text;
    const uint32_t submod = type >> 7;
    return submod < std::size(kSubmodNames) ? kSubmodNames[submod].fallback : kNoEventName;
}

const char *bri_submod_name(uint32_t submod) {
    return submod < std::size(kSubmodNames) ? kSubmodNames[submod].text : kNoSubmodName;
}
