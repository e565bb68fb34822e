#include "tests/l2/transport.h"

#include <cstdint>

extern "C" {

int __real_bridge_client_send_message(const void *data, uint32_t len, uint32_t type);
int __real_bridge_lib_send_netlink(const uint8_t *data, uint32_t len, int32_t type);

int __wrap_bridge_client_send_message(const void *data, uint32_t len, uint32_t type);
int __wrap_bridge_client_send_message(const void *data, uint32_t len, uint32_t type) {
    return test::transport_gives ? *test::transport_gives : __real_bridge_client_send_message(data, len, type);
}

int __wrap_bridge_lib_send_netlink(const uint8_t *data, uint32_t len, int32_t type);
int __wrap_bridge_lib_send_netlink(const uint8_t *data, uint32_t len, int32_t type) {
    return test::transport_gives ? *test::transport_gives : __real_bridge_lib_send_netlink(data, len, type);
}

} // extern "C"
