// The entries by which messages of the server reach this room; the dispatcher's routes hold them.
#pragma once

#include "base/message.h"

namespace bri::mac {

void on_message(const Message &message); // mac_server_msg.cpp

} // namespace bri::mac

namespace bri::mvlan {

void on_message(const Message &message); // mac_vlan.cpp

} // namespace bri::mvlan

namespace bri::l2top {

void on_message(const Message &message); // topology_origin.cpp

} // namespace bri::l2top
