// The kernel's side of generic netlink family "EF_BRIDGE" for host daemons whose netlink sockets the preloaded library
// libef_bridge_sim.so connects to this program. A packet on such a socket is a netlink message as it stands; the first
// one is the address that the socket was bound to.
#pragma once

#include "sandbox/batch.h"
#include "sandbox/loop.h"

#include <cstdint>
#include <list>
#include <memory>
#include <string>

namespace sandbox {

class Kernel {
  public:
    Kernel(event_base *base, const std::string &tmpdir);
    ~Kernel();
    Kernel(const Kernel &) = delete;
    Kernel &operator=(const Kernel &) = delete;

    // Throws std::runtime_error, as listen_at does.
    void listen();
    // The family goes: its listeners are told, and nobody can resolve it until it comes back.
    void down();
    void up() { up_ = true; }
    [[nodiscard]] bool is_up() const { return up_; }
    // Sockets that are open, and those among them that listen to the controller's notices.
    [[nodiscard]] size_t sockets() const { return sockets_.size(); }
    [[nodiscard]] size_t listeners() const;

  private:
    class Socket;

    void accept(evutil_socket_t descriptor);
    void read_packet(Socket &socket);
    void answer(const Socket &socket, Bytes packet) const;

    event_base *base_;
    std::string path_;
    Listener listener_;
    std::list<std::unique_ptr<Socket>> sockets_;
    bool up_ = true;
};

} // namespace sandbox
