// The entries by which messages of the server reach this room; the dispatcher's routes hold them.
#pragma once

#include "base/message.h"

namespace bri::vlan {

void on_message(const Message &message); // vlan_events.cpp

} // namespace bri::vlan

namespace bri::groups {

void on_message(const Message &message); // vlan_group.cpp

} // namespace bri::groups
