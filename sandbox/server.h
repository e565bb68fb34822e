// The server socket and the clients connected to it.
#pragma once

#include "sandbox/connection.h"
#include "sandbox/local_socket.h"

namespace sandbox {

// Which clients a command is meant for: "" all, "@3" the client with that number, "@name" those of that name.
class Target {
  public:
    // Throws std::invalid_argument for an @ alone.
    explicit Target(std::string text = {}) : text_(std::move(text)) {
        refuse_if(!all() && text_.find_first_not_of('@') == std::string::npos, "@ which client?");
    }
    [[nodiscard]] bool matches(const Connection &client) const { return all() || client.party()->is(text_); }
    [[nodiscard]] bool all() const { return text_.empty(); }
    // The name or number, without the @ in front.
    [[nodiscard]] std::string word() const { return text_.substr(text_.find_first_not_of('@')); }

  private:
    std::string text_;
};

class Server : Pinned {
  public:
    // The socket of the bridge server below `tmpdir`, with its directory.
    Server(Loop &loop, const std::string &tmpdir, Trace &trace, ConnectionOwner &owner);

    // Takes the place of a server that has died; throws std::runtime_error when one is alive or the socket fails.
    void listen();
    // Each gives the number of clients concerned. A stall of all clients also keeps new ones waiting.
    unsigned stall(const Target &target);
    unsigned resume(const Target &target);
    unsigned drop(const Target &target);
    // Closes the socket and every connection, and listens again after a while.
    unsigned restart(Microseconds pause);

    // While more than this waits for all clients together, the slowest is given up.
    static constexpr size_t kMostQueued = size_t{256} << 20;
    void bound_queues(size_t most = kMostQueued);

    // Calls fn(client) for each open connection of the target, oldest first.
    template <class Fn> unsigned for_each(const Target &target, Fn &&fn) {
        unsigned count = 0;
        for (const auto &client : clients_)
            if (client->open() && target.matches(*client)) {
                fn(*client);
                ++count;
            }
        return count;
    }
    // Calls fn(client) when the client with that number is still there.
    template <class Fn> void with(unsigned id, Fn &&fn) {
        for (const auto &client : clients_)
            if (client->open() && client->id() == id)
                return fn(*client);
    }
    [[nodiscard]] const std::string &path() const { return path_; }

    // Connections were closed by a drop or a restart, which tell nobody else.
    std::function<void()> on_dropped = [] {};

  private:
    void accept(evutil_socket_t descriptor);
    void accept_failed();
    // New clients wait: for a moment between two bursts of them, for longer without descriptors, and in a stall.
    void hold_new_clients(Microseconds pause);
    void let_new_clients_in();
    [[nodiscard]] size_t queued() const;
    void listen_again();
    void remove_closed() {
        clients_.remove_if([](const auto &client) { return !client->open(); });
    }

    Loop &loop_;
    Trace &trace_;
    std::string path_;
    ConnectionOwner &owner_;
    std::optional<Acceptor> acceptor_;
    std::list<std::unique_ptr<Connection>> clients_;
    unsigned next_id_ = 1;
    unsigned burst_ = 0; // clients accepted since the last pause
    bool stalled_ = false;
    bool short_of_descriptors_ = false;
    Timer listen_again_;
    Timer accept_again_;
};

} // namespace sandbox
