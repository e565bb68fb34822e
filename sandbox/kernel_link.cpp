#include "sandbox/kernel_link.h"

#include "sandbox/local_socket.h"

#include <bridge/base.h>

#include <event2/buffer.h>

#include <cerrno>
#include <cstring>
#include <deque>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace sandbox {

// One message on the line, as on the server socket: a header and its data. Not of this file alone, as a class of the
// header holds some.
struct LinkMessage {
    uint32_t type;
    std::vector<uint8_t> data;
};

namespace {

constexpr char kSocketName[] = ".kernel_control";
constexpr uint32_t kAnswer = 0x30000; // KernelResult: its error, uint32_t, and its answer
constexpr Microseconds kLookAgain{1000000};
constexpr int kPatienceMs = 5000; // with a process that hangs

void append(std::vector<uint8_t> &to, Bytes bytes) {
    to.insert(to.end(), bytes.data, bytes.data + bytes.size);
}

std::vector<uint8_t> framed(uint32_t type, Bytes data) {
    std::vector<uint8_t> bytes;
    append(bytes, bytes_of(bri_msg_hdr{type, static_cast<uint32_t>(data.size)}));
    append(bytes, data);
    return bytes;
}

} // namespace

class KernelLink::Road {
  public:
    virtual ~Road() = default;
    virtual KernelResult ask(uint32_t type, Bytes data) = 0;
};

class KernelLink::Inside : public Road {
  public:
    Inside(Loop &loop, const std::string &tmpdir, Announce told) : kernel_(loop, tmpdir, std::move(told)) {
        kernel_.listen();
    }
    KernelResult ask(uint32_t type, Bytes data) override { return kernel_.ask({type, data}); }

  private:
    Kernel kernel_;
};

class KernelLink::Beside : public Road {
  public:
    Beside(Loop &loop, std::string path, Trace &trace, Announce told)
        : loop_(loop), path_(std::move(path)), trace_(trace), told_(std::move(told)),
          again_(loop, [this] { look_again(); }) {}

    // False when no process listens there.
    bool connect() {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path_.copy(address.sun_path, sizeof address.sun_path - 1);
        fd_.emplace(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (!fd_->ok() || ::connect(fd_->get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
            fd_.reset();
            return false;
        }
        const auto on_readable = [](evutil_socket_t, short, void *self) { static_cast<Beside *>(self)->take_news(); };
        readable_.reset(event_new(loop_.base(), fd_->get(), EV_READ | EV_PERSIST, on_readable, this));
        event_add(readable_.get(), nullptr);
        return true;
    }

    KernelResult ask(uint32_t type, Bytes data) override {
        if (!fd_ || !write_all(framed(type, data)) || !read_answer()) {
            lose();
            throw std::invalid_argument("the kernel's process has gone");
        }
        KernelResult result = std::move(answer_);
        deliver();
        return result;
    }

  private:
    [[nodiscard]] bool ready(short events) const {
        pollfd descriptor{fd_->get(), events, 0};
        return poll(&descriptor, 1, kPatienceMs) > 0;
    }
    bool write_all(const std::vector<uint8_t> &bytes) {
        for (size_t at = 0; at < bytes.size();) {
            const ssize_t length = ::send(fd_->get(), bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
            if (length < 0 && errno == EAGAIN && read_some() && ready(POLLOUT | POLLIN))
                continue; // what it says meanwhile is taken, or both would wait for room
            if (length < 0)
                return false;
            at += static_cast<size_t>(length);
        }
        return true;
    }
    // What has come by now; false at the end of the line.
    bool read_some() {
        uint8_t piece[65536];
        ssize_t length = 0;
        while ((length = recv(fd_->get(), piece, sizeof piece, 0)) > 0)
            append(input_, {piece, static_cast<size_t>(length)});
        return length < 0 && (errno == EAGAIN || errno == EINTR);
    }
    // Splits the input; true when the answer was among it. What is told waits until it is asked for.
    bool split() {
        bool answered = false;
        Bytes rest{input_.data(), input_.size()};
        for (;;) {
            const auto head = bri::load_at<bri_msg_hdr>(rest, 0);
            if (!rest.holds(0, sizeof head) || !rest.holds(sizeof head, head.len))
                break;
            const Bytes data{rest.data + sizeof head, head.len};
            if (head.type == kAnswer) {
                const Bytes answer = data.from(sizeof(uint32_t));
                answer_ = {static_cast<int>(bri::load_at<uint32_t>(data, 0)), {answer.data, answer.data + answer.size}};
                answered = true;
            } else {
                news_.push_back({head.type, {data.data, data.data + data.size}});
            }
            rest = rest.from(sizeof head + head.len);
        }
        input_.erase(input_.begin(), input_.end() - static_cast<ptrdiff_t>(rest.size));
        return answered;
    }
    bool read_answer() {
        for (;;) {
            const bool open = read_some();
            if (split())
                return true;
            if (!open || !ready(POLLIN))
                return false;
        }
    }
    // Whoever is told may ask in turn, so each message is taken out first.
    void deliver() {
        while (!news_.empty()) {
            const LinkMessage message = std::move(news_.front());
            news_.pop_front();
            told_(message.type, {message.data.data(), message.data.size()});
        }
    }
    void take_news() {
        const bool open = read_some();
        split();
        deliver();
        if (!open)
            lose();
    }
    void lose() {
        if (!fd_)
            return;
        trace_.note("kernel: its process has gone");
        readable_.reset();
        fd_.reset();
        input_.clear();
        news_.clear();
        again_.start(kLookAgain);
    }
    void look_again() {
        if (connect())
            trace_.note("kernel: its process is back");
        else
            again_.start(kLookAgain);
    }

    Loop &loop_;
    std::string path_;
    Trace &trace_;
    Announce told_;
    std::optional<bri::Fd> fd_;
    Event readable_; // behind fd_: released before the descriptor closes
    Timer again_;
    std::vector<uint8_t> input_;
    std::deque<LinkMessage> news_;
    KernelResult answer_;
};

KernelLink::KernelLink(Loop &loop, std::string tmpdir, Trace &trace, Announce told)
    : loop_(loop), tmpdir_(std::move(tmpdir)), trace_(trace), told_(std::move(told)) {}

KernelLink::~KernelLink() = default;

void KernelLink::open() {
    auto beside = std::make_unique<Beside>(loop_, socket_path(tmpdir_, kSocketName), trace_, told_);
    if (beside->connect())
        road_ = std::move(beside);
    else
        road_ = std::make_unique<Inside>(loop_, tmpdir_, told_);
}

KernelResult KernelLink::ask(uint32_t type, Bytes data) {
    return road_->ask(type, data);
}

KernelService::KernelService(Loop &loop, const std::string &tmpdir)
    : loop_(loop), path_(socket_path(tmpdir, kSocketName)),
      kernel_(loop, tmpdir, [this](uint32_t type, Bytes data) { send(type, data); }) {}

KernelService::~KernelService() {
    if (listener_ != nullptr)
        unlink(path_.c_str());
}

void KernelService::listen() {
    kernel_.listen();
    const auto on_accept = [](evconnlistener *, evutil_socket_t descriptor, sockaddr *, int, void *self) {
        static_cast<KernelService *>(self)->accept(descriptor);
    };
    const unsigned options = LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC;
    const int descriptor = listen_at(path_, SOCK_STREAM);
    chmod(path_.c_str(), 0600);
    listener_.reset(evconnlistener_new(loop_.base(), on_accept, this, options, 0, descriptor));
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
        std::vector<uint8_t> data(head.len);
        evbuffer_drain(input, sizeof head);
        evbuffer_remove(input, data.data(), data.size());
        const KernelResult result = kernel_.ask({head.type, {data.data(), data.size()}});
        std::vector<uint8_t> answer;
        append(answer, bytes_of(static_cast<uint32_t>(result.error)));
        append(answer, {result.answer.data(), result.answer.size()});
        send(kAnswer, {answer.data(), answer.size()});
    }
}

// Without a server there is nobody to tell: the next one reads the tables.
void KernelService::send(uint32_t type, Bytes data) {
    if (server_ == nullptr)
        return;
    const std::vector<uint8_t> bytes = framed(type, data);
    bufferevent_write(server_.get(), bytes.data(), bytes.size());
}

} // namespace sandbox
