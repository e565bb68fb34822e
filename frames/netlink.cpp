#include "frames/netlink.h"

#include <array>
#include <cerrno>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace frames {

namespace {

constexpr size_t kReadMost = 262144; // a link with thousands of VLAN ranges comes in one piece
constexpr int kQueueBytes = 8388608; // a flood of addresses comes faster than anybody reads

[[noreturn]] void fail(const char *what) {
    throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

// What one read gives: to be read before the next one.
Buffer &incoming() {
    static Buffer buffer(kReadMost);
    return buffer;
}

} // namespace

Request::Request(uint16_t type, uint16_t flags) : data_(kMost) {
    nlmsghdr *head = mnl_nlmsg_put_header(data_.data());
    head->nlmsg_type = type;
    head->nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | flags);
}

Request &Request::put(uint16_t type, Bytes data) {
    if (!mnl_attr_put_check(header(), kMost, type, data.size(), data.data()))
        throw std::length_error("a netlink message is full");
    return *this;
}

Request &Request::put(uint16_t type, const std::string &text) {
    return put(type, Bytes(reinterpret_cast<const uint8_t *>(text.c_str()), text.size() + 1));
}

size_t Request::begin_nest(uint16_t type) {
    const nlattr *start = mnl_attr_nest_start_check(header(), kMost, type);
    if (start == nullptr)
        throw std::length_error("a netlink message is full");
    return static_cast<size_t>(reinterpret_cast<const uint8_t *>(start) - data_.data());
}

bool Request::has_room(size_t attributes, size_t data) const {
    return header()->nlmsg_len + attributes * (kAttributeHead + aligned(data)) <= kMost;
}

std::string text_of(Bytes attribute) {
    const auto *text = reinterpret_cast<const char *>(attribute.data());
    return {text, strnlen(text, attribute.size())};
}

bool for_each_notice(Bytes run, const Take &take) {
    const auto *message = reinterpret_cast<const nlmsghdr *>(run.data());
    auto left = static_cast<int>(run.size());
    for (; mnl_nlmsg_ok(message, left); message = mnl_nlmsg_next(message, &left)) {
        if (message->nlmsg_type == NLMSG_DONE || message->nlmsg_type == NLMSG_ERROR)
            return false;
        take({message->nlmsg_type,
              {static_cast<const uint8_t *>(mnl_nlmsg_get_payload(message)), mnl_nlmsg_get_payload_len(message)}});
    }
    return left == 0;
}

Channel::Channel(std::span<const unsigned> groups) : socket_(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC)) {
    if (socket_ == nullptr || mnl_socket_bind(socket_.get(), 0, MNL_SOCKET_AUTOPID) < 0)
        fail("no routing netlink");
    if (!groups.empty() && // more than the system's limit is a privilege
        setsockopt(descriptor(), SOL_SOCKET, SO_RCVBUFFORCE, &kQueueBytes, sizeof kQueueBytes) != 0)
        setsockopt(descriptor(), SOL_SOCKET, SO_RCVBUF, &kQueueBytes, sizeof kQueueBytes);
    for (unsigned group : groups)
        if (mnl_socket_setsockopt(socket_.get(), NETLINK_ADD_MEMBERSHIP, &group, sizeof group) < 0)
            fail("no such netlink group");
}

void Channel::send(const Request &request) {
    if (mnl_socket_sendto(socket_.get(), request.bytes().data(), request.bytes().size()) < 0)
        fail("cannot ask the kernel");
}

// The error of an answer, if it is one: the word that its body begins with.
int Channel::ask(const Request &request) {
    send(request);
    while (true) {
        const ssize_t length = mnl_socket_recvfrom(socket_.get(), incoming().data(), incoming().size());
        if (length < 0 && errno != EINTR)
            fail("the kernel does not answer");
        const auto *message = reinterpret_cast<const nlmsghdr *>(incoming().data());
        if (length > 0 && mnl_nlmsg_ok(message, static_cast<int>(length)) && message->nlmsg_type == NLMSG_ERROR)
            return -object_of<int>(Bytes(incoming()).first(static_cast<size_t>(length)).subspan(sizeof(nlmsghdr)));
    }
}

int Channel::dump(const Request &request, const Take &take) {
    send(request);
    while (true) {
        const ssize_t length = mnl_socket_recvfrom(socket_.get(), incoming().data(), incoming().size());
        if (length < 0 && errno != EINTR)
            fail("the kernel does not answer");
        if (length <= 0)
            continue;
        const Bytes run = Bytes(incoming()).first(static_cast<size_t>(length));
        if (for_each_notice(run, take))
            continue;
        const auto head = object_of<nlmsghdr>(run);
        return head.nlmsg_type == NLMSG_ERROR ? -object_of<int>(run.subspan(sizeof(nlmsghdr))) : 0;
    }
}

bool Channel::drain(const Take &take) {
    bool whole = true;
    while (true) {
        const ssize_t length = recv(descriptor(), incoming().data(), incoming().size(), MSG_DONTWAIT);
        if (length > 0)
            for_each_notice(Bytes(incoming()).first(static_cast<size_t>(length)), take);
        else if (length < 0 && errno == ENOBUFS)
            whole = false;
        else if (length == 0 || errno != EINTR)
            return whole;
    }
}

} // namespace frames
