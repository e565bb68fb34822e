#include "tools/replay/server.h"

#include "tools/replay/peer.h"

#include <iterator>

namespace replay {

Server::Link::Link(sandbox::Loop &loop, int socket, unsigned number, sandbox::ConnectionOwner &owner)
    : connection(loop, socket, number, owner), descriptor(socket), process(process_behind(socket)) {}

Server::Server(sandbox::Loop &loop, const std::string &directory, Hear hear)
    : loop_(loop), hear_(std::move(hear)),
      acceptor_(loop, sandbox::socket_path(directory, ".server_socket"), SOCK_STREAM, sandbox::Access::kEverybody,
                [this](evutil_socket_t descriptor) {
                    sandbox::ConnectionOwner &owner = *this;
                    links_.emplace_back(loop_, descriptor, static_cast<unsigned>(links_.size() + 1), owner);
                }) {}

void Server::take_next() {
    link_ = &*std::next(links_.begin(), static_cast<std::ptrdiff_t>(taken_++));
}

bool Server::is_settled() const {
    return link_->connection.queued() == 0 && has_handled_everything(link_->descriptor, link_->process);
}

} // namespace replay
