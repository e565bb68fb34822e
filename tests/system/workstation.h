// A workstation in small: the sandbox server, host daemons and raw clients that share one TMPDIR and one VSDID.
#pragma once

#include "tests/support/server.h"
#include "tests/support/test.h"
#include "tests/system/process.h"

#include <initializer_list>
#include <string>
#include <sys/un.h>
#include <vector>

namespace test {

// The programs under test.
extern const char *const kSandbox;
extern const char *const kPortWatch;
extern const char *const kMacTable;
extern const char *const kVlanGuard;
extern const char *const kPortGuard;
extern const char *const kVlanMirror;
extern const char *const kPictureHost;

// For a host daemon: it preloads what stands for the kernel's module, by name, as a blank would end a path.
std::vector<std::string> host_environment();

// The payload of a registration of these events. A full one carries a process id.
ByteVec registration(std::initializer_list<unsigned> types, unsigned pid, const std::string &name, uint8_t op = 1,
                     uint8_t fresh = 1);
std::string hex(const ByteVec &bytes);
template <class T> std::string hex_of(T value) {
    return hex(bytes_of(value));
}

class Workstation : public Env {
  protected:
    // A server that listens.
    Process start_sandbox(const std::vector<std::string> &options = {}) const;
    // A host daemon of that name, a port_watch unless another is asked for, with the kernel's bridge module of the
    // sandbox.
    Process start_host(const std::string &name, const std::vector<std::string> &options = {},
                       const char *program = kPortWatch) const;

    // Runs a command of the server and waits until it has been run.
    static void run(Process &sandbox, const std::string &command);

    // Returns when that host, which has registered, has gone through everything that it was told.
    static void settle(Process &sandbox, const std::string &host);
    // The server goes away and comes back when it is told to.
    static void begin_outage(Process &sandbox) { run(sandbox, "restart 100000"); }
    static void end_outage(Process &sandbox) { run(sandbox, "restart"); }

    // A connection without a registration, and one that has registered and taken the answer to that.
    [[nodiscard]] Peer connect_client() const;
    [[nodiscard]] Peer register_client(std::initializer_list<unsigned> types, const std::string &name,
                                       unsigned pid = 4242) const;
    // The messages of the next batch.
    static std::vector<Message> next(Peer &peer);
    // What a server tells a client that has registered.
    static std::vector<Message> synchronisation(uint8_t role = 0);

    // The server's end of the netlink sockets, to which the preloaded library connects them.
    [[nodiscard]] sockaddr_un kernel_address() const;
    [[nodiscard]] std::string socket_path() const { return tmpdir() + "/bridge/.server_socket"; }
};

} // namespace test
