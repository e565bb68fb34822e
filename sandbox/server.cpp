#include "sandbox/server.h"

#include <algorithm>
#include <sys/socket.h>

namespace sandbox {

namespace {

constexpr Milliseconds kRetry{1000};
// A storm of connects must not keep those who are connected waiting.
constexpr unsigned kBurst = 16;
constexpr Milliseconds kBetweenBursts{5};

} // namespace

Server::Server(Loop &loop, const std::string &tmpdir, Trace &trace, ConnectionOwner &owner)
    : loop_(loop), trace_(trace), path_(socket_path(tmpdir, ".server_socket")), owner_(owner),
      listen_again_(loop, [this] { listen_again(); }), accept_again_(loop, [this] { let_new_clients_in(); }) {}

void Server::listen() {
    acceptor_.emplace(
        loop_, path_, SOCK_STREAM, Access::kEverybody, [this](evutil_socket_t descriptor) { accept(descriptor); },
        [this] { accept_failed(); });
    stalled_ = false;
}

unsigned Server::restart(Microseconds pause) {
    acceptor_.reset();
    listen_again_.start(pause);
    return drop(Target());
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
    short_of_descriptors_ = false;
    if (++burst_ >= kBurst)
        hold_new_clients(kBetweenBursts);
}

// Said once until somebody can be let in again.
void Server::accept_failed() {
    const std::string why = evutil_socket_error_to_string(EVUTIL_SOCKET_ERROR());
    if (!short_of_descriptors_)
        trace_.note("new clients wait: " + why);
    short_of_descriptors_ = true;
    remove_closed();
    hold_new_clients(kRetry);
}

void Server::hold_new_clients(Microseconds pause) {
    acceptor_->hold();
    accept_again_.start(pause);
}

void Server::let_new_clients_in() {
    burst_ = 0;
    if (acceptor_ && !stalled_)
        acceptor_->go_on();
}

size_t Server::queued() const {
    size_t sum = 0;
    for (const auto &client : clients_)
        sum += client->queued();
    return sum;
}

void Server::bound_queues(size_t most) {
    const auto less_behind = [](const auto &a, const auto &b) { return a->queued() < b->queued(); };
    for (size_t sum = queued(); sum > most; sum = queued()) {
        Connection &slowest = **std::max_element(clients_.begin(), clients_.end(), less_behind);
        slowest.lose("the slowest, with " + std::to_string(slowest.queued()) + " of " + std::to_string(sum) +
                     " bytes that nobody reads");
    }
}

unsigned Server::stall(const Target &target) {
    if (target.all() && acceptor_) {
        stalled_ = true;
        acceptor_->hold();
    }
    return for_each(target, [](Connection &client) { client.stall(); });
}

unsigned Server::resume(const Target &target) {
    if (target.all()) {
        stalled_ = false;
        let_new_clients_in();
    }
    return for_each(target, [](Connection &client) { client.resume(); });
}

unsigned Server::drop(const Target &target) {
    const unsigned count = for_each(target, [](Connection &client) { client.close(); });
    on_dropped();
    return count;
}

} // namespace sandbox
