#include "sandbox/server.h"

#include "sandbox/output.h"

#include "base/raii.h"

#include <cstring>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace sandbox {

namespace {

// Clients build the path in a buffer of this size and cut what does not fit.
constexpr size_t kClientPathBuffer = 64;
constexpr Milliseconds kRetry{1000};

[[noreturn]] void fail(const std::string &what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

sockaddr_un address_of(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

std::string socket_path(const std::string &tmpdir) {
    const std::string path = tmpdir + "/bridge/.server_socket";
    if (path.size() >= kClientPathBuffer)
        throw std::runtime_error("TMPDIR is too long for the clients: " + tmpdir);
    return path;
}

void make_directory(const std::string &directory) {
    if (mkdir(directory.c_str(), 0777) != 0 && errno != EEXIST)
        fail("cannot make " + directory);
    chmod(directory.c_str(), 0777); // whatever the umask is; another user's directory stays as it is
}

bool server_alive(const sockaddr_un &address) {
    const bri::Fd probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    return connect(probe.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 || errno == EAGAIN;
}

} // namespace

bool Target::matches(const Connection &client) const {
    return all() || text_ == "@" + std::to_string(client.id()) || text_ == "@" + client.registration.name();
}

Server::Server(event_base *base, const std::string &tmpdir, ConnectionOwner &owner)
    : base_(base), path_(socket_path(tmpdir)), owner_(owner), listen_again_(base, [this] { listen_again(); }) {}

Server::~Server() {
    if (listener_ != nullptr)
        unlink(path_.c_str());
}

void Server::listen() {
    make_directory(path_.substr(0, path_.rfind('/')));
    const sockaddr_un address = address_of(path_);
    if (server_alive(address))
        throw std::runtime_error("a server is already listening at " + path_);
    unlink(path_.c_str());
    const auto on_accept = [](evconnlistener *, evutil_socket_t descriptor, sockaddr *, int, void *self) {
        static_cast<Server *>(self)->accept(descriptor);
    };
    const unsigned options = LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC;
    listener_.reset(evconnlistener_new_bind(base_, on_accept, this, options, SOMAXCONN,
                                            reinterpret_cast<const sockaddr *>(&address), sizeof address));
    if (listener_ == nullptr)
        fail("cannot listen at " + path_);
    chmod(path_.c_str(), 0777);
}

void Server::restart(Milliseconds pause) {
    drop(Target());
    listener_.reset();
    unlink(path_.c_str());
    listen_again_.start(pause);
}

void Server::listen_again() {
    try {
        listen();
        say("listening again");
    } catch (const std::exception &error) {
        say("%s, trying again", error.what());
        listen_again_.start(kRetry);
    }
}

void Server::accept(evutil_socket_t descriptor) {
    remove_closed();
    clients_.push_back(std::make_unique<Connection>(base_, descriptor, next_id_++, owner_));
    on_connected(*clients_.back());
}

void Server::remove_closed() {
    clients_.remove_if([](const auto &client) { return !client->open(); });
}

unsigned Server::stall(const Target &target) {
    if (target.all() && listener_ != nullptr)
        evconnlistener_disable(listener_.get());
    return for_each(target, [](Connection &client) { client.stall(); });
}

unsigned Server::resume(const Target &target) {
    if (target.all() && listener_ != nullptr)
        evconnlistener_enable(listener_.get());
    return for_each(target, [](Connection &client) { client.resume(); });
}

unsigned Server::drop(const Target &target) {
    return for_each(target, [](Connection &client) { client.close(); });
}

unsigned Server::registered() const {
    unsigned count = 0;
    for (const auto &client : clients_)
        count += client->open() && client->registration.complete() ? 1U : 0U;
    return count;
}

} // namespace sandbox
