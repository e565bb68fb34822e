// Between clients and a server: takes the server's place for the clients, passes on what comes, in its order and
// without a change, and tells a recorder of it. Each direction of a connection reads only when what it read before has
// been taken, so whoever is slow holds up the other end as if there was nothing in between.
#pragma once

#include "sandbox/local_socket.h"
#include "tools/recording/recorder.h"

#include <list>
#include <optional>

namespace tap {

// One direction of a connection, both of whose descriptors are somebody else's.
class Pipe {
  public:
    enum class End {
        kGone,   // who it reads from has gone, and all that it said has been passed on
        kDone,   // says nothing more, but listens
        kRefused // who it writes to has gone
    };
    struct Owner {
        std::function<void(wire::Bytes)> came; // before it goes on
        std::function<void(End)> over;         // once; may destroy the pipe
    };
    Pipe(sandbox::Loop &loop, int from, int to, Owner owner);
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;

    [[nodiscard]] bool over() const { return over_; }

  private:
    void take();
    void pass_on(wire::Bytes bytes);
    void end(End how);

    int from_;
    int to_;
    Owner owner_;
    wire::Buffer left_; // read and not yet taken
    bool over_ = false;
    sandbox::Event readable_;
    sandbox::Event writable_;
};

// Listens at a path as long as the server's can be reached, so that clients see whether there is a server.
class Front {
  public:
    using Accept = std::function<void(int client, int server)>; // both are its to close
    Front(sandbox::Loop &loop, std::string server_path, std::string path, int type, Accept accept);

    // Finds out whether the server is there, and keeps the connection for the next client. Throws std::runtime_error
    // when the path is somebody else's.
    void look();
    // The same again and again until the path is free.
    void look_again();
    void stop();

  private:
    bool reach();
    void accept(int client);

    sandbox::Loop &loop_;
    std::string server_path_;
    std::string path_;
    int type_;
    Accept accept_;
    std::optional<sandbox::Fd> spare_;
    std::optional<sandbox::Acceptor> acceptor_;
    sandbox::Timer again_;
};

// A directory for sockets; what was made of it is removed at its end.
class Place {
  public:
    explicit Place(std::string directory); // Throws std::runtime_error.
    ~Place();
    Place(const Place &) = delete;
    Place &operator=(const Place &) = delete;

  private:
    std::string directory_;
    bool made_;
};

class Relay {
  public:
    // Clients whose TMPDIR is `listen` get to the server whose TMPDIR is `server`, and to the kernel's module of a
    // sandbox where there is one. Throws std::runtime_error.
    Relay(sandbox::Loop &loop, const std::string &server, const std::string &listen, recording::Recorder &recorder);
    ~Relay();
    Relay(const Relay &) = delete;
    Relay &operator=(const Relay &) = delete;

    // Takes no clients any more, cuts off those that are there, and passes on what those that have gone have left;
    // within that time.
    void finish(sandbox::Microseconds patience);

  private:
    struct Connection;

    void accept(Front &front, int client, int server);
    void came(Connection &connection, recording::Way way, wire::Bytes bytes);
    void over(Connection &connection, recording::Way way, Pipe::End how);
    void close(Connection &connection);
    [[nodiscard]] uint32_t client_of(pid_t pid) const;

    sandbox::Loop &loop_;
    recording::Recorder &recorder_;
    Place place_;
    std::string control_; // a link to the server's
    uint32_t clients_ = 0;
    std::list<Connection> connections_;
    bool finishing_ = false;
    Front server_;
    Front kernel_;
};

} // namespace tap
