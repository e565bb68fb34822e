// One-shot queries: a socket, a request and one answer each.
#include "base/apart.h"
#include "base/counters.h"
#include "base/log.h"
#include "shared/netlink_channel.h"

#include <bridge/netlink.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

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

uint64_t microseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_nsec / 1000);
}

// errno is that of the failure.
[[nodiscard]] void *counted(void *answer, [[maybe_unused]] int32_t type, uint64_t begun) {
    bri_counters &count = counters::g_loop;
    ++(answer != nullptr ? count.lookups_done : errno == EAGAIN ? count.lookups_timed_out : count.lookups_failed);
    const uint64_t taken = microseconds() - begun;
    count.lookup_longest = std::max(count.lookup_longest, taken);
    BRI_PROBE(lookup_end, type, answer != nullptr ? 1 : 0, taken);
    return answer;
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
    const uint64_t begun = bri::netlink::microseconds();
    BRI_PROBE(lookup_begin, type);
    errno = 0;
    return bri::netlink::counted(bri::netlink::query(data, len, type), type, begun);
}

void *bridge_lib_feedback_netlink(int fd, int32_t family_id) {
    BRI_APART static bri::netlink::ReplyBuffer buffer;
    return bri::netlink::receive_payload(fd, family_id, buffer, nullptr);
}
