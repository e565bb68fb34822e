#include "frames/netlink.h"

#include <array>
#include <cerrno>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace frames {

namespace {

constexpr size_t kReadMost = 262144; // a link with thousands of VLAN ranges comes in one piece
constexpr int kListTries = 10;
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

std::optional<int> for_each_notice(Bytes run, uint32_t sequence, const Take &take) {
    const auto *message = reinterpret_cast<const nlmsghdr *>(run.data());
    auto left = static_cast<int>(run.size());
    for (; mnl_nlmsg_ok(message, left); message = mnl_nlmsg_next(message, &left)) {
        const Bytes body(static_cast<const uint8_t *>(mnl_nlmsg_get_payload(message)),
                         mnl_nlmsg_get_payload_len(message));
        const bool interrupted = (message->nlmsg_flags & NLM_F_DUMP_INTR) != 0;
        if (!mnl_nlmsg_seq_ok(message, sequence))
            continue;
        if (message->nlmsg_type == NLMSG_DONE || message->nlmsg_type == NLMSG_ERROR) {
            const int error = body.size() < sizeof(int) ? EBADMSG : -object_of<int>(body);
            return error == 0 && interrupted ? EINTR : error;
        }
        take({message->nlmsg_type, body, interrupted});
    }
    return left == 0 ? std::nullopt : std::optional(EBADMSG);
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

// Each request has a number of its own, by which its answer is known.
void Channel::send(const Request &request) {
    Buffer bytes = sandbox::buffer_of(request.bytes());
    reinterpret_cast<nlmsghdr *>(bytes.data())->nlmsg_seq = ++sequence_;
    if (mnl_socket_sendto(socket_.get(), bytes.data(), bytes.size()) < 0)
        fail("cannot ask the kernel");
}

// What the kernel, and no other process, has sent. Nothing when there is an error: EMSGSIZE for what came cut.
std::optional<Bytes> Channel::receive(int flags) const {
    while (true) {
        sockaddr_nl from{};
        socklen_t size = sizeof from;
        const ssize_t length = recvfrom(descriptor(), incoming().data(), incoming().size(), flags | MSG_TRUNC,
                                        reinterpret_cast<sockaddr *>(&from), &size);
        if (length < 0 ? errno == EINTR : from.nl_pid != 0)
            continue;
        if (length <= static_cast<ssize_t>(kReadMost))
            return length < 0 ? std::nullopt : std::optional(Bytes(incoming()).first(static_cast<size_t>(length)));
        errno = EMSGSIZE;
        return std::nullopt;
    }
}

int Channel::answer(const Request &request, const Take &take) {
    send(request);
    while (const auto run = receive(0))
        if (const auto end = for_each_notice(*run, sequence_, take))
            return *end;
    fail("the kernel does not answer");
}

// Kept until all has come: a list that was interrupted may lack what has been there all the time.
int Channel::dump(const Request &request, const Take &take) {
    int error = EINTR;
    for (int tries = 0; error == EINTR && tries < kListTries; ++tries) {
        std::vector<std::pair<uint16_t, Buffer>> taken;
        bool interrupted = false;
        error = answer(request, [&](const Notice &notice) {
            taken.emplace_back(notice.type, sandbox::buffer_of(notice.body));
            interrupted = interrupted || notice.interrupted;
        });
        if (error == 0 && interrupted)
            error = EINTR;
        for (size_t at = 0; error == 0 && at < taken.size(); ++at)
            take({taken[at].first, taken[at].second});
    }
    return error;
}

bool Channel::drain(const Take &take) {
    bool whole = true;
    while (true) {
        if (const auto run = receive(MSG_DONTWAIT))
            whole = !for_each_notice(*run, 0, take) && whole;
        else if (errno == ENOBUFS || errno == EMSGSIZE)
            whole = false;
        else
            return whole;
    }
}

} // namespace frames
