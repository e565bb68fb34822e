// The server that the daemon finds: its connections, in the order in which it makes them.
#pragma once

#include "sandbox/connection.h"
#include "sandbox/local_socket.h"

#include <functional>
#include <list>

namespace replay {

class Server : private sandbox::ConnectionOwner {
  public:
    using Hear = std::function<void(uint32_t type, sandbox::Bytes payload)>;

    // `hear` gets what the daemon sends.
    Server(sandbox::Loop &loop, const std::string &directory, Hear hear);

    // The connection that the recording has come to is the one that was taken last.
    [[nodiscard]] bool has_another() const { return links_.size() > taken_; }
    void take_next();
    [[nodiscard]] bool was_found() const { return taken_ > 0; }
    [[nodiscard]] bool is_connected() const { return link_ != nullptr && link_->connection.open(); }

    // When one was taken.
    [[nodiscard]] sandbox::Connection &connection() { return link_->connection; }
    // When it is connected: the daemon has handled all that it was sent.
    [[nodiscard]] bool is_settled() const;

  private:
    // Those that have closed stay, as nothing may go inside of its own call.
    struct Link {
        Link(sandbox::Loop &loop, int socket, unsigned number, sandbox::ConnectionOwner &owner);

        sandbox::Connection connection;
        int descriptor; // the connection's
        pid_t process;
    };

    void on_message(sandbox::Connection & /*client*/, uint32_t type, sandbox::Bytes payload) override {
        hear_(type, payload);
    }
    void on_lost(sandbox::Connection & /*client*/, const std::string & /*why*/) override {}
    void on_drained() override {}
    void on_falling_behind() override {}

    sandbox::Loop &loop_;
    Hear hear_;
    std::list<Link> links_;
    size_t taken_ = 0; // of those
    Link *link_ = nullptr;
    sandbox::Acceptor acceptor_;
};

} // namespace replay
