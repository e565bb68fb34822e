#include "sandbox/server.h"

#include "sandbox/local_socket.h"

#include <stdexcept>
#include <sys/socket.h>

namespace sandbox {

namespace {

constexpr Milliseconds kRetry{1000};

} // namespace

bool Target::matches(const Connection &client) const {
    return all() || client.party()->is(text_);
}

Server::Server(Loop &loop, const std::string &tmpdir, Trace &trace, ConnectionOwner &owner)
    : loop_(loop), trace_(trace), path_(socket_path(tmpdir, ".server_socket")), owner_(owner),
      listen_again_(loop, [this] { listen_again(); }) {}

Server::~Server() {
    if (listener_ != nullptr)
        remove_socket(path_);
}

void Server::listen() {
    const auto on_accept = [](evconnlistener *, evutil_socket_t descriptor, sockaddr *, int, void *self) {
        static_cast<Server *>(self)->accept(descriptor);
    };
    const unsigned options = LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC;
    listener_.reset(evconnlistener_new(loop_.base(), on_accept, this, options, 0, listen_at(path_, SOCK_STREAM)));
}

void Server::restart(Microseconds pause) {
    drop(Target());
    listener_.reset();
    remove_socket(path_);
    listen_again_.start(pause);
}

void Server::listen_again() {
    try {
        listen();
        trace_.note("listening again");
    } catch (const std::exception &error) {
        trace_.note(std::string(error.what()) + ", trying again");
        listen_again_.start(kRetry);
    }
}

void Server::accept(evutil_socket_t descriptor) {
    remove_closed();
    clients_.push_back(std::make_unique<Connection>(loop_, descriptor, next_id_++, owner_));
    trace_.note("connected", {clients_.back()->party()});
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
    const unsigned count = for_each(target, [](Connection &client) { client.close(); });
    on_dropped();
    return count;
}

unsigned Server::registered() const {
    unsigned count = 0;
    for (const auto &client : clients_)
        count += client->open() && client->registration.complete() ? 1U : 0U;
    return count;
}

} // namespace sandbox
