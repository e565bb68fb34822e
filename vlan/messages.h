// The entries by which messages of the server reach this room; the dispatcher's routes hold them.
#pragma once

#include "base/message.h"

namespace bri::vlan {

// The types whose messages carry a version, which decides whether they are handed on.
inline constexpr uint32_t kFirstVersioned = VLAN_EVENT_CREATE_INDEX;
inline constexpr uint32_t kVersionedTypes = 4;

[[nodiscard]] constexpr bool is_versioned(uint32_t type) {
    return type - kFirstVersioned < kVersionedTypes;
}

// Requests that come back, a counter nobody follows, and the debug switch: handed to nobody.
[[nodiscard]] constexpr bool is_internal(uint32_t type) {
    return type == DEBUG_EVENT_VLAN || type == VLAN_EVENT_SET_ADD_DYN_INTF || type == VLAN_EVENT_SET_DEL_DYN_INTF ||
           type == VLAN_EVENT_SVI_MODIFY_UP_NUM;
}

void on_message(const Message &message); // vlan_events.cpp

} // namespace bri::vlan

namespace bri::groups {

void on_message(const Message &message); // vlan_group.cpp

} // namespace bri::groups
