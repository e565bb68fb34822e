// The kernel's bridge module: its tables, the server's requests about them, and its side of generic netlink family
// "EF_BRIDGE" for host daemons whose netlink sockets the preloaded library libef_bridge_sim.so connects to this
// program. A packet on such a socket is a netlink message as it stands; the first one is the address that the socket
// was bound to.
#pragma once

#include "sandbox/kernel_tables.h"
#include "sandbox/local_socket.h"

#include <deque>

namespace sandbox {

// How the module behaves: as it should; not loaded; refusing every message with an error; answering with more than a
// host takes; or deaf, so that a host waits until its time-out. The controller, which finds the family, always answers.
enum class KernelState : uint32_t { kUp, kDown, kError, kLong, kSilent };

// What is told beside the events of the tables' changes.
enum KernelSays : uint32_t {
    kHostSaid = 0x20000 // a host's message: its type, uint32_t, its length, uint32_t, and its data
};

class Kernel {
  public:
    // What a host is answered in the place of the tables; nothing where they are to answer.
    using Answers = std::function<std::optional<KernelResult>(uint32_t type, Bytes data)>;

    // `tell` gets each change of the tables as the event that it is, and what hosts say.
    Kernel(Loop &loop, const std::string &tmpdir, Announce tell, Answers answers = {});

    // Throws std::runtime_error, as Acceptor does.
    void listen();
    // Before listen(): hosts are answered only where serve() is called, one message at a time. True when there was one.
    void hold() { held_ = true; }
    bool serve();
    [[nodiscard]] bool is_asked() const; // somebody waits for that
    // The server's word. Down, the family goes with the module's tables: its listeners are told, and nobody can resolve
    // it until it comes back, under another id.
    KernelResult ask(uint32_t type, Bytes data);
    [[nodiscard]] const std::string &path() const { return path_; }

  private:
    struct Socket;
    struct Delayed {
        Microseconds due;
        std::weak_ptr<const Socket> socket;
        Buffer message;
    };

    bool read_packet(Socket &socket); // true when it was a message
    void set_module(const KernelModule &wanted);
    [[nodiscard]] KernelModule module() const;
    void answer(const Socket &socket, Bytes packet);
    void take_message(const Socket &socket, Bytes packet);
    KernelResult answer_host(uint32_t type, Bytes data);
    void send(const Socket &socket, Bytes message);
    void send_due();
    void watch_for_expiry();

    Loop &loop_;
    std::string path_;
    bool held_ = false;
    Announce tell_;
    Answers answers_;
    KernelTables tables_;
    std::optional<Acceptor> acceptor_;
    std::list<std::shared_ptr<Socket>> sockets_;
    KernelModule module_{0, 0, 0, 0, 0, 0x23};
    std::deque<Delayed> delayed_;
    Timer delay_timer_;
    Timer expiry_timer_;
};

} // namespace sandbox
