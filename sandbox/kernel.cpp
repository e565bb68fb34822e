#include "sandbox/kernel.h"

#include "sandbox/kernel_messages.h"
#include "sandbox/local_socket.h"
#include "sandbox/netlink_reply.h"

#include <algorithm>
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
constexpr Microseconds kExpiryStep{20000}; // what ages within that goes together

std::vector<uint8_t> host_said(const KernelMessage &message) {
    const Bytes type = bytes_of(message.type);
    std::vector<uint8_t> bytes(type.data, type.data + type.size);
    bytes.insert(bytes.end(), message.data.data, message.data.data + message.data.size);
    return bytes;
}

} // namespace

class Kernel::Socket : public std::enable_shared_from_this<Socket> {
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

  private:
    bri::Fd fd_;
    Kernel &kernel_;
    Event readable_; // behind fd_: released before the descriptor closes
    bool bound_ = false;
    uint32_t groups_ = 0;
};

Kernel::Kernel(Loop &loop, const std::string &tmpdir, Announce tell)
    : loop_(loop), path_(socket_path(tmpdir, ".kernel_socket")), tell_(std::move(tell)),
      tables_(tell_, [this] { return loop_.now(); }), delay_timer_(loop, [this] { send_due(); }),
      expiry_timer_(loop, [this] { expire(); }) {}

Kernel::~Kernel() {
    if (listener_ != nullptr)
        remove_socket(path_);
}

void Kernel::listen() {
    const auto on_accept = [](evconnlistener *, evutil_socket_t descriptor, sockaddr *, int, void *self) {
        static_cast<Kernel *>(self)->accept(descriptor);
    };
    const unsigned options = LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC;
    listener_.reset(evconnlistener_new(loop_.base(), on_accept, this, options, 0, listen_at(path_, SOCK_SEQPACKET)));
}

void Kernel::accept(evutil_socket_t descriptor) {
    sockets_.push_back(std::make_shared<Socket>(*this, descriptor));
}

KernelResult Kernel::ask(const KernelMessage &message) {
    if (message.type == kSetModule) {
        if (message.data.size < sizeof(KernelModule))
            return {EINVAL, {}};
        set_module(bri::load_at<KernelModule>(message.data, 0));
        return {};
    }
    if (message.type == kReadModule)
        return answer_of(module());
    KernelResult result = handle(tables_, Asker::kServer, message);
    watch_for_expiry();
    return result;
}

KernelModule Kernel::module() const {
    return {static_cast<uint32_t>(state_),
            static_cast<uint32_t>(error_),
            static_cast<uint32_t>(delay_.count() / 1000),
            static_cast<uint32_t>(sockets_.size()),
            static_cast<uint32_t>(listeners()),
            family_};
}

size_t Kernel::listeners() const {
    size_t count = 0;
    for (const auto &socket : sockets_)
        count += socket->listens() ? 1U : 0U;
    return count;
}

void Kernel::set_module(const KernelModule &wanted) {
    const KernelState before = std::exchange(state_, static_cast<KernelState>(wanted.state));
    error_ = static_cast<int>(wanted.error);
    delay_ = Milliseconds(wanted.delay_ms);
    if ((before == KernelState::kDown) == (state_ == KernelState::kDown))
        return;
    if (state_ != KernelState::kDown) {
        ++family_;
        return;
    }
    tables_.clear();
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
        send(socket, family_answer(family_).bytes());
    else
        refuse(socket, ENOENT, packet);
}

void Kernel::take_message(const Socket &socket, Bytes packet) {
    const std::optional<KernelMessage> message = kernel_message(packet);
    if (message) {
        const std::vector<uint8_t> said = host_said(*message);
        tell_(kHostSaid, {said.data(), said.size()});
    }
    if (state_ == KernelState::kSilent)
        return;
    if (state_ == KernelState::kError)
        return refuse(socket, error_, packet);
    KernelResult result = message ? handle(tables_, Asker::kHost, *message) : KernelResult{EINVAL, {}};
    watch_for_expiry();
    if (result.error != 0 && !socket.listens()) // somebody waits for it
        return refuse(socket, result.error, packet);
    if (result.answer.empty())
        return;
    if (state_ == KernelState::kLong)
        result.answer.resize(kTooLong);
    send(socket, NetlinkReply(family_, kDataCommand).attribute(0, result.answer.data(), result.answer.size()).bytes());
}

void Kernel::refuse(const Socket &socket, int error, Bytes request) {
    const std::vector<uint8_t> bytes = error_answer(error, request);
    send(socket, {bytes.data(), bytes.size()});
}

// In the order of the questions, whatever the delay was in between.
void Kernel::send(const Socket &socket, Bytes message) {
    if (delay_.count() == 0 && delayed_.empty())
        return socket.send(message);
    const Microseconds earliest = delayed_.empty() ? Microseconds(0) : delayed_.back().due;
    delayed_.push_back({std::max(loop_.now() + delay_, earliest),
                        socket.weak_from_this(),
                        {message.data, message.data + message.size}});
    if (delayed_.size() == 1)
        delay_timer_.start(delay_);
}

void Kernel::send_due() {
    for (; !delayed_.empty() && delayed_.front().due <= loop_.now(); delayed_.pop_front())
        if (const auto socket = delayed_.front().socket.lock())
            socket->send({delayed_.front().message.data(), delayed_.front().message.size()});
    if (!delayed_.empty())
        delay_timer_.start(std::max(delayed_.front().due - loop_.now(), Microseconds(1)));
}

void Kernel::expire() {
    tables_.change([](MacTable &macs, Microseconds now, MacNews &news) { macs.expire(now, news); });
    watch_for_expiry();
}

void Kernel::watch_for_expiry() {
    const std::optional<Microseconds> next = tables_.macs().next_expiry();
    if (next)
        expiry_timer_.start(std::max(*next - loop_.now(), kExpiryStep));
    else
        expiry_timer_.cancel();
}

} // namespace sandbox
