// One-shot queries: a socket, a request and one answer each.
#include "base/log.h"
#include "shared/netlink_channel.h"

#include <bridge/netlink.h>

namespace bri::netlink {

namespace {

constexpr uint32_t kNoGroups = 0;

[[nodiscard]] void *query(const void *data, uint32_t len, int32_t type) {
    const Fd fd(open_socket(kNoGroups));
    if (!fd.ok())
        return nullptr;
    const uint16_t family = resolve_family(fd.get());
    if (family == 0)
        return nullptr;
    const DataPayload payload(data, len, type);
    if (!payload.ok())
        return nullptr;
    BRI_LOG(log::kClient, "[%s] Query netlink, sock_fd(%d), family_id(%d), type(%d), len(%d).\n", name(), fd.get(),
            family, type, static_cast<int>(len));
    if (send_data(fd.get(), family, payload))
        return bridge_lib_feedback_netlink(fd.get(), family);
    BRI_LOG(log::kClient, "[%s] Query netlink error.\n", name());
    return nullptr;
}

} // namespace

} // namespace bri::netlink

using namespace bri;
using namespace bri::netlink;

void *bridge_lib_query_netlink(const void *data, uint32_t len, int32_t type) {
    if (!bri::netlink::data_fits(data, len)) {
        BRI_LOG(bri::log::kClient, "[%s] Query netlink error.\n", bri::netlink::name());
        return nullptr;
    }
    return bri::netlink::query(data, len, type);
}

void *bridge_lib_feedback_netlink(int fd, int32_t family_id) {
    static bri::netlink::ReplyBuffer buffer;
    return bri::netlink::receive_payload(fd, family_id, buffer, nullptr);
}
