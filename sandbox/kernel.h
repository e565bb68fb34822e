// The kernel's side of generic netlink family "EF_BRIDGE" for host daemons whose netlink sockets the preloaded library
// libef_bridge_sim.so connects to this program. A packet on such a socket is a netlink message as it stands; the first
// one is the address that the socket was bound to.
#pragma once

#include "sandbox/addresses.h"
#include "sandbox/batch.h"
#include "sandbox/loop.h"
#include "sandbox/trace.h"

#include <cstdint>
#include <list>
#include <memory>
#include <string>

namespace sandbox {

// How the module behaves: as it should; not loaded; refusing every message with an error; answering with more than a
// host takes; or deaf, so that a host waits until its time-out. The controller, which finds the family, always answers.
enum class KernelState { kUp, kDown, kError, kLong, kSilent };

class Kernel {
  public:
    Kernel(Loop &loop, const std::string &tmpdir, Trace &trace, Addresses &addresses);
    ~Kernel();
    Kernel(const Kernel &) = delete;
    Kernel &operator=(const Kernel &) = delete;

    // Throws std::runtime_error, as listen_at does.
    void listen();
    // Down, the family goes with the module's tables: its listeners are told, and nobody can resolve it until it comes
    // back, under another id. `error` is the system error number of kError.
    void set_state(KernelState state, int error = 0);
    [[nodiscard]] KernelState state() const { return state_; }
    [[nodiscard]] uint16_t family() const { return family_; }
    // Sockets that are open, and those among them that listen to the controller's notices.
    [[nodiscard]] size_t sockets() const { return sockets_.size(); }
    [[nodiscard]] size_t listeners() const;

  private:
    class Socket;

    void accept(evutil_socket_t descriptor);
    void read_packet(Socket &socket);
    void tell_listeners_of_the_end() const;
    void answer(const Socket &socket, Bytes packet);
    void take_message(const Socket &socket, Bytes packet);

    Loop &loop_;
    Trace &trace_;
    Addresses &addresses_;
    std::string path_;
    Listener listener_;
    std::list<std::unique_ptr<Socket>> sockets_;
    KernelState state_ = KernelState::kUp;
    int error_ = 0;
    uint16_t family_ = 0x23;
};

} // namespace sandbox
