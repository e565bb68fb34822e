#include "sandbox/kernel_link.h"

#include <event2/buffer.h>

#include <cerrno>
#include <sys/socket.h>

namespace sandbox {

namespace {

// On the line are messages as on the server socket, a header and its data each; the server asks, and before an answer
// has come it asks nothing else. The module's process queues what it writes, so neither end waits for the other's room.
constexpr char kSocketName[] = ".kernel_control";
constexpr uint32_t kAnswer = 0x30000; // KernelResult: its error, uint32_t, and its answer
constexpr Microseconds kLookAgain{1000000};
constexpr timeval kLinkPatience{5, 0}; // with a process that hangs

std::string framed(uint32_t type, Bytes data) {
    const bri_msg_hdr header{type, static_cast<uint32_t>(data.size())};
    const Bytes head = bytes_of(header);
    return std::string(head.begin(), head.end()).append(data.begin(), data.end());
}

} // namespace

KernelLink::KernelLink(Loop &loop, std::string tmpdir, Trace &trace, Announce told)
    : loop_(loop), tmpdir_(std::move(tmpdir)), trace_(trace), told_(std::move(told)),
      again_(loop, [this] { look_again(); }) {}

void KernelLink::open() {
    if (!connect())
        inside_.emplace(loop_, tmpdir_, told_).listen();
}

// False when no process listens there.
bool KernelLink::connect() {
    try {
        fd_.emplace(connect_to(socket_path(tmpdir_, kSocketName)));
    } catch (const std::runtime_error &) {
        return false;
    }
    for (const int direction : {SO_RCVTIMEO, SO_SNDTIMEO})
        setsockopt(fd_->get(), SOL_SOCKET, direction, &kLinkPatience, sizeof kLinkPatience);
    const auto on_readable = [](evutil_socket_t, short, void *self) { static_cast<KernelLink *>(self)->take_news(); };
    readable_.reset(event_new(loop_.base(), fd_->get(), EV_READ | EV_PERSIST, on_readable, this));
    event_add(readable_.get(), nullptr);
    return true;
}

KernelResult KernelLink::ask(uint32_t type, Bytes data) {
    if (inside_)
        return inside_->ask(type, data);
    std::optional<Message> message;
    if (fd_ && send_all(fd_->get(), framed(type, data)))
        while ((message = read_message()) && message->type != kAnswer)
            news_.push_back(std::move(*message));
    if (!message) {
        lose();
        throw std::invalid_argument("the kernel's process has gone");
    }
    const Bytes answer = message->payload;
    KernelResult result{object_of<int>(answer), buffer_of(answer.subspan(sizeof(int)))};
    deliver();
    return result;
}

bool KernelLink::read_all(void *bytes, size_t size) {
    for (size_t at = 0; at < size;) {
        const ssize_t length = recv(fd_->get(), static_cast<uint8_t *>(bytes) + at, size - at, MSG_WAITALL);
        if (length == 0 || (length < 0 && errno != EINTR))
            return false;
        at += length > 0 ? static_cast<size_t>(length) : 0;
    }
    return true;
}

std::optional<Message> KernelLink::read_message() {
    bri_msg_hdr head{};
    if (!read_all(&head, sizeof head))
        return std::nullopt;
    Message message{head.type, Buffer(head.len)};
    return read_all(message.payload.data(), head.len) ? std::optional(std::move(message)) : std::nullopt;
}

// Whoever is told may ask in turn, so each message is taken out first.
void KernelLink::deliver() {
    while (!news_.empty()) {
        const Message message = std::move(news_.front());
        news_.pop_front();
        told_(message.type, message.payload);
    }
}

void KernelLink::take_news() {
    // Whoever has asked since the line was found readable has taken along what was there.
    if (char first = 0; recv(fd_->get(), &first, 1, MSG_PEEK | MSG_DONTWAIT) < 0 && errno == EAGAIN)
        return;
    std::optional<Message> message = read_message();
    if (!message)
        return lose();
    news_.push_back(std::move(*message));
    deliver();
}

void KernelLink::lose() {
    if (!fd_)
        return;
    trace_.note("kernel: its process has gone");
    readable_.reset();
    fd_.reset();
    news_.clear();
    again_.start(kLookAgain);
}

void KernelLink::look_again() {
    if (connect())
        trace_.note("kernel: its process is back");
    else
        again_.start(kLookAgain);
}

KernelService::KernelService(Loop &loop, const std::string &tmpdir)
    : loop_(loop), path_(socket_path(tmpdir, kSocketName)),
      kernel_(loop, tmpdir, [this](uint32_t type, Bytes data) { send(type, data); }) {}

// The hosts' socket comes last: where it is, the server finds its line, too.
void KernelService::listen() {
    acceptor_.emplace(loop_, path_, SOCK_STREAM, Access::kOwner, [this](evutil_socket_t fd) { accept(fd); });
    kernel_.listen();
}

void KernelService::accept(evutil_socket_t descriptor) {
    server_.reset(bufferevent_socket_new(loop_.base(), descriptor, BEV_OPT_CLOSE_ON_FREE));
    const auto on_readable = [](bufferevent *, void *self) { static_cast<KernelService *>(self)->take_requests(); };
    const auto on_end = [](bufferevent *, short, void *self) { static_cast<KernelService *>(self)->server_.reset(); };
    bufferevent_setcb(server_.get(), on_readable, nullptr, on_end, this);
    bufferevent_enable(server_.get(), EV_READ | EV_WRITE);
}

void KernelService::take_requests() {
    evbuffer *input = bufferevent_get_input(server_.get());
    bri_msg_hdr head{};
    while (evbuffer_copyout(input, &head, sizeof head) == sizeof head &&
           evbuffer_get_length(input) - sizeof head >= head.len) {
        Buffer data(head.len);
        evbuffer_drain(input, sizeof head);
        evbuffer_remove(input, data.data(), data.size());
        const KernelResult result = kernel_.ask(head.type, data);
        Buffer answer = buffer_of(bytes_of(result.error));
        append(answer, result.answer);
        send(kAnswer, answer);
    }
}

// Without a server there is nobody to tell: the next one reads the tables.
void KernelService::send(uint32_t type, Bytes data) {
    if (server_ != nullptr)
        bufferevent_write(server_.get(), framed(type, data).data(), sizeof(bri_msg_hdr) + data.size());
}

} // namespace sandbox
