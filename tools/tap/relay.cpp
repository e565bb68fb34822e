#include "tools/tap/relay.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <poll.h>
#include <stdexcept>
#include <unistd.h>

namespace tap {

namespace fs = std::filesystem;

namespace {

using recording::Change;
using recording::Way;

constexpr size_t kPiece = size_t{64} << 10; // no message of the kernel channel is larger
constexpr sandbox::Milliseconds kLookAgain{50};

bool hung_up(int descriptor) {
    pollfd look{descriptor, 0, 0};
    return poll(&look, 1, 0) > 0 && (look.revents & (POLLHUP | POLLERR)) != 0;
}

pid_t process_of(int descriptor) {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &credentials, &size);
    return credentials.pid;
}

} // namespace

Pipe::Pipe(sandbox::Loop &loop, int from, int to, Owner owner)
    : from_(from), to_(to), owner_(std::move(owner)),
      readable_(event_new(
          loop.base(), from, EV_READ | EV_PERSIST,
          [](evutil_socket_t, short, void *self) { static_cast<Pipe *>(self)->take(); }, this)),
      writable_(event_new(
          loop.base(), to, EV_WRITE,
          [](evutil_socket_t, short, void *self) {
              auto &pipe = *static_cast<Pipe *>(self);
              pipe.pass_on(std::exchange(pipe.left_, {}));
          },
          this)) {
    event_add(readable_.get(), nullptr);
}

// read() and write(): the preloaded library, when this program has it too, changes what recv() does.
void Pipe::take() {
    static uint8_t piece[kPiece];
    const ssize_t length = read(from_, piece, sizeof piece);
    if (length < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (length <= 0)
        return end(length < 0 || hung_up(from_) ? End::kGone : End::kDone);
    const wire::Bytes bytes{piece, static_cast<size_t>(length)};
    owner_.came(bytes);
    pass_on(bytes);
}

void Pipe::pass_on(wire::Bytes bytes) {
    while (!bytes.empty()) {
        const ssize_t length = write(to_, bytes.data(), bytes.size());
        if (length < 0 && errno == EAGAIN)
            break;
        if (length < 0 && errno != EINTR)
            return end(End::kRefused);
        bytes = bytes.subspan(length > 0 ? static_cast<size_t>(length) : 0);
    }
    if (bytes.empty()) {
        event_add(readable_.get(), nullptr);
        return;
    }
    event_del(readable_.get());
    event_add(writable_.get(), nullptr);
    left_ = wire::Buffer(bytes.begin(), bytes.end());
}

// Each side sees of the other's end what it would see without this program.
void Pipe::end(End how) {
    over_ = true;
    event_del(readable_.get());
    if (how == End::kRefused)
        shutdown(from_, SHUT_RD);
    else
        shutdown(to_, SHUT_WR);
    owner_.over(how);
}

Front::Front(sandbox::Loop &loop, std::string server_path, std::string path, int type, Accept accept)
    : loop_(loop), server_path_(std::move(server_path)), path_(std::move(path)), type_(type),
      accept_(std::move(accept)), again_(loop, [this] { look_again(); }) {}

bool Front::reach() {
    if (spare_ && !hung_up(spare_->get()))
        return true;
    spare_.reset();
    try {
        spare_.emplace(sandbox::connect_to(server_path_, type_ | SOCK_NONBLOCK));
    } catch (const std::runtime_error &) {
        return false;
    }
    return true;
}

void Front::look() {
    if (!reach()) {
        stop();
        return again_.start(kLookAgain);
    }
    if (!acceptor_)
        acceptor_.emplace(
            loop_, path_, type_, sandbox::Access::kEverybody, [this](evutil_socket_t client) { accept(client); },
            [this] { // no descriptor is free
                acceptor_->hold();
                again_.start(kLookAgain);
            });
    acceptor_->go_on();
}

void Front::look_again() {
    try {
        look();
    } catch (const std::runtime_error &) { // another process listens there now
        again_.start(kLookAgain);
    }
}

void Front::stop() {
    spare_.reset();
    acceptor_.reset();
    again_.cancel();
}

void Front::accept(int client) {
    if (reach()) {
        const int server = spare_->release();
        spare_.reset();
        return accept_(client, server);
    }
    ::close(client);
    acceptor_->hold();
    again_.start(sandbox::Microseconds(0));
}

Place::Place(std::string directory) : directory_(std::move(directory)), made_(!fs::exists(directory_)) {
    fs::create_directories(directory_);
}

Place::~Place() {
    std::error_code in_use;
    fs::remove(directory_ + "/bridge", in_use);
    if (made_)
        fs::remove(directory_, in_use);
}

// A client's, or one of its sockets of the kernel channel.
struct Relay::Connection {
    Connection(Relay &relay, Front &way_in, int client_end, int server_end)
        : front(way_in), client(client_end), server(server_end), process(process_of(client_end)),
          up(pipe(relay, Way::kToServer)), down(pipe(relay, Way::kToClient)) {}

    Pipe pipe(Relay &relay, Way way) {
        const bool to_server = way == Way::kToServer;
        return {relay.loop_,
                to_server ? client.get() : server.get(),
                to_server ? server.get() : client.get(),
                {[this, &relay, way](wire::Bytes bytes) { relay.came(*this, way, bytes); },
                 [this, &relay, way](Pipe::End how) { relay.over(*this, way, how); }}};
    }

    Front &front;
    sandbox::Fd client;
    sandbox::Fd server;
    pid_t process;
    bool bound = false; // its address, which is no message, has passed
    std::optional<Change> closed;
    recording::Stream said[2]; // by Way
    Pipe up;
    Pipe down;
};

Relay::Relay(sandbox::Loop &loop, const std::string &server, const std::string &listen, recording::Recorder &recorder)
    : loop_(loop), recorder_(recorder), place_(listen), control_(sandbox::socket_path(listen, ".control")),
      server_(loop, sandbox::socket_path(server, ".server_socket"), sandbox::socket_path(listen, ".server_socket"),
              SOCK_STREAM, [this](int client, int there) { accept(server_, client, there); }),
      kernel_(loop, sandbox::socket_path(server, ".kernel_socket"), sandbox::socket_path(listen, ".kernel_socket"),
              SOCK_SEQPACKET, [this](int client, int there) { accept(kernel_, client, there); }) {
    std::error_code there_already;
    fs::create_directory(listen + "/bridge", there_already);
    fs::create_symlink(fs::absolute(sandbox::socket_path(server, ".control")), control_, there_already);
    kernel_.look();
    server_.look();
}

Relay::~Relay() {
    if (fs::is_symlink(control_))
        unlink(control_.c_str());
}

void Relay::accept(Front &front, int client, int server) {
    Connection &connection = connections_.emplace_back(*this, front, client, server);
    if (&front == &kernel_)
        return;
    ++clients_;
    connection.said[0] = {clients_, Way::kToServer};
    connection.said[1] = {clients_, Way::kToClient};
    recorder_.connection(clients_, Change::kOpened);
}

// The newest connection of that process; 0 when it has none.
uint32_t Relay::client_of(pid_t pid) const {
    uint32_t newest = 0;
    for (const Connection &connection : connections_)
        if (connection.process == pid)
            newest = std::max(newest, connection.said[0].client);
    return newest;
}

void Relay::came(Connection &connection, Way way, wire::Bytes bytes) {
    if (&connection.front == &server_)
        return recorder_.pass(connection.said[static_cast<size_t>(way)], bytes);
    if (way == Way::kToClient || std::exchange(connection.bound, true))
        recorder_.kernel_message(client_of(connection.process), way, bytes);
}

// Who closes is told by the first sign of it.
void Relay::over(Connection &connection, Way way, Pipe::End how) {
    const bool by_client = (way == Way::kToServer) == (how != Pipe::End::kRefused);
    if (!connection.closed)
        connection.closed = by_client ? Change::kClosedByClient : Change::kClosedByServer;
    if (how == Pipe::End::kGone || (connection.up.over() && connection.down.over()))
        close(connection);
}

void Relay::close(Connection &connection) {
    Front &front = connection.front;
    const Change how = connection.closed.value_or(Change::kClosedByServer);
    if (&front == &server_) {
        for (recording::Stream &stream : connection.said)
            recorder_.end(stream);
        recorder_.connection(connection.said[0].client, how);
    }
    connections_.remove_if([&](const Connection &other) { return &other == &connection; });
    if (finishing_ && connections_.empty())
        loop_.end();
    if (!finishing_ && how == Change::kClosedByServer)
        front.look_again();
}

void Relay::finish(sandbox::Microseconds patience) {
    finishing_ = true;
    server_.stop();
    kernel_.stop();
    for (auto next = connections_.begin(); next != connections_.end();) {
        Connection &connection = *next++;
        if (!hung_up(connection.client.get()))
            close(connection);
    }
    if (connections_.empty())
        return;
    sandbox::Timer patient(loop_, [this] { loop_.end(); });
    patient.start(patience);
    loop_.run();
}

} // namespace tap
