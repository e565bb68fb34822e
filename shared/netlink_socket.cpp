#include "base/log.h"
#include "shared/netlink_channel.h"
#include "shared/netlink_frame.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

namespace bri::netlink {

namespace {

// A silent kernel must not hold the host's loop for ever: neither a query nor the resolution of the family.
constexpr timeval kReceiveTimeout{10, 0};

// So long is a full socket tried again.
constexpr int64_t kFullMilliseconds = 100;

// A socket without the time-out is as good as one with it until the kernel falls silent.
[[nodiscard]] bool prepare(int fd, uint32_t groups) {
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = groups;
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return false;
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &kReceiveTimeout, sizeof kReceiveTimeout);
    return true;
}

// The time in which one message must be gone once the socket was full.
class Patience {
  public:
    // Waits until the socket has room; false when the time is up. At least a millisecond: a socket may refuse what it
    // says that it has room for.
    [[nodiscard]] bool wait(int fd) {
        if (end_ == 0)
            end_ = now() + kFullMilliseconds;
        const int64_t left = end_ - now();
        if (left <= 0)
            return false;
        pollfd room{fd, POLLOUT, 0};
        if (poll(&room, 1, static_cast<int>(left)) > 0)
            poll(nullptr, 0, 1);
        return true;
    }

  private:
    // Milliseconds of a clock that nobody sets.
    [[nodiscard]] static int64_t now() {
        timespec time{};
        clock_gettime(CLOCK_MONOTONIC, &time);
        return int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1000000;
    }

    int64_t end_ = 0;
};

[[nodiscard]] bool send_all(int fd, Bytes bytes) {
    if (fd < 0)
        return false;
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    for (Patience patience; bytes.size != 0;) {
        errno = 0;
        const ssize_t sent = sendto(fd, bytes.data, bytes.size, MSG_NOSIGNAL,
                                    reinterpret_cast<const sockaddr *>(&kernel), sizeof kernel);
        if (sent > 0)
            bytes = bytes.from(static_cast<size_t>(sent));
        else if (errno != EAGAIN || !patience.wait(fd))
            return false;
    }
    return true;
}

// Two functions, since each has a large buffer: the stack of a host, whose pages stay once they were touched, holds one
// at a time.
[[nodiscard, gnu::noinline]] bool ask_for_family(int fd) {
    Request request;
    return build_resolution(request, kFamilyName) && send_all(fd, request.bytes());
}

[[nodiscard, gnu::noinline]] uint16_t family_told(int fd) {
    uint8_t answer[kFrameMax];
    const ssize_t received = recv(fd, answer, sizeof answer, 0);
    return received > 0 ? family_id_in({answer, static_cast<size_t>(received)}, kFamilyName) : uint16_t{0};
}

} // namespace

int open_socket(uint32_t groups) {
    Fd fd(above_zero(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_GENERIC)));
    return fd.ok() && prepare(fd.get(), groups) ? fd.release() : -1;
}

uint16_t resolve_family(int fd) {
    if (!ask_for_family(fd))
        return 0;
    const uint16_t id = family_told(fd);
    if (id == 0)
        BRI_LOG(log::kClient, "[%s] netlink msg type error.\n", name());
    return id;
}

bool data_fits(const void *data, uint32_t len) {
    return len <= kDataMax && (data != nullptr || len == 0);
}

DataPayload::DataPayload(const void *data, uint32_t len, int32_t type)
    : size_(sizeof(DataHeader) + len), bytes_(static_cast<uint8_t *>(std::malloc(size_))) {
    if (!ok())
        return;
    const DataHeader header{type, len};
    std::memcpy(bytes_.get(), &header, sizeof header);
    if (len != 0)
        std::memcpy(bytes_.get() + sizeof header, data, len);
}

bool send_data(int fd, int32_t family, const DataPayload &payload) {
    constexpr uint16_t kAttrType = 0;
    Request request;
    return request.build(static_cast<uint16_t>(family), kAttrType, payload.bytes()) && send_all(fd, request.bytes());
}

} // namespace bri::netlink
