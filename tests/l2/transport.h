// What a send gives, chosen by the test: the library's own two transports never give more than 0 and -1, but each
// request says which results it tells apart.
#pragma once

#include <optional>

namespace test {

// The result of bridge_client_send_message and bridge_lib_send_netlink, in place of both; unset: the real calls.
inline std::optional<int> transport_gives;

} // namespace test
