#include "sandbox/kernel.h"

#include <algorithm>
#include <cerrno>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <sys/socket.h>

namespace sandbox {

namespace {

constexpr size_t kPacketMax = 65536;
constexpr size_t kTooLong = 10248;              // bytes of payload: with its headers more than a host takes
constexpr uint32_t kControllerNotices = 0x8000; // the group mask of the controller's own notices
constexpr uint8_t kDataCommand = 3;
constexpr Microseconds kExpiryStep{20000}; // what ages within that goes together
constexpr char kFamilyName[] = "EF_BRIDGE";

struct NetlinkHead {
    nlmsghdr message;
    genlmsghdr generic;
};
constexpr size_t kNetlinkHeaders = sizeof(NetlinkHead);

struct Attribute {
    uint16_t type;
    Bytes data;
};

Buffer netlink(uint16_t type, uint8_t command, std::initializer_list<Attribute> attributes) {
    Buffer body;
    for (const Attribute &attribute : attributes) {
        append(body, bytes_of(nlattr{static_cast<uint16_t>(sizeof(nlattr) + attribute.data.size()), attribute.type}));
        append(body, attribute.data);
        body.resize((body.size() + NLA_ALIGNTO - 1) / NLA_ALIGNTO * NLA_ALIGNTO);
    }
    const auto length = static_cast<uint32_t>(kNetlinkHeaders + body.size());
    Buffer message = buffer_of(bytes_of(NetlinkHead{{length, type, 0, 0, 0}, {command, 1, 0}}));
    append(message, body);
    return message;
}

// The controller's answer for the family, and its notice that the family has gone.
Buffer about_family(uint8_t command, uint16_t id) {
    return netlink(GENL_ID_CTRL, command,
                   {{CTRL_ATTR_FAMILY_NAME, bytes_of(kFamilyName)}, {CTRL_ATTR_FAMILY_ID, bytes_of(id)}});
}

bool asks_for_family(Bytes packet) {
    return packet.size() >= kNetlinkHeaders + sizeof(nlattr) + sizeof kFamilyName &&
           std::memcmp(packet.data() + kNetlinkHeaders + sizeof(nlattr), kFamilyName, sizeof kFamilyName) == 0;
}

// The error word, then the head of the request that caused it.
Buffer error_answer(int error, Bytes request) {
    struct {
        nlmsghdr head;
        int error;
        nlmsghdr cause;
    } const answer{{sizeof answer, NLMSG_ERROR, 0, 0, 0}, -error, object_of<nlmsghdr>(request)};
    return buffer_of(bytes_of(answer));
}

// A message to the family as kHostSaid has it; nothing when it is cut or its length word is wrong.
Bytes said_in(Bytes packet) {
    constexpr size_t head = kNetlinkHeaders + sizeof(nlattr);
    const Bytes said = packet.size() < head + sizeof(bri_msg_hdr) ? Bytes() : packet.subspan(head);
    const auto length = object_of<bri_msg_hdr>(said).len;
    return said.empty() || said.size() - sizeof(bri_msg_hdr) < length ? Bytes()
                                                                      : said.first(sizeof(bri_msg_hdr) + length);
}

} // namespace

struct Kernel::Socket : std::enable_shared_from_this<Socket> {
    Socket(Kernel &module, evutil_socket_t descriptor) : fd(descriptor), kernel(module) {
        const auto on_readable = [](evutil_socket_t, short, void *argument) {
            auto &self = *static_cast<Socket *>(argument);
            self.kernel.read_packet(self);
        };
        readable.reset(event_new(module.loop_.base(), descriptor, EV_READ | EV_PERSIST, on_readable, this));
        if (!module.held_)
            event_add(readable.get(), nullptr);
    }

    [[nodiscard]] bool listens() const { return (groups & kControllerNotices) != 0; }
    // Like the kernel's, a message that the socket has no room for is lost.
    void send(Bytes message) const {
        static_cast<void>(::send(fd.get(), message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL));
    }

    Fd fd;
    Kernel &kernel;
    Event readable; // behind fd: released before the descriptor closes
    bool bound = false;
    uint32_t groups = 0;
};

Kernel::Kernel(Loop &loop, const std::string &tmpdir, Announce tell, Answers answers)
    : loop_(loop), path_(socket_path(tmpdir, ".kernel_socket")), tell_(std::move(tell)),
      answers_(std::move(answers)), tables_{tell_, [this] { return loop_.now(); }},
      delay_timer_(loop, [this] { send_due(); }), expiry_timer_(loop, [this] {
          tables_.change([](MacTable &macs, Microseconds now, MacNews &news) { macs.expire(now, news); });
          watch_for_expiry();
      }) {}

void Kernel::listen() {
    acceptor_.emplace(loop_, path_, SOCK_SEQPACKET, Access::kEverybody, [this](evutil_socket_t descriptor) {
        sockets_.push_back(std::make_shared<Socket>(*this, descriptor));
    });
}

KernelResult Kernel::ask(uint32_t type, Bytes data) {
    if (type == kSetModule) {
        if (data.size() < sizeof(KernelModule))
            return {EINVAL};
        set_module(object_of<KernelModule>(data));
        return {};
    }
    if (type == kReadModule)
        return answer_of(module());
    KernelResult result = handle(tables_, Asker::kServer, type, data);
    watch_for_expiry();
    return result;
}

KernelModule Kernel::module() const {
    KernelModule module = module_;
    module.sockets = static_cast<uint32_t>(sockets_.size());
    for (const auto &socket : sockets_)
        module.listeners += socket->listens() ? 1U : 0U;
    return module;
}

void Kernel::set_module(const KernelModule &wanted) {
    constexpr auto down = static_cast<uint32_t>(KernelState::kDown);
    const bool goes = module_.state != down && wanted.state == down;
    const bool comes = module_.state == down && wanted.state != down;
    module_ = {wanted.state, wanted.error, wanted.delay_ms, 0, 0, module_.family + (comes ? 1 : 0)};
    if (!goes)
        return;
    // Nobody is told what was in the tables: hosts are asked for their data when the module comes back.
    tables_.macs.clear();
    tables_.hosts.clear();
    for (const auto &socket : sockets_)
        if (socket->listens())
            socket->send(about_family(CTRL_CMD_DELFAMILY, static_cast<uint16_t>(module_.family)));
}

bool Kernel::serve() {
    for (auto socket = sockets_.begin(); socket != sockets_.end();)
        if (read_packet(**socket++)) // which may remove it
            return true;
    return false;
}

bool Kernel::is_asked() const {
    char first = 0;
    return std::any_of(sockets_.begin(), sockets_.end(), [&](const auto &socket) {
        return recv(socket->fd.get(), &first, sizeof first, MSG_PEEK | MSG_DONTWAIT) > 0;
    });
}

bool Kernel::read_packet(Socket &socket) {
    static uint8_t packet[kPacketMax];
    const ssize_t length = recv(socket.fd.get(), packet, sizeof packet, 0);
    if (length < 0 && (errno == EAGAIN || errno == EINTR))
        return false;
    if (length <= 0) {
        sockets_.remove_if([&](const auto &other) { return other.get() == &socket; });
        return false;
    }
    const Bytes bytes{packet, static_cast<size_t>(length)};
    if (!socket.bound) {
        socket.bound = true;
        socket.groups = object_of<sockaddr_nl>(bytes).nl_groups;
        return false;
    }
    answer(socket, bytes);
    return true;
}

void Kernel::answer(const Socket &socket, Bytes packet) {
    const uint16_t type = object_of<nlmsghdr>(packet).nlmsg_type;
    const bool there = static_cast<KernelState>(module_.state) != KernelState::kDown;
    if (there && type == module_.family)
        take_message(socket, packet);
    else if (there && type == GENL_ID_CTRL && asks_for_family(packet))
        send(socket, about_family(CTRL_CMD_NEWFAMILY, static_cast<uint16_t>(module_.family)));
    else
        send(socket, error_answer(ENOENT, packet));
}

void Kernel::take_message(const Socket &socket, Bytes packet) {
    const auto state = static_cast<KernelState>(module_.state);
    const Bytes said = said_in(packet);
    if (!said.empty())
        tell_(kHostSaid, said);
    if (state == KernelState::kSilent)
        return;
    if (state == KernelState::kError)
        return send(socket, error_answer(static_cast<int>(module_.error), packet));
    KernelResult result{EINVAL};
    if (!said.empty())
        result = answer_host(object_of<uint32_t>(said), said.subspan(sizeof(bri_msg_hdr)));
    watch_for_expiry();
    if (result.error != 0) // the kernel says so to whoever has sent the message
        return send(socket, error_answer(result.error, packet));
    if (result.answer.empty())
        return;
    if (state == KernelState::kLong)
        result.answer.resize(kTooLong);
    send(socket, netlink(static_cast<uint16_t>(module_.family), kDataCommand, {{0, result.answer}}));
}

KernelResult Kernel::answer_host(uint32_t type, Bytes data) {
    std::optional<KernelResult> given = answers_ ? answers_(type, data) : std::nullopt;
    return given ? std::move(*given) : handle(tables_, Asker::kHost, type, data);
}

// In the order of the questions, whatever the delay was in between.
void Kernel::send(const Socket &socket, Bytes message) {
    const Microseconds delay = Milliseconds(module_.delay_ms);
    if (delay.count() == 0 && delayed_.empty())
        return socket.send(message);
    const Microseconds earliest = delayed_.empty() ? Microseconds(0) : delayed_.back().due;
    delayed_.push_back({std::max(loop_.now() + delay, earliest), socket.weak_from_this(), buffer_of(message)});
    if (delayed_.size() == 1)
        delay_timer_.start(delay);
}

void Kernel::send_due() {
    for (; !delayed_.empty() && delayed_.front().due <= loop_.now(); delayed_.pop_front())
        if (const auto socket = delayed_.front().socket.lock())
            socket->send(delayed_.front().message);
    if (!delayed_.empty())
        delay_timer_.start(std::max(delayed_.front().due - loop_.now(), Microseconds(1)));
}

void Kernel::watch_for_expiry() {
    const std::optional<Microseconds> next = tables_.macs.next_expiry();
    if (next)
        expiry_timer_.start(std::max(*next - loop_.now(), kExpiryStep));
    else
        expiry_timer_.cancel();
}

} // namespace sandbox
