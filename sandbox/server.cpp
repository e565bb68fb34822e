#include "sandbox/server.h"

#include "sandbox/local_socket.h"
#include "sandbox/output.h"

#include <stdexcept>
#include <sys/socket.h>

namespace sandbox {

namespace {

constexpr Milliseconds kRetry{1000};

} // namespace

bool Target::matches(const Connection &client) const {
    return all() || text_ == "@" + std::to_string(client.id()) || text_ == "@" + client.registration.name();
}

Server::Server(event_base *base, const std::string &tmpdir, ConnectionOwner &owner)
    : base_(base), path_(socket_path(tmpdir, ".server_socket")), owner_(owner),
      listen_again_(base, [this] { listen_again(); }) {}

Server::~Server() {
    if (listener_ != nullptr)
        unlink(path_.c_str());
}

void Server::listen() {
    const auto on_accept = [](evconnlistener *, evutil_socket_t descriptor, sockaddr *, int, void *self) {
        static_cast<Server *>(self)->accept(descriptor);
    };
    const unsigned options = LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC;
    listener_.reset(evconnlistener_new(base_, on_accept, this, options, 0, listen_at(path_, SOCK_STREAM)));
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
