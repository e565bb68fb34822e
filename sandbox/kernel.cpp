#include "sandbox/kernel.h"

#include "sandbox/kernel_messages.h"
#include "sandbox/local_socket.h"
#include "sandbox/netlink_reply.h"
#include "sandbox/parse.h"

#include <cerrno>
#include <sys/socket.h>
#include <utility>
#include <vector>

namespace sandbox {

namespace {

constexpr size_t kPacketMax = 65536;
constexpr size_t kTooLong = 10248;              // bytes of payload: with its headers more than a host takes
constexpr uint32_t kControllerNotices = 0x8000; // the group mask of the controller's own notices
constexpr uint8_t kDataCommand = 3;

} // namespace

class Kernel::Socket {
  public:
    Socket(Kernel &kernel, evutil_socket_t descriptor) : fd_(descriptor), kernel_(kernel) {
        const auto on_readable = [](evutil_socket_t, short, void *argument) {
            auto &self = *static_cast<Socket *>(argument);
            self.kernel_.read_packet(self);
        };
        readable_.reset(event_new(kernel.loop_.base(), descriptor, EV_READ | EV_PERSIST, on_readable, this));
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
    void refuse(int error, Bytes request) const {
        const std::vector<uint8_t> bytes = error_answer(error, request);
        send({bytes.data(), bytes.size()});
    }

  private:
    bri::Fd fd_;
    Kernel &kernel_;
    Event readable_; // behind fd_: released before the descriptor closes
    bool bound_ = false;
    uint32_t groups_ = 0;
};

Kernel::Kernel(Loop &loop, const std::string &tmpdir, Trace &trace, Addresses &addresses)
    : loop_(loop), trace_(trace), addresses_(addresses), path_(socket_path(tmpdir, ".kernel_socket")) {}

Kernel::~Kernel() {
    if (listener_ != nullptr)
        unlink(path_.c_str());
}

void Kernel::listen() {
    const auto on_accept = [](evconnlistener *, evutil_socket_t descriptor, sockaddr *, int, void *self) {
        static_cast<Kernel *>(self)->accept(descriptor);
    };
    const unsigned options = LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC;
    listener_.reset(evconnlistener_new(loop_.base(), on_accept, this, options, 0, listen_at(path_, SOCK_SEQPACKET)));
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

void Kernel::set_state(KernelState state, int error) {
    const KernelState before = std::exchange(state_, state);
    error_ = error;
    if ((before == KernelState::kDown) == (state == KernelState::kDown))
        return;
    if (state != KernelState::kDown) {
        ++family_;
        return;
    }
    addresses_.clear();
    tell_listeners_of_the_end();
}

void Kernel::tell_listeners_of_the_end() const {
    for (const auto &socket : sockets_)
        if (socket->listens())
            socket->send(family_gone(family_).bytes());
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

void Kernel::answer(const Socket &socket, Bytes packet) {
    const uint16_t type = bri::load_at<nlmsghdr>(packet, 0).nlmsg_type;
    const bool there = state_ != KernelState::kDown;
    if (there && type == family_)
        take_message(socket, packet);
    else if (there && type == GENL_ID_CTRL && asks_for_family(packet))
        socket.send(family_answer(family_).bytes());
    else
        socket.refuse(ENOENT, packet);
}

void Kernel::take_message(const Socket &socket, Bytes packet) {
    const std::optional<KernelMessage> message = kernel_message(packet);
    if (message)
        trace_.note("kernel: got " + event_text(message->type) + ", " + std::to_string(message->data.size) + " bytes");
    if (state_ == KernelState::kSilent)
        return;
    if (state_ == KernelState::kError)
        return socket.refuse(error_, packet);
    KernelResult result = message ? handle(addresses_, *message) : KernelResult{EINVAL, {}};
    if (result.error != 0 && !socket.listens()) // somebody waits for it
        return socket.refuse(result.error, packet);
    if (result.answer.empty())
        return;
    if (state_ == KernelState::kLong)
        result.answer.resize(kTooLong);
    socket.send(NetlinkReply(family_, kDataCommand).attribute(0, result.answer.data(), result.answer.size()).bytes());
}

} // namespace sandbox
