#include "sandbox/kernel.h"

#include "sandbox/local_socket.h"
#include "sandbox/output.h"

#include <cerrno>
#include <cstring>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <vector>

namespace sandbox {

namespace {

constexpr char kFamilyName[] = "EF_BRIDGE";
constexpr uint16_t kFamilyId = 0x23;
constexpr size_t kPacketMax = 65536;
constexpr size_t kHeaders = sizeof(nlmsghdr) + sizeof(genlmsghdr);
constexpr uint32_t kControllerNotices = 0x8000; // the group mask of the controller's own notices

// A netlink message under construction.
class Reply {
  public:
    Reply(uint16_t type, uint8_t command) : bytes_(kHeaders) {
        const nlmsghdr head{0, type, 0, 0, 0};
        const genlmsghdr generic{command, 1, 0};
        std::memcpy(bytes_.data(), &head, sizeof head);
        std::memcpy(bytes_.data() + sizeof head, &generic, sizeof generic);
        finish();
    }

    Reply &attribute(uint16_t type, const void *data, size_t size) {
        const nlattr head{static_cast<uint16_t>(sizeof(nlattr) + size), type};
        const size_t at = bytes_.size();
        bytes_.resize(at + NLA_ALIGN(head.nla_len));
        std::memcpy(bytes_.data() + at, &head, sizeof head);
        std::memcpy(bytes_.data() + at + sizeof head, data, size);
        finish();
        return *this;
    }

    [[nodiscard]] Bytes bytes() const { return {bytes_.data(), bytes_.size()}; }

  private:
    void finish() {
        const auto length = static_cast<uint32_t>(bytes_.size());
        std::memcpy(bytes_.data() + offsetof(nlmsghdr, nlmsg_len), &length, sizeof length);
    }

    std::vector<uint8_t> bytes_;
};

Reply family_answer() {
    return Reply(GENL_ID_CTRL, CTRL_CMD_NEWFAMILY)
        .attribute(CTRL_ATTR_FAMILY_NAME, kFamilyName, sizeof kFamilyName)
        .attribute(CTRL_ATTR_FAMILY_ID, &kFamilyId, sizeof kFamilyId);
}

Reply family_gone() {
    return Reply(GENL_ID_CTRL, CTRL_CMD_DELFAMILY)
        .attribute(CTRL_ATTR_FAMILY_NAME, kFamilyName, sizeof kFamilyName)
        .attribute(CTRL_ATTR_FAMILY_ID, &kFamilyId, sizeof kFamilyId);
}

// The error word, then the head of the request that caused it.
std::vector<uint8_t> error_answer(int error, Bytes request) {
    const nlmsghdr cause = bri::load_at<nlmsghdr>(request, 0);
    const nlmsghdr head{sizeof(nlmsghdr) + sizeof error + sizeof cause, NLMSG_ERROR, 0, 0, 0};
    const int word = -error;
    std::vector<uint8_t> bytes(head.nlmsg_len);
    std::memcpy(bytes.data(), &head, sizeof head);
    std::memcpy(bytes.data() + sizeof head, &word, sizeof word);
    std::memcpy(bytes.data() + sizeof head + sizeof word, &cause, sizeof cause);
    return bytes;
}

bool asks_for_family(Bytes packet) {
    return packet.holds(kHeaders + sizeof(nlattr), sizeof kFamilyName) &&
           std::memcmp(packet.data + kHeaders + sizeof(nlattr), kFamilyName, sizeof kFamilyName) == 0;
}

} // namespace

class Kernel::Socket {
  public:
    Socket(Kernel &kernel, evutil_socket_t descriptor) : fd_(descriptor), kernel_(kernel) {
        const auto on_readable = [](evutil_socket_t, short, void *argument) {
            auto &self = *static_cast<Socket *>(argument);
            self.kernel_.read_packet(self);
        };
        readable_.reset(event_new(kernel.base_, descriptor, EV_READ | EV_PERSIST, on_readable, this));
        event_add(readable_.get(), nullptr);
    }

    [[nodiscard]] int descriptor() const { return fd_.get(); }
    [[nodiscard]] bool bound() const { return bound_; }
    [[nodiscard]] bool listens() const { return (groups_ & kControllerNotices) != 0; }
    void bind(const sockaddr_nl &address) {
        bound_ = true;
        groups_ = address.nl_groups;
    }
    // Like the kernel's, a message that the socket has no room for is lost.
    void send(Bytes message) const {
        static_cast<void>(::send(fd_.get(), message.data, message.size, MSG_DONTWAIT | MSG_NOSIGNAL));
    }

  private:
    bri::Fd fd_;
    Kernel &kernel_;
    Event readable_; // behind fd_: released before the descriptor closes
    bool bound_ = false;
    uint32_t groups_ = 0;
};

Kernel::Kernel(event_base *base, const std::string &tmpdir)
    : base_(base), path_(socket_path(tmpdir, ".kernel_socket")) {}

Kernel::~Kernel() {
    if (listener_ != nullptr)
        unlink(path_.c_str());
}

void Kernel::listen() {
    const auto on_accept = [](evconnlistener *, evutil_socket_t descriptor, sockaddr *, int, void *self) {
        static_cast<Kernel *>(self)->accept(descriptor);
    };
    const unsigned options = LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC;
    listener_.reset(evconnlistener_new(base_, on_accept, this, options, 0, listen_at(path_, SOCK_SEQPACKET)));
}

void Kernel::accept(evutil_socket_t descriptor) {
    sockets_.push_back(std::make_unique<Socket>(*this, descriptor));
}

size_t Kernel::listeners() const {
    size_t count = 0;
    for (const auto &socket : sockets_)
        count += socket->listens() ? 1U : 0U;
    return count;
}

void Kernel::down() {
    up_ = false;
    for (const auto &socket : sockets_)
        if (socket->listens())
            socket->send(family_gone().bytes());
}

void Kernel::read_packet(Socket &socket) {
    static uint8_t packet[kPacketMax];
    const ssize_t length = recv(socket.descriptor(), packet, sizeof packet, 0);
    if (length < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (length <= 0) {
        sockets_.remove_if([&](const auto &other) { return other.get() == &socket; });
        return;
    }
    const Bytes bytes{packet, static_cast<size_t>(length)};
    if (!socket.bound())
        socket.bind(bri::load_at<sockaddr_nl>(bytes, 0));
    else
        answer(socket, bytes);
}

void Kernel::answer(const Socket &socket, Bytes packet) const {
    const uint16_t type = bri::load_at<nlmsghdr>(packet, 0).nlmsg_type;
    const auto refuse = [&](int error) {
        const std::vector<uint8_t> bytes = error_answer(error, packet);
        socket.send({bytes.data(), bytes.size()});
    };
    if (type == GENL_ID_CTRL)
        return up_ && asks_for_family(packet) ? socket.send(family_answer().bytes()) : refuse(ENOENT);
    if (!up_ || type != kFamilyId)
        return refuse(ENOENT);
    const auto message = bri::load_at<uint32_t>(packet, kHeaders + sizeof(nlattr));
    say("kernel: message type %u", message);
    if (!socket.listens())
        refuse(EOPNOTSUPP); // a question, and nothing here knows the answer
}

} // namespace sandbox
