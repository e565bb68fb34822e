#include "tests/support/kernel.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <poll.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <utility>

namespace test {

namespace {

// The double's own calls are neither counted nor hooked.
using faults::Pause;

constexpr size_t kHeaderSize = 20;

ino_t inode_of(int fd) {
    struct stat status {};
    return fstat(fd, &status) == 0 ? status.st_ino : 0;
}

bool hung_up(int fd) {
    pollfd descriptor{fd, POLLIN, 0};
    return poll(&descriptor, 1, 0) > 0 && (descriptor.revents & POLLHUP) != 0;
}

Packet padded(Packet bytes) {
    bytes.resize((bytes.size() + 3) / 4 * 4);
    return bytes;
}

} // namespace

Packet KernelRequest::data() const {
    const size_t length = std::min<size_t>(data_length(), bytes.size() > 32 ? bytes.size() - 32 : 0);
    return {bytes.begin() + 32, bytes.begin() + 32 + static_cast<ptrdiff_t>(length)};
}

Packet netlink_attr(uint16_t type, const Packet &payload) {
    const nlattr header{static_cast<uint16_t>(sizeof(nlattr) + payload.size()), type};
    return padded(packet_of(header) + payload);
}

Packet netlink_message(uint16_t type, uint8_t command, const Packet &attributes, uint32_t claimed_length) {
    const auto length = static_cast<uint32_t>(kHeaderSize + attributes.size());
    const nlmsghdr header{claimed_length != 0 ? claimed_length : length, type, 0, 0, 0};
    const genlmsghdr generic{command, 1, 0};
    return packet_of(header) + packet_of(generic) + attributes;
}

Packet netlink_error(int error) {
    const nlmsghdr header{sizeof(nlmsghdr) + sizeof(nlmsgerr), NLMSG_ERROR, 0, 0, 0};
    return packet_of(header) + packet_of(nlmsgerr{error, {}});
}

Packet family_answer(const std::string &name, uint16_t id) {
    Packet text(name.begin(), name.end());
    text.push_back(0);
    return netlink_message(GENL_ID_CTRL, CTRL_CMD_NEWFAMILY,
                           netlink_attr(CTRL_ATTR_FAMILY_NAME, text) +
                               netlink_attr(CTRL_ATTR_FAMILY_ID, packet_of(id)) +
                               netlink_attr(CTRL_ATTR_VERSION, packet_of(uint32_t{1})));
}

Kernel::Kernel() {
    install();
}

Kernel::~Kernel() {
    faults::hooks.socket = nullptr;
    faults::hooks.bind = nullptr;
    faults::hooks.setsockopt = nullptr;
    faults::hooks.sendto = nullptr;
    faults::hooks.close = nullptr;
    for (const KernelSocket &socket : sockets)
        if (socket.peer >= 0)
            faults::real_close(socket.peer);
}

void Kernel::install() {
    faults::hooks.socket = [this](int domain, int type, int protocol) {
        if (domain != AF_NETLINK)
            return faults::real_socket(domain, type, protocol);
        const Pause pause;
        int pair[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | (type & SOCK_CLOEXEC), 0, pair) != 0)
            return -1;
        KernelSocket socket;
        socket.fd = pair[0];
        socket.inode = inode_of(pair[0]);
        socket.peer = pair[1];
        socket.type = type;
        socket.protocol = protocol;
        sockets.push_back(socket);
        return socket.fd;
    };
    faults::hooks.bind = [this](int fd, const sockaddr *address, socklen_t length) {
        KernelSocket *socket = find(fd);
        if (socket == nullptr)
            return faults::real_bind(fd, address, length);
        std::memcpy(&socket->address, address, std::min<size_t>(length, sizeof socket->address));
        socket->bound = true;
        return 0;
    };
    faults::hooks.setsockopt = [this](int fd, int level, int name, const void *value, socklen_t length) {
        KernelSocket *socket = find(fd);
        if (socket == nullptr || level != SOL_SOCKET || name != SO_RCVTIMEO)
            return faults::real_setsockopt(fd, level, name, value, length);
        std::memcpy(&socket->receive_timeout, value, sizeof socket->receive_timeout);
        const timeval shorter{timeout_ms / 1000, timeout_ms % 1000 * 1000};
        return faults::real_setsockopt(fd, level, name, timeout_ms != 0 ? &shorter : value, length);
    };
    faults::hooks.sendto = [this](int fd, const void *data, size_t size, int flags, const sockaddr *to,
                                  socklen_t length) {
        if (find(fd) == nullptr)
            return faults::real_sendto(fd, data, size, flags, to, length);
        return take_request(fd, data, size, to, length);
    };
    faults::hooks.close = [this](int fd) {
        KernelSocket *socket = find(fd);
        const int result = faults::real_close(fd);
        if (socket != nullptr && hung_up(socket->peer)) // its last descriptor
            faults::real_close(std::exchange(socket->peer, -1));
        return result;
    };
}

// By the socket behind a descriptor, since the library may move it to another number.
KernelSocket *Kernel::find(int fd) {
    const ino_t inode = inode_of(fd);
    for (KernelSocket &socket : sockets)
        if (socket.inode == inode && socket.peer >= 0) {
            socket.fd = fd;
            return &socket;
        }
    return nullptr;
}

ssize_t Kernel::take_request(int fd, const void *data, size_t size, const sockaddr *to, socklen_t length) {
    const Pause pause;
    const auto *bytes = static_cast<const uint8_t *>(data);
    KernelRequest request;
    request.fd = fd;
    request.bytes.assign(bytes, bytes + size);
    std::memcpy(&request.to, to, std::min<size_t>(length, sizeof request.to));
    KernelSocket &socket = *find(fd);
    if (std::none_of(requests.begin(), requests.end(), [&](const KernelRequest &old) { return old.fd == fd; }))
        socket.timeout_at_resolution = socket.receive_timeout.tv_sec != 0;
    requests.push_back(request);
    respond(request);
    return static_cast<ssize_t>(size);
}

void Kernel::respond(const KernelRequest &request) {
    if (silent)
        return;
    if (request.message_type() != GENL_ID_CTRL) {
        if (on_data)
            on_data(request);
    } else if (on_resolve) {
        on_resolve(request);
    } else if (family != 0) {
        deliver(request.fd, family_answer("EF_BRIDGE", family));
    } else {
        answer_error(request, -ENOENT);
    }
}

void Kernel::deliver(int fd, const Packet &packet) const {
    const Pause pause;
    for (const KernelSocket &socket : sockets)
        if (socket.fd == fd && socket.peer >= 0 &&
            faults::real_send(socket.peer, packet.data(), packet.size(), MSG_NOSIGNAL) !=
                static_cast<ssize_t>(packet.size()))
            std::abort();
}

void Kernel::answer(const KernelRequest &request, const Packet &payload) const {
    deliver(request.fd, netlink_message(family, 3, netlink_attr(0, payload)));
}

void Kernel::answer_error(const KernelRequest &request, int error) const {
    deliver(request.fd, netlink_error(error));
}

std::vector<KernelRequest> Kernel::data_requests() const {
    std::vector<KernelRequest> found;
    std::copy_if(requests.begin(), requests.end(), std::back_inserter(found),
                 [](const KernelRequest &request) { return request.message_type() != GENL_ID_CTRL; });
    return found;
}

int Kernel::open_sockets() const {
    return static_cast<int>(
        std::count_if(sockets.begin(), sockets.end(), [](const KernelSocket &socket) { return socket.peer >= 0; }));
}

KernelSocket *Kernel::persistent() {
    for (KernelSocket &socket : sockets)
        if (socket.peer >= 0 && socket.address.nl_groups != 0)
            return &socket;
    return nullptr;
}

} // namespace test
